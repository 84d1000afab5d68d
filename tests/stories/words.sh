# shellcheck shell=bash
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

# killed TIMES: kills an import at its first transaction, one from the beginning at its second ...,
# and each time lets another one finish; says how many files were there in all.
killed() {
  local number before files=0 sum='' other
  for number in $(seq "$1"); do
    rm -rf Pictures .local
    before=$(transactions)
    "$SIMULATOR" fault "$ID" "silent=@$number"
    tarvoctl --timeout 60 import --quiet &
    until [ $(($(transactions) - before)) -ge "$number" ] || ! kill -0 $! 2>/dev/null; do
      sleep 0.01
    done
    kill -KILL $! 2>/dev/null || echo "kill $number: too late"
    wait $! 2>/dev/null
    "$SIMULATOR" fault "$ID" silent=off
    tarvoctl import --quiet || echo "kill $number: not finished"
    files=$((files + $(find Pictures -type f ! -name '.*' | wc -l)))
    other=$(find Pictures -type f ! -name '.*' -exec sha1sum {} + | sort | sha1sum)
    [ -z "$sum" ] || [ "$sum" = "$other" ] || echo "kill $number: other files than before"
    sum=$other
  done
  echo "$1 kills, $files files"
}
transactions() {
  "$SIMULATOR" list --json | grep -o '"transactions": *[0-9]*' | grep -o '[0-9]*$' | head -n 1
}

# ask COMMAND EVENT...: an import's conversation, in which each command, a word or its whole line,
# waits for the event behind the one before it.
ask() {
  local line
  mkfifo .say
  tarvoctl import --progress=json <.say >.told &
  exec 9>.say
  trap '' PIPE # of one that has ended
  while [ $# -gt 0 ]; do
    line=$1
    [[ $line == '{'* ]] || line="{\"command\": \"$line\"}"
    printf '%s\n' "$line" >&9
    until grep -q "\"event\": *\"$2\"" .told || ! kill -0 $! 2>/dev/null; do sleep 0.05; done
    shift 2
  done
  exec 9>&-
  wait $!
  local status=$?
  cat .told
  return $status
}
