#!/usr/bin/env python3
"""What the Relay's window costs: turns of its loop, memory, start, and the speed of its import.

Runs inside `tarvo-simulator serve --`, a private session bus and a virtual display; bench/window
does that. A module that is preloaded (window_meter.cpp) tells what the window shows, and when.
Prints minimum, median and maximum of each figure, and its limit.
"""

import argparse
import contextlib
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
sys.dont_write_bytecode = True

from figures import Simulator, seconds_of, wait_for  # noqa: E402

LOCATION = "17825792"  # of the first port of the first bus
MANY = 1000
SIZE = 2_000_000
LISTED = 10_000
PATIENCE = 180.0  # seconds for an import
CLICKS = 1000  # of the wheel, with which all that is listed is scrolled through


def row(name, values, unit, limit, by=statistics.median, is_least=False):
    """A line of the table. What the values come to `by` this has a limit, the most or the least."""
    median = statistics.median(values)
    is_kept = by(values) >= limit if is_least else by(values) <= limit
    verdict = "" if is_kept else "  BEYOND"
    print(f"  {name:<46} {min(values):7.1f} {median:7.1f} {max(values):7.1f} {unit:<2}"
          f"  {'least' if is_least else 'most':>5} {limit:4} {unit}{verdict}", flush=True)


def remark(text):
    print(f"    {text}", flush=True)


class Metered:
    """A program with a window, from its start on, and what the meter in it tells."""

    def __init__(self, bench, *command, environment=None):
        handle, self.told = tempfile.mkstemp(dir=bench.arguments.place)
        os.close(handle)
        self.began = time.monotonic()
        self.process = subprocess.Popen(
            command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env={
                **(environment or os.environ), "LD_PRELOAD": bench.arguments.meter,
                "TARVO_METER": self.told})

    def events(self, what):
        """Pairs of the moment and what was told with it."""
        with open(self.told, encoding="utf-8") as file:
            lines = [line.rstrip("\n").split(" ", 2) for line in file if line.endswith("\n")]
        return [(float(moment), much) for moment, told, much in lines if told == what]

    def moment(self, what, much="", since=0.0):
        """When this happened first, which is waited for."""
        deadline = time.monotonic() + PATIENCE
        while time.monotonic() < deadline and self.process.poll() is None:
            for moment, told in self.events(what):
                if moment > since and told.startswith(much):
                    return moment
            time.sleep(0.05)  # the meter knows the moment: looking often would only cost time
        sys.exit(f"the window did not come to this: {what} {much}")

    def longest_turn(self, since, until):
        return max([float(cost) for moment, cost in self.events("turn")
                    if since <= moment <= until], default=0.0)

    def pictures(self):
        """How many small pictures were shown, to the hundred."""
        return max([int(count) for _, count in self.events("pictures")], default=0)

    def press_main(self):
        subprocess.run(["gdbus", "call", "--session", "--dest", "com.tarvo.Relay", "--object-path",
                        "/com/tarvo/Relay/window/1", "--method", "org.gtk.Actions.Activate", "main",
                        "[]", "{}"], check=True, stdout=subprocess.DEVNULL)

    def scroll(self, clicks, pause):
        """Turns the mouse's wheel over the pictures, with so many ms between two clicks."""
        subprocess.run(["xdotool", "mousemove", "400", "400", "click", "--repeat", str(clicks),
                        "--delay", str(pause), "5"], check=True)

    def memory(self):
        """Its share of the memory in MB, without that of the import."""
        with open(f"/proc/{self.process.pid}/smaps_rollup", encoding="utf-8") as file:
            return next(int(line.split()[1]) for line in file if line.startswith("Pss:")) / 1024

    def end(self):
        """Ends it, and waits for its import, which leaves the camera to the next one."""
        with open(f"/proc/{self.process.pid}/task/{self.process.pid}/children",
                  encoding="utf-8") as file:
            children = file.read().split()
        self.process.kill()
        self.process.wait()
        wait_for(lambda: not any(os.path.exists(f"/proc/{child}/exe") for child in children),
                 "the import ends with its window")


