#!/usr/bin/env python3
"""Plays the stories of an owner, one a line of stories.txt, with the unmodified tarvoctl on virtual
devices, each in a home of its own.

    stories.py TOOL SIMULATOR [WORD]     all of them, or those with WORD in their line

stories.txt tells how a story is written. Without namespaces for a testbed: status 77.
"""

import fcntl
import glob
import json
import os
import pty
import pwd
import re
import select
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time

FOLDER = os.path.dirname(os.path.abspath(__file__))
FAULTS = ("silent", "stall")  # that hold all the time
SECONDS = 120  # a command that takes longer hangs
BASH = ["bash", "-c", '. "$0"; eval "$1"', os.path.join(FOLDER, "words.sh")]


class Story:
    """title | set-up | command | what is seen"""

    def __init__(self, line):
        self.isWaiting = line.startswith("? ")
        parts = [part.strip() for part in line.lstrip("? ").split(" | ")]
        self.title, setUp, self.seen = parts[0], parts[1].split(), parts[-1].split(" & ")
        self.command = " | ".join(parts[2:-1])
        self.devices, self.environment, self.columns, self.keys = [], {}, 0, ""
        for word in setUp:
            name, _, value = word.partition("=")
            if name == "tty":
                self.columns = int(value or 80)
            elif name == "keys":
                self.keys = value
            elif name.isupper():
                self.environment[name] = value
            elif value or word in FAULTS:
                self.devices[-1][1].append(word)
            elif word != "-":
                self.devices.append((word, []))


class Player:
    def __init__(self, tool, simulator):
        self.simulator = simulator
        keep = ("DBUS_SYSTEM_BUS_ADDRESS", "LD_PRELOAD", "LOCPATH", "TMPDIR")
        self.environment = {name: os.environ[name] for name in os.environ
                            if name in keep or name.startswith(("UMOCKDEV", "TARVO"))}
        self.environment |= {"PATH": f"{os.path.dirname(tool)}:{os.environ['PATH']}",
                             "SIMULATOR": simulator, "TERM": "xterm", "LANG": "C.UTF-8",
                             "VOLUMES": "/media/" + pwd.getpwuid(os.getuid()).pw_name}

    def simulate(self, *words):
        return subprocess.run([self.simulator, *words], check=True, capture_output=True,
                              text=True).stdout.strip()

    def play(self, story):
        """What is not as the story has it; empty when all is."""
        home = tempfile.mkdtemp(dir=os.environ["STORIES_PLACE"])
        ids = []
        for device, faults in story.devices:
            own = os.path.join(FOLDER, device + ".json")
            ids.append(self.simulate("plug", own if os.path.exists(own) else device))
            for fault in faults:
                self.simulate("fault", ids[-1], fault)
        environment = self.environment | {"HOME": home, "ID": (ids + [""])[0]} | story.environment
        run = self.onTerminal if story.columns else self.byPipes
        status, out, err = run(story, home, environment)
        wrong = [f"not seen: {item}" for item in story.seen
                 if not isSeen(item, status, out, err, home)]
        for each in json.loads(self.simulate("list", "--json")):
            if "KILL" not in story.command.upper():
                wrong += each["violations"]
            self.simulate("unplug", each["id"])
        if wrong:
            wrong += [f"exit {status}", *(f"out> {line}" for line in out.splitlines()[:30]),
                      *(f"err> {line}" for line in err.splitlines()[:30])]
        shutil.rmtree(home, ignore_errors=True)
        return wrong

    def byPipes(self, story, home, environment):
        with subprocess.Popen([*BASH, story.command], cwd=home, env=environment,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, start_new_session=True) as run:
            try:
                texts = run.communicate(timeout=SECONDS)
            except subprocess.TimeoutExpired:
                os.killpg(run.pid, signal.SIGKILL)
                texts = run.communicate()
        return run.returncode, *(text.decode(errors="replace") for text in texts)

    def onTerminal(self, story, home, environment):
        """Both outputs are one there. The keys are typed as soon as there is a question."""
        pid, terminal = pty.fork()
        if pid == 0:
            os.chdir(home)
            fcntl.ioctl(0, termios.TIOCSWINSZ, struct.pack("HHHH", 25, story.columns, 0, 0))
            os.execvpe(BASH[0], [*BASH, story.command], environment)
        out, keys, end = b"", story.keys, time.monotonic() + SECONDS
        while time.monotonic() < end:
            if not select.select([terminal], [], [], 1)[0]:
                continue
            try:
                out += os.read(terminal, 65536)
            except OSError:  # nobody has it open any more
                break
            if keys and out.endswith(b"] "):
                os.write(terminal, keys.encode() + b"\n")
                keys = ""
        else:
            os.killpg(pid, signal.SIGKILL)
        os.close(terminal)
        return os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]), out.decode(errors="replace"), ""


