#!/usr/bin/env bash
# The main job, played where a person can watch: runs inside `tarvo-simulator serve --bundle DIR --`,
# starts the agent on a private bus, and lets devices arrive. Each step says what happened and what
# the agent logged, and fails when the expected thing does not happen.
#
#   scene.sh SIMULATOR AGENT TARVOCTL [--stay]
#
# With TARVO_SCENE_RELAY, TARVO_SCENE_VIEWER and TARVO_SCENE_PAGE the real programs come last, on the
# display that is there: they take the place of their stand-ins in the bundle TARVO_SCENE_BUNDLE, and
# pictures of their windows go to the folder TARVO_SCENE_SHOTS.
set -euo pipefail
usage="usage: scene.sh SIMULATOR AGENT TARVOCTL [--stay]"
simulator=${1:?$usage}
agent=${2:?$usage}
tarvoctl=${3:?$usage}
stay=${4:-}

patience=20 # seconds that an expected thing may take
folder=$(mktemp -d)
log=$folder/agent.log
launches=$folder/launches
pictures=$folder/Pictures
shown=0
processes=()
: >"$log"
: >"$launches"

clean_up() {
  local pid
  for pid in $(launched_pids) "${processes[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$folder"
}
trap clean_up EXIT

step() { printf '\n--- %s\n' "$*"; }
say() { printf '    %s\n' "$*"; }

# What the agent has logged since it was last shown.
show_log() {
  local line total
  total=$(wc -l <"$log")
  sed -n "$((shown + 1)),${total}p" "$log" | while IFS= read -r line; do
    printf '    agent | %s\n' "$line"
  done
  shown=$total
}

# wait_for FILE TEXT [COUNT]: until the file holds TEXT in COUNT lines.
wait_for() {
  local deadline=$((SECONDS + patience))
  until [ "$(grep -cF -- "$2" "$1" || true)" -ge "${3:-1}" ]; do
    if [ "$SECONDS" -ge "$deadline" ]; then
      show_log
      say "this did not happen within $patience s: $2"
      exit 1
    fi
    sleep 0.05
  done
}

# The stand-ins write one JSON line each when they start.
launched_pids() { sed -n 's/.*"pid":\([0-9]*\).*/\1/p' "$launches"; }
launch_count() { grep -cF "\"program\":\"$1\"" "$launches" || true; }
arguments_of_last() {
  grep -F "\"program\":\"$1\"" "$launches" | tail -n 1 | sed -n 's/.*"arguments":\(\[[^]]*\]\).*/\1/p'
}
pid_of_last() {
  grep -F "\"program\":\"$1\"" "$launches" | tail -n 1 | sed -n 's/.*"pid":\([0-9]*\).*/\1/p'
}

notify() {
  dbus-send --session --type=signal /com/tarvo/DistributedNotification \
    "com.tarvo.DistributedNotification.$1"
}

start_bus_and_agent() {
  mkdir -p "$folder/config/tarvo"
  printf '[Preferences]\nLOG_SUBSYS_LISTENER=true\n' >"$folder/config/tarvo/agent.conf"
  export XDG_CONFIG_HOME=$folder/config XDG_CONFIG_DIRS=$folder/none
  export DBUS_SYSTEM_BUS_ADDRESS=unix:path=$folder/no-system-bus
  export TARVO_STANDIN_LOG=$launches TARVO_STANDIN_CLAIM=1
  local bus
  mapfile -t bus < <(dbus-daemon --session --fork --print-address=1 --print-pid=1 2>/dev/null)
  export DBUS_SESSION_BUS_ADDRESS=${bus[0]}
  processes+=("${bus[1]}")
  dbus-monitor --session "interface='com.tarvo.DistributedNotification'" >"$folder/heard" 2>&1 &
  processes+=($!)
  "$agent" 2>"$log" &
  processes+=($!)
  wait_for "$log" " ready"
}

end_relay() {
  kill "$(pid_of_last 'Tarvo Relay')"
  wait_for "$log" "got RLA died notification" "$1"
}

# What the real programs need; the stand-ins do not mind.
prepare_home() {
  mkdir -p "$folder/config" "$pictures"
  printf 'XDG_PICTURES_DIR="%s"\n' "$pictures" >"$folder/config/user-dirs.dirs"
  # What listens for devices is started by `run`, or it would take the agent's events.
  printf '#!/bin/sh\nexec "%s" run -- "%s" "$@"\n' "$simulator" "$tarvoctl" >"$folder/import"
  chmod +x "$folder/import"
  export XDG_STATE_HOME=$folder/state TARVO_TARVOCTL=$folder/import
}

# The real programs in place of their stand-ins.
install_real() {
  [ -n "${TARVO_SCENE_RELAY:-}" ] || return 1
  "$simulator" bundle "$TARVO_SCENE_BUNDLE" --relay "$TARVO_SCENE_RELAY" \
    --viewer "$TARVO_SCENE_VIEWER" --page "$TARVO_SCENE_PAGE" >/dev/null
}

step "The agent starts on a private bus"
prepare_home
[ "$stay" != --stay ] || install_real || true
start_bus_and_agent
wait_for "$launches" '"program":"TARVO Wireless Utility"'
say "it has started the wireless utility (a stand-in) and waits"
show_log
if [ "$stay" = --stay ]; then
  step "The testbed stays open"
  say "In a second terminal:"
  say "  $simulator --socket $TARVO_SIMULATOR_SOCKET plug holiday-camera"
  say "  $simulator --socket $TARVO_SIMULATOR_SOCKET list"
  say "  $simulator --socket $TARVO_SIMULATOR_SOCKET run -- $tarvoctl ls --long --recursive"
  say "  $simulator --socket $TARVO_SIMULATOR_SOCKET unplug 1-1"
  say "Devices are described in simulator/devices; what is imported lies in $pictures."
  say "Ctrl-C ends it all."
  tail -n +$((shown + 1)) -f "$log" | sed -u 's/^/    agent | /' &
  processes+=($!)
  wait -n || true # the bus is no child of ours
  exit 0
