# What the commands of stories may use besides programs.

# at OPERATION TIMES SIGNAL COMMAND...: sends the signal as soon as the device has been asked for
# the operation (decimal) so often, and ends as the command does.
at() {
  local operation=$1 times=$2 signal=$3
  shift 3
  "$@" &
  until [ "$("$SIMULATOR" list --json | grep -ow "$operation" | wc -l)" -ge "$times" ] ||
    ! kill -0 $! 2>/dev/null; do sleep 0.05; done
  kill -"$signal" $! 2>/dev/null
  wait $!
}

# ask EVENT LINE...: an import's conversation of these commands, until it has told of the event.
ask() {
  local event=$1 end=$((SECONDS + 60))
  shift
  {
    printf '%s\n' "$@"
    until grep -q "\"event\": *\"$event\"" .told 2>/dev/null || [ "$SECONDS" -gt "$end" ]; do
      sleep 0.05
    done
  } | tarvoctl import --progress=json | tee .told
}
