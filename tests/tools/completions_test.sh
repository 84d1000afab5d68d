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
--device volume clock ''|get set
msc clock ''|set
--json msc mode ''|get set
msc mode set --wake-after 10 ''|camera startup memory
msc mode set camera ''|
ls --|--long --recursive --handles --pictures --films --since --format --store --sort --limit $global
ls --lo|--long
ls --format ''|
addressbook import --format ''|json vcard
addressbook import ''|a.json pictures
decode con|contact
decode contact ''|a.json pictures
decode contact a.json ''|a.json pictures
get ''|
get -o ''|a.json pictures
--device ''|SER1
ls --store ''|0x00010001
property get Wh|WhiteBalance
--device SER1 get TARV|TARV0001.JPG
'\$(touch evaluated)' --\$(touch evaluated) ''|
ROWS
[[ ! -e evaluated ]] || check "what was typed" "nothing evaluated" "a file"

# What is run when these lines, tabulators among them, are typed into an interactive shell, and what
# it complains of: in_terminal SETTINGS COMMAND... Each line is typed once the one before was run.
in_terminal() {
  python3 -c '
import os, pty, re, select, sys, time
settings, command, typed = sys.argv[1], sys.argv[2:], os.environ["HOME"] + "/typed"
def count():
    return len(open(typed).readlines()) if os.path.exists(typed) else 0
def wait(ends):
    limit = time.monotonic() + 20
    while not ends() and time.monotonic() < limit:
        if select.select([fd], [], [], 0.05)[0]:
            shown.append(os.read(fd, 65536).decode(errors="replace"))
pid, fd = pty.fork()
if pid == 0:
    os.execvp(command[0], command)
shown = []
for line in [settings + "; tarvoctl begun", "tarvoctl property get Wh\t", "tarvoctl prop\tli\t",
             "tarvoctl --device SER1 get TARV\t", "tarvoctl get odd\t"]:
    before = count()
    os.write(fd, line.encode() + b"\r")
    wait(lambda: count() > before)
os.close(fd)
print(*re.findall("(?m)^.*(?:error|unbound|not found|bad |warning).*$", "".join(shown)), sep="\n")
print(open(typed).read(), end="")' "$@"
  rm -f "$HOME/typed"
}

# shellcheck disable=SC2016
run='begun property~get~WhiteBalance property~list --device~SER1~get~TARV0001.JPG'
run+=' get~odd~$(touch~evaluated).JPG'
while IFS='|' read -r settings command; do
  read -ra words <<<"$command"
  check "typed into $command: $settings" "$run" \
    "$(in_terminal "${settings//MADE/"$made/completions"}" "${words[@]}" | sed '/^$/d; s/ /~/g')"
done <<'ROWS'
. MADE/tarvoctl|bash --norc -i
set -u; . MADE/tarvoctl|bash --norc -i
autoload -Uz compinit; compinit -u -D; . MADE/_tarvoctl|zsh -f -i
source MADE/tarvoctl.fish|fish --no-config -i
ROWS
[[ ! -e evaluated ]] || check "what a device says" "nothing evaluated" "a file"

check "zsh" "" "$(zsh -n "$made/completions/_tarvoctl" 2>&1)"
check "manual" "" "$(groff -ww -man -Tutf8 -P-cbou "$made/man/tarvoctl.1" 2>&1 >rendered)"
check "commands in the manual" "fulfil" "$(grep -om1 fulfil rendered)"
exit "$failed"