def isSeen(item, status, out, err, home):
    """One of the things that a story says are seen."""
    what, _, text = item.strip().partition(" ")
    if what == "exit":
        return status == int(text)
    if what in ("out", "err", "no-out", "no-err"):
        where = out if what.endswith("out") else err
        found = re.search(text[1:-1], where, re.M) if text.startswith("/") else text in where
        return bool(found if text else where) != what.startswith("no-")
    if what in ("file", "no-file"):
        pattern, _, size = text.partition(" = ")
        found = [path for path in glob.glob(os.path.join(home, pattern), recursive=True)
                 if os.path.isfile(path)]
        sizes = all(os.path.getsize(path) == int(size) for path in found if size)
        return (bool(found) and sizes) != what.startswith("no-")
    if what == "files":
        count, _, pattern = text.partition(" ")
        found = glob.glob(os.path.join(home, pattern), recursive=True)
        return len([path for path in found if os.path.isfile(path)]) == int(count)
    if what == "fits":  # what is drawn again and again on one line
        drawn = [re.sub(r"\x1b\[[0-9;]*[A-Za-z]", "", each)
                 for each in re.findall(r"\r([^\r\n]+)(?=\r[^\n])", out)]
        return bool(drawn) and all(len(each) < int(text) for each in drawn)
    if what in ("colour", "no-colour"):
        return ("\x1b[3" in out or "\x1b[1" in out) == (what == "colour")
    raise ValueError(f"a story cannot say '{item}'")


def playAll(tool, simulator, word):
    player, counts = Player(tool, simulator), {}
    with open(os.path.join(FOLDER, "stories.txt"), encoding="utf-8") as lines:
        stories = [Story(line) for line in lines if line[0] not in "#\n" and word in line]
    for number, story in enumerate(stories, 1):
        wrong = player.play(story)
        verdict = "ok" if not wrong else "not ok"
        if story.isWaiting:
            verdict = "waiting" if wrong else "ok, and waits no more"
        counts[verdict] = counts.get(verdict, 0) + 1
        print(f"{verdict} {number} {story.title}", flush=True)
        if wrong and (word or not story.isWaiting):
            print("    " + "\n    ".join([f"$ {story.command}", *wrong]), flush=True)
    print(", ".join(f"{count} {verdict}" for verdict, count in sorted(counts.items())))
    return 1 if "not ok" in counts or not stories else 0


def main():
    if os.environ.get("STORIES_PLACE"):
        return playAll(sys.argv[1], sys.argv[2], "".join(sys.argv[3:]))
    tool, simulator = (os.path.abspath(path) for path in sys.argv[1:3])
    with tempfile.TemporaryDirectory(prefix="tarvo-", dir="/tmp") as place:
        subprocess.run(["localedef", "-i", "de_DE", "-f", "UTF-8", f"{place}/de_DE.UTF-8"],
                       check=False, stderr=subprocess.DEVNULL)
        environment = os.environ | {
            "STORIES_PLACE": place, "LOCPATH": place, "TARVO_SIMULATOR_SOCKET": f"{place}/control",
            "DBUS_SYSTEM_BUS_ADDRESS": f"unix:path={place}/none"}
        serve = [simulator, "serve", "--"]
        refused = subprocess.run([*serve, "true"], env=environment, stderr=subprocess.PIPE,
                                 text=True, check=False)
        if refused.returncode != 0:
            print(refused.stderr)
            return 77 if "namespaces" in refused.stderr else 1
        return subprocess.run([*serve, sys.executable, os.path.abspath(__file__), tool, simulator,
                               *sys.argv[3:]], env=environment, check=False).returncode


sys.exit(main())
