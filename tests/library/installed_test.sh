#!/usr/bin/env bash
# The library as others get it: installed alone and moved elsewhere, it shows what its headers
# declare and nothing besides; the examples are built against it, by CMake and by pkg-config, and do
# on virtual devices what they say.
#
#   installed_test.sh BUILD SIMULATOR EXAMPLES COMPILER
set -euo pipefail
self=$(realpath "$0")
die() {
  printf 'error: %s\n' "$*" >&2
  exit 1
}

# wait_for FILE TEXT: until a line of the file has it.
wait_for() {
  local deadline=$((SECONDS + 30))
  until grep -qF -- "$2" "$1" 2>/dev/null; do
    [ "$SECONDS" -lt "$deadline" ] || die "'$2' did not come; there is: $(cat "$1")"
    sleep 0.05
  done
}

# is WHAT GOT WANTED
is() { [ "$2" = "$3" ] || die "$1 is not as it should be: $(diff <(echo "$2") <(echo "$3"))"; }

# start NAME: an example, with its outputs in the file NAME; its input is that of `type_line`.
start() {
  mkfifo "$1.in"
  "bin/$1" <>"$1.in" >"$1" 2>&1 &
  running=$!
  wait_for "$1" watching
}
type_line() { echo >"$1.in"; }

camera_line="TLX2-000417 (Tarvo Lumo X2, location 0x01100000)"

# What the camera with the id $1 holds is in the folder $2, and nothing besides.
compare_with_device() {
  local handle name count=0
  while read -r handle name; do
    "$simulator" export "$1" "$handle" exported
    cmp exported "$2/$name"
    count=$((count + 1))
  done < <("$simulator" objects "$1" | sed '/ 0x3001 /d; s/^ *\([0-9]*\) .*"\(.*\)"/\1 \2/')
  is "the number of files" "$count $(find "$2" -type f | wc -l)" "4 4"
}

play() {
  local id other
  id=$("$simulator" plug tarvo-camera)
  is list "$(bin/list)" "$camera_line"

  mkdir pictures
  "$simulator" fault "$id" silent=0x1009,@1
  bin/download pictures >download 2>&1 &
  running=$!
  until "$simulator" list --json | grep -q 4105; do sleep 0.05; done
  kill -INT "$running"
  wait "$running" && die "the download was not ended"
  wait_for download cancelled
  "$simulator" fault "$id" silent=off
  bin/download pictures >download 2>&1
  compare_with_device "$id" pictures

  start events
  # By `run`: two that listen need other descriptors in the testbed.
  "$simulator" run -- "$PWD/bin/download" "$PWD/pictures" >download 2>&1 &&
    die "two programs hold one camera"
  wait_for download "process events"
  "$simulator" capture "$id" >/dev/null
  wait_for events 0x4002
  "$simulator" unplug "$id"
  wait "$running"
  wait_for events "it has gone"

  for loop in glib_loop poll_loop; do
    start "$loop"
    other=$("$simulator" plug tarvo-camera --port 1-1)
    wait_for "$loop" "came: $camera_line"
    "$simulator" unplug "$other"
    wait_for "$loop" "went: $camera_line"
    if [ "$loop" = poll_loop ]; then type_line "$loop"; else kill -TERM "$running"; fi
    wait "$running"
  done

  "$simulator" plug tarvo-camera >/dev/null
  "$simulator" plug card >/dev/null
  is card_and_camera "$(bin/card_and_camera)" "Tarvo Lumo X2: 3 pictures, 9642034 bytes
TARVO_CARD: 1 pictures, 1310720 bytes"
}

if [ "$1" = --inside ]; then
  simulator=$2
  # shellcheck disable=SC2046 # several processes
  trap 'kill $(jobs -p) 2>/dev/null || true' EXIT
  play
  exit
fi

build=$1 simulator=$2 examples=$3 compiler=$4
# A short path: the names of sockets in the testbed have a limit.
place=$(mktemp -d /tmp/tarvo-XXXXXX)
trap 'rm -rf "$place"' EXIT
cd "$place"
# Of the subfolder: at the top a list of what was installed would be written into the build.
DESTDIR=$place/staged cmake --install "$build/library" --component library >/dev/null
mv "$(dirname "$(find staged -type d -name include)")" usr
library=$(find usr -name libtarvo.so)

nm -DC --defined-only "$library" | cut -d" " -f3- | sed "s/@@TARVO_1$//" >shown
grep -qF 'tarvo::Session::openCamera(' shown || die "the library shows nothing"
classes=$(sed -nE 's/^(class|struct) TARVO_API ([A-Za-z]+).*/\2/p' usr/include/tarvo/*.h | paste -sd '|')
functions=$(sed -nE 's/^TARVO_API .*[ &*]([a-zA-Z]+|operator<<)\(.*/\1/p' usr/include/tarvo/*.h |
  sort -u | paste -sd '|')
call='(\[abi:cxx11\])?\(.*'
meant="(($classes)(::~?[A-Za-z=]+$call)?|($functions)$call)"
inside=$(grep -vE "^(TARVO_1|((vtable|typeinfo|typeinfo name) for )?tarvo::$meant)\$" shown || true)
[ -z "$inside" ] || die "the library shows its inside: $inside"

PKG_CONFIG_PATH=$(dirname "$(find usr -name tarvo.pc)")
export PKG_CONFIG_PATH
mkdir bin
# shellcheck disable=SC2046 # several words
"$compiler" -std=c++20 -o bin/list "$examples/list.cpp" $(pkg-config --cflags --libs tarvo)
readelf -d bin/list | grep NEEDED | grep -qE 'glib|usb' && die "a program links our dependencies"
cmake -S "$examples" -B examples -DCMAKE_PREFIX_PATH="$place/usr" -DCMAKE_CXX_COMPILER="$compiler" \
  -DCMAKE_CXX_FLAGS="-Wall -Wextra -Wpedantic -Wshadow -Werror" >/dev/null
cmake --build examples --parallel >examples.log || die "$(cat examples.log)"
for each in download events card_and_camera glib_loop poll_loop; do mv "examples/$each" bin/; done

LD_LIBRARY_PATH=$(dirname "$(realpath "$library")")
export LD_LIBRARY_PATH DBUS_SYSTEM_BUS_ADDRESS=unix:path=$place/none XDG_CONFIG_HOME=$place/none
"$simulator" --socket "$place/control" serve -- true 2>refused || {
  cat refused
  grep -q namespaces refused && exit 77
  exit 1
}
"$simulator" --socket "$place/control" serve --strict -- "$self" --inside "$simulator"