class Bench:
    def __init__(self, arguments):
        self.arguments = arguments
        self.simulator = Simulator(arguments.simulator)

    @contextlib.contextmanager
    def camera(self, count, size):
        with open(self.arguments.camera, encoding="utf-8") as file:
            description = json.load(file)
        description["stores"] = [{
            "id": "0x00010001", "capacity": 1 << 40, "free": 1 << 39,
            "content": [{"folder": "DCIM", "content": [{"generate": {
                "count": count, "size": size, "prefix": "IMG_", "extension": "JPG",
                "thumbnail": True}}]}]}]
        path = os.path.join(self.arguments.place, "camera.json")
        with open(path, "w", encoding="utf-8") as file:
            json.dump(description, file)
        identifier = self.simulator.call("plug", path, "--port", "1-1")
        try:
            yield
        finally:
            self.simulator.call("unplug", identifier)

    @contextlib.contextmanager
    def home(self):
        """The environment of a person who has imported nothing yet."""
        home = tempfile.mkdtemp(dir=self.arguments.place)
        os.mkdir(os.path.join(home, "Pictures"))
        program = os.path.join(home, "import")
        with open(program, "w", encoding="utf-8") as file:
            file.write(f'#!/bin/sh\nexec "{self.arguments.simulator}" run -- '
                       f'"{self.arguments.tarvoctl}" "$@"\n')
        os.chmod(program, 0o700)
        environment = {name: value for name, value in os.environ.items()
                       if not name.startswith("XDG_")}
        try:
            yield {**environment, "HOME": home, "TARVO_TARVOCTL": program}
        finally:
            shutil.rmtree(home)

    @contextlib.contextmanager
    def window(self, environment, has_device=True):
        words = ["PTP", LOCATION, ""] if has_device else []
        window = Metered(self, self.arguments.relay, *words, environment=environment)
        try:
            yield window
        finally:
            window.end()

    def check_imported(self, home):
        """All pictures are there: what was fast for another reason is no figure."""
        found = sum(name.endswith(".JPG") and
                    os.path.getsize(os.path.join(folder, name)) == SIZE
                    for folder, _, names in os.walk(home) for name in names)
        if found != MANY:
            sys.exit(f"{found} of {MANY} pictures were imported")

    def import_by_window(self, window, is_scrolled):
        """Presses the button as soon as it is there; when it took that, and when all was done."""
        offered = window.moment("button", "Import")
        window.press_main()
        pressed = window.moment("button", "Cancel", since=offered)
        while is_scrolled and not self.is_done(window):
            window.scroll(5, 50)
        done = window.moment("button", "Open Folder")
        return pressed, done

    @staticmethod
    def is_done(window):
        return window.process.poll() is not None or any(
            label == "Open Folder" for _, label in window.events("button"))

    def imports(self):
        """The turns of the loop while pictures come and somebody scrolls through them."""
        turns, importing = [], []
        with self.camera(MANY, SIZE):
            for _ in range(self.arguments.runs):
                with self.home() as environment, self.window(environment) as window:
                    pressed, done = self.import_by_window(window, True)
                    self.check_imported(environment["HOME"])
                    turns.append(window.longest_turn(window.moment("frame"), done))
                    importing.append(window.longest_turn(pressed, done))
                    pictures = window.pictures()
        row(f"longest turn, {MANY:,} x {SIZE / 1e6:.0f} MB", turns, "ms", 50, by=max)
        remark(f"processor time of its thread, from the first frame until all is imported, while "
               f"{pictures} small pictures are shown")
        remark(f"the import alone: {max(importing):.1f} ms at most")

    def memory(self):
        """What pictures add to the memory of a window without any."""
        with self.home() as environment, self.window(environment, False) as window:
            window.moment("frame")
            time.sleep(1)
            empty = window.memory()
        with self.camera(LISTED, 20_000), self.home() as environment, \
                self.window(environment) as window:
            window.moment("button", "Import")
            listed = most = window.memory()
            for _ in range(50):
                window.scroll(CLICKS // 50, 40)
                most = max(most, window.memory())
            turn = window.longest_turn(window.moment("frame"), time.monotonic())
            pictures = window.pictures()
        row(f"memory of {LISTED:,} pictures, scrolled through", [most - empty], "MB", 120, by=max)
        remark(f"empty window {empty:.1f} MB, listed {listed:.1f} MB, at most {most:.1f} MB; "
               f"small pictures shown: {pictures}; "
               f"longest turn {turn:.1f} ms")

    def rate(self):
        """The import without the look through the camera, and all from the start of the program."""
        ours, theirs, whole, their_whole = [], [], [], []
        with self.camera(MANY, SIZE):
            for _ in range(self.arguments.runs):
                with self.home() as environment:
                    command = [environment["TARVO_TARVOCTL"], "import"]
                    looking = seconds_of([*command, "--dry-run"], environment=environment)
                    their_whole.append(seconds_of(command, environment=environment))
                    theirs.append(their_whole[-1] - looking)
                    self.check_imported(environment["HOME"])
                with self.home() as environment, self.window(environment) as window:
                    pressed, done = self.import_by_window(window, False)
                    ours.append(done - pressed)
                    whole.append(done - window.began)
                    self.check_imported(environment["HOME"])
        shares = [100 * their / our for our, their in zip(ours, theirs)]
        row("rate of the import, of tarvoctl import's", shares, "%", 90, is_least=True)
        remark(f"window {statistics.median(ours):.2f} s, tarvoctl {statistics.median(theirs):.2f} s;"
               f" with start and looking through the camera {statistics.median(whole):.2f} s and "
               f"{statistics.median(their_whole):.2f} s")

    def start(self):
        """The first frame beside that of a window without anything, and the first picture."""
        bare, ours, pictures = [], [], []
        with self.camera(MANY, SIZE):
            for _ in range(self.arguments.runs + 1):
                other = Metered(self, self.arguments.bare)
                bare.append(1000 * (other.moment("frame") - other.began))
                other.end()
                with self.home() as environment, self.window(environment) as window:
                    frame = window.moment("frame")
                    ours.append(1000 * (frame - window.began))
                    pictures.append(1000 * (window.moment("thumbnail") - frame))
        # The first of each starts the services of the session bus, too.
        row("first frame, beyond a bare window's", [own - other for own, other in
                                                    zip(ours[1:], bare[1:])], "ms", 300)
        remark(f"window {statistics.median(ours[1:]):.0f} ms, "
               f"bare {statistics.median(bare[1:]):.0f} ms")
        row("first small picture, after the first frame", pictures[1:], "ms", 300)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for name in ("simulator", "tarvoctl", "relay", "meter", "bare", "camera", "place"):
        parser.add_argument("--" + name, required=True)
    parser.add_argument("--runs", type=int, default=5)
    parts = ("start", "memory", "import", "rate")
    parser.add_argument("--only", choices=parts)
    bench = Bench(parser.parse_args())
    print(f"  {'':<46} {'min':>7} {'median':>7} {'max':>7} {'limit':>10}")
    for name, part in zip(parts, (bench.start, bench.memory, bench.imports, bench.rate)):
        if bench.arguments.only in (None, name):
            part()


if __name__ == "__main__":
    main()