fi

step "A camera is plugged in: the Relay application starts"
camera=$("$simulator" plug tarvo-camera)
wait_for "$launches" '"program":"Tarvo Relay"'
wait_for "$log" "call SendBusyNotification"
say "started: Tarvo Relay $(arguments_of_last 'Tarvo Relay')   (type, USB location, path)"
wait_for "$folder/heard" kRLABusyNotification
say "heard on the bus: kRLABusyNotification"
show_log

step "A second camera meanwhile is ignored"
second=$("$simulator" plug second-camera)
wait_for "$log" "RelayApp is already running"
show_log

step "The Relay ends: done is announced"
end_relay 1
wait_for "$folder/heard" kRLADoneNotification
say "heard on the bus: kRLADoneNotification"
"$simulator" unplug "$second"
show_log

step "The same camera in the user's hands: tarvoctl"
# tool COMMAND...: runs it and shows what it says.
tool() {
  say "\$ tarvoctl $*"
  "$tarvoctl" "$@" 2>&1 | sed 's/^/    /'
}
tool devices
tool ls --long --recursive
tool get '*.JPG' --output "$folder/pictures/"
say "$(find "$folder/pictures" -name '*.JPG' -size +0 | wc -l) pictures are in the folder"
"$simulator" unplug "$camera"

expected=1
for device in card msc-camera; do
  step "Arriving: $device"
  unit=$("$simulator" plug "$device")
  expected=$((expected + 1))
  wait_for "$launches" '"program":"Tarvo Relay"' "$expected"
  say "started: Tarvo Relay $(arguments_of_last 'Tarvo Relay')"
  end_relay "$expected"
  "$simulator" unplug "$unit"
  show_log
done

step "A camera with orders and an address book"
unit=$("$simulator" plug orders-camera)
expected=$((expected + 1))
wait_for "$launches" '"program":"Tarvo Relay"' "$expected"
end_relay "$expected"
tool orders list
tool addressbook show
"$simulator" unplug "$unit"
show_log

step "An unsupported model is ignored"
unit=$("$simulator" plug unsupported-model)
wait_for "$log" "ignoring invalid mass storage device"
"$simulator" unplug "$unit"
show_log

step "The wireless utility says busy: the busy page comes up instead of the Relay"
notify kWRLABusyNotification
wait_for "$log" "handleBusyNotification entered"
unit=$("$simulator" plug tarvo-camera)
wait_for "$launches" '"program":"ViewerApp"'
say "started: ViewerApp $(arguments_of_last ViewerApp)"
wait_for "$log" "WRLA is transferring"
show_log
[ "$(launch_count 'Tarvo Relay')" -eq "$expected" ] || {
  say "the Relay started although the wireless utility is busy"
  exit 1
}
notify kWRLADoneNotification
"$simulator" unplug "$unit"

# until WORDS COMMAND...: waits until the command succeeds.
until_true() {
  local words=$1 deadline=$((SECONDS + patience))
  shift
  until "$@"; do
    if [ "$SECONDS" -ge "$deadline" ]; then
      show_log
      say "this did not happen within $patience s: $words"
      exit 1
    fi
    sleep 0.1
  done
}
has_window() { window=$(xdotool search --onlyvisible --name . 2>/dev/null | tail -n 1) && [ -n "$window" ]; }
has_no_window() { ! has_window; }
has_pictures() { [ "$(find "$pictures" -name '*.JPG' | wc -l)" -eq "$1" ]; }
# Whether the display shows the same as a moment ago, and before that.
is_still() {
  local looks
  looks=$(for _ in 1 2 3; do import -window root png:- | cksum && sleep 0.3; done | sort -u | wc -l)
  [ "$looks" -eq 1 ]
}
shoot() {
  until_true "the window stands still" is_still
  import -window "$window" "$TARVO_SCENE_SHOTS/$1" && say "a picture of the window: $TARVO_SCENE_SHOTS/$1"
}
# close_relay COUNT: ends the window; the agent has heard of so many ends then.
close_relay() {
  kill "$(xdotool getwindowpid "$window")"
  wait_for "$log" "got RLA died notification" "$1"
}

if install_real; then
  step "A holiday: the real Relay opens, and a key imports the pictures"
  camera=$("$simulator" plug holiday-camera)
  expected=$((expected + 1))
  until_true "the Relay's window opens" has_window
  until_true "the window stands still" is_still
  xdotool windowfocus "$window" key Return
  until_true "twelve pictures are there" has_pictures 12
  (cd "$pictures" && find . -name '*.JPG' | sort | sed 's/^/    /')
  shoot relay.png
  close_relay "$expected"
  "$simulator" unplug "$camera"

  step "The same camera again: nothing is new"
  camera=$("$simulator" plug holiday-camera)
  expected=$((expected + 1))
  until_true "the Relay's window opens" has_window
  until_true "the window stands still" is_still
  has_pictures 12 || { say "pictures were imported twice" && exit 1; }
  show_log
  close_relay "$expected"
  "$simulator" unplug "$camera"

  step "The wireless utility is busy: the real viewer shows the page until it has finished"
  notify kWRLABusyNotification
  wait_for "$log" "handleBusyNotification entered" 2
  camera=$("$simulator" plug holiday-camera)
  until_true "the viewer's window opens" has_window
  shoot viewer.png
  notify kWRLADoneNotification
  until_true "the viewer closes" has_no_window
  "$simulator" unplug "$camera"
fi

step "Everything happened as it should"
