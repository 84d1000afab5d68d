#!/usr/bin/env bash
# Checks a tree against the rules of the house: check.sh TREE. Prints every breach, exits 1 on any.
#  1. A folder includes only folders that stand after it in the list below; tools/ and import/
#     reach devices by the public headers alone; of the rooms, tools/ knows records and files.
#  2. A source file includes its own header first.
#  3. A header begins with a comment that says what it is for, and has #pragma once.
#  4. Every top-level folder has a README with the common headings.
#  5. What docs/security.md claims is tested: a name like Suite.Case on it is a test, one like
#     vm:name a scenario on the real kernel.
set -euo pipefail
tree=${1:?usage: check.sh TREE}
cd "$tree"

# Highest room first. A folder that is not named here belongs to its parent.
rooms=(agent relay viewer tools import library tarvo msc identify NativeServices/PictureDevice/devices
  NativeServices/PictureDevice/operations NativeServices/PictureDevice/datasets NativeServices/models
  NativeServices platform/imagecapture platform/imagecapture/ptp platform/diskarbitration
  platform/iokit platform/files platform/desktop platform/foundation Utilities)
headings=("## Purpose" "## Interfaces" "## Outside world" "## Tests")
breaches=0

breach() {
  printf '%s\n' "$*"
  breaches=$((breaches + 1))
}

# room_of FILE: leaves its room's place in the list, or nothing, in $REPLY. No process is started for
# it: there are thousands of includes.
declare -A place
for i in "${!rooms[@]}"; do place[${rooms[$i]}]=$i; done
room_of() {
  local folder=$1
  REPLY=
  while [[ -z $REPLY && $folder == */* ]]; do
    folder=${folder%/*}
    REPLY=${place[$folder]:-}
  done
}

check_layers() {
  local file from line included to
  while IFS= read -r line; do
    file=${line%%:*}
    included=${line#*\"}
    included=${included%%\"*}
    room_of "$file"
    from=$REPLY
    room_of "$included"
    to=$REPLY
    case $file in
      simulator/*)
        case $included in
          simulator/* | Utilities/*) ;;
          *) breach "$file includes $included; the simulator uses Utilities alone" ;;
        esac
        ;;
      *)
        [ -n "$from" ] || continue
        case $file:$included in
          import/*:import/* | import/*:tarvo/* | import/*:Utilities/* | import/*:platform/files/*) ;;
          import/*) breach "$file includes $included; a device is reached by tarvo/ alone" ;;
          tools/*:tools/* | tools/*:import/* | tools/*:tarvo/* | tools/*:library/Records.h | tools/*:Utilities/* | \
            tools/*:platform/files/* | tools/*:NativeServices/PictureDevice/datasets/*) ;;
          tools/*) breach "$file includes $included; a device is reached by tarvo/ alone" ;;
        esac
        if [ -z "$to" ]; then
          breach "$file includes $included, which is in no room"
        elif [ "$to" -lt "$from" ]; then
          breach "$file includes $included: ${rooms[$from]} may not know ${rooms[$to]}"
        fi
        ;;
    esac
  done < <(grep -rnE '^#include "' --include='*.h' --include='*.cpp' \
    $(ls -d agent relay viewer tools import library msc identify NativeServices platform Utilities simulator \
      2>/dev/null) | sed -E 's/^([^:]+):[0-9]+:/\1:/')
}

check_sources() {
  local file own text
  local first=$'\n#include ([^\n]*)'
  while IFS= read -r -d '' file; do
    text=$(<"$file")
    case $file in
      *.cpp)
        own=${file%.cpp}.h
        [ -f "$own" ] || continue
        [[ $'\n'$text =~ $first && ${BASH_REMATCH[1]} == "\"$own\"" ]] ||
          breach "$file does not include $own first"
        ;;
      *.h)
        [[ $text == //* ]] || breach "$file does not open with what it is for"
        [[ $text == *$'\n#pragma once'* ]] || breach "$file has no #pragma once"
        ;;
    esac
  done < <(find agent relay viewer tools import library msc identify NativeServices platform Utilities simulator \
    \( -name '*.h' -o -name '*.cpp' \) -print0 2>/dev/null)
}

check_readmes() {
  local folder heading
  for folder in */; do
    folder=${folder%/}
    case $folder in build | cmake | docs) continue ;; esac
    if [ ! -f "$folder/README.md" ]; then
      breach "$folder has no README.md"
      continue
    fi
    for heading in "${headings[@]}"; do
      grep -qx "$heading" "$folder/README.md" || breach "$folder/README.md lacks '$heading'"
    done
  done
}

check_claims() {
  local name
  [ -f docs/security.md ] || return 0
  while IFS= read -r name; do
    case $name in
      vm:*) grep -q "^def ${name#vm:}(" tests/vm/scenarios.py ;;
      *) grep -rqE "^TEST(_F|_P)?\(${name%.*}, *${name#*.}\)" --include='*.cpp' tests ;;
    esac || breach "docs/security.md names $name, which is no test"
  done < <(grep -oE '\b(vm:[a-z_]+|[A-Z][A-Za-z0-9]+\.[A-Z][A-Za-z0-9]{6,})' docs/security.md | sort -u)
}

check_layers
check_sources
check_readmes
check_claims
[ "$breaches" -eq 0 ] || {
  echo "$breaches breaches of the house rules"
  exit 1
}
