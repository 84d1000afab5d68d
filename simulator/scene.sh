#!/usr/bin/env bash
# The main job, played where a person can watch: runs inside `tarvo-simulator serve --bundle DIR --`,
# starts the agent on a private bus, and lets devices arrive. Each step says what happened and what
# the agent logged, and fails when the expected thing does not happen.
#
#   scene.sh SIMULATOR AGENT TARVOCTL [--stay]
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

step "The agent starts on a private bus"
start_bus_and_agent
wait_for "$launches" '"program":"TARVO Wireless Utility"'
say "it has started the wireless utility (a stand-in) and waits"
show_log
if [ "$stay" = --stay ]; then
  step "The testbed stays open"
  say "In a second terminal:"
  say "  $simulator --socket $TARVO_SIMULATOR_SOCKET plug tarvo-camera"
  say "  $simulator --socket $TARVO_SIMULATOR_SOCKET list"
  say "  $simulator --socket $TARVO_SIMULATOR_SOCKET run -- $tarvoctl ls --long --recursive"
  say "  $simulator --socket $TARVO_SIMULATOR_SOCKET unplug 1-1"
  say "Devices are described in simulator/devices; Ctrl-C ends it all."
  tail -n +$((shown + 1)) -f "$log" | sed -u 's/^/    agent | /' &
  processes+=($!)
  wait -n "${processes[@]}" || true
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

step "Everything happened as it should"
