#!/usr/bin/env bash
# What tarvoctl tells of its commands, in the shells and the formatter that it is for.
# completions_test.sh FOLDER: the build's, with completions/ and man/ in it.
set -uo pipefail
export LC_ALL=C
made=$(cd "$1" && pwd)
HOME=$(mktemp -d)
export HOME
trap 'rm -rf "$HOME"' EXIT
mkdir -p "$HOME/work/pictures" "$HOME/bin" && cd "$HOME/work" && touch a.json
# A device with an object whose name a shell would run.
cat >"$HOME/bin/tarvoctl" <<'STUB'
#!/bin/sh
[ "$1" != complete ] && printf '%s\n' "$*" >>"$HOME/typed" && exit
case "$*" in
  'complete device -- '*) printf 'SER1\tTarvo Lumo\n' ;;
  'complete store -- '*) printf '0x00010001\tCARD\n' ;;
  'complete property -- Wh') printf 'WhiteBalance\t\n' ;;
  'complete object --device SER1 -- TARV') printf 'TARV0001.JPG\tJPEG image\n' ;;
  'complete object -- odd') printf 'odd $(touch evaluated).JPG\tJPEG image\n' ;;
esac
STUB
chmod +x "$HOME/bin/tarvoctl"
PATH=$HOME/bin:$PATH
failed=0

# check NAME EXPECTED GOT: words, in any order.
check() {
  [[ $(sort <<<"${2// /$'\n'}") == "$(sort <<<"$3")" ]] && return
  printf '%s: expected "%s", got "%s"\n' "$1" "$2" "${3//$'\n'/ }" >&2
  failed=1
}

# What bash offers for the last of these words.
in_bash() (
  # shellcheck disable=SC2317
  compopt() { compgen -f; } # it is readline that offers these
  . "$made/completions/tarvoctl"
  COMP_WORDS=(tarvoctl "$@")
  COMP_CWORD=$#
  "$(complete -p tarvoctl | awk '{ print $3 }')"
  printf '%s\n' "${COMPREPLY[@]}"
)

# What fish offers; it shows a folder with a slash.
in_fish() {
  # shellcheck disable=SC2016
  fish --no-config -c 'source $argv[1]; complete -C "$argv[2..-1]"' \
    "$made/completions/tarvoctl.fish" tarvoctl "$@" | cut -f1 | sed 's,/$,,'
}

global='--json --json-lines --device --config --quiet --timeout --version --help'
while IFS='|' read -r words expected; do
  mapfile -t typed < <(xargs -n 1 <<<"$words")
  check "bash: $words" "$expected" "$(in_bash "${typed[@]}")"
  check "fish: $words" "$expected" "$(in_fish "${typed[@]}")"
done <<ROWS
add|addressbook
volume ''|ls get rm
--device volume clock ''|set
msc clock ''|set
--json msc mode ''|get set
msc mode set --wake-after 10 ''|camera startup memory
msc mode set camera ''|
ls --|--store --format --association --long --recursive --handles --limit $global
ls --lo|--long
ls --format ''|
addressbook import --format ''|json vcard
addressbook import ''|a.json pictures
decode con|contact
decode contact ''|a.json pictures
decode contact a.json ''|a.json pictures
get ''|
--device ''|SER1
ls --store ''|0x00010001
property get Wh|WhiteBalance
--device SER1 get TARV|TARV0001.JPG
'\$(touch evaluated)' --\$(touch evaluated) ''|
ROWS
[[ ! -e evaluated ]] || check "what was typed" "nothing evaluated" "a file"

check "zsh" "" "$(zsh -n "$made/completions/_tarvoctl" 2>&1)"
check "manual" "" "$(groff -ww -man -Tutf8 -P-cbou "$made/man/tarvoctl.1" 2>&1 >rendered)"
check "commands in the manual" "fulfil" "$(grep -om1 fulfil rendered)"
exit "$failed"
