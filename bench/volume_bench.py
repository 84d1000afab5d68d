#!/usr/bin/env python3
"""What listing and copying the pictures of a mounted card costs, beside find and cp -p.

Runs inside `tarvo-simulator serve --`; bench/volumes does that. Each pair is measured in turns, and
both start as whole programs. Prints minimum, median and maximum, and the ratio of the medians.
"""

import argparse
import json
import os
import shutil
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
sys.dont_write_bytecode = True

from figures import Simulator, figure, peak_of, seconds_of, share  # noqa: E402

class Bench:
    def __init__(self, arguments):
        self.arguments = arguments
        self.simulator = Simulator(arguments.simulator)
        self.ours = [arguments.tarvoctl, "--quiet", "volume"]

    def plug(self, label):
        """A card without pictures; its folder."""
        description = json.load(open(self.arguments.card))
        description["volume"] = {"label": label, "content": []}
        path = os.path.join(self.arguments.place, "card.json")
        with open(path, "w") as file:
            json.dump(description, file)
        self.identifier = self.simulator.call("plug", path)
        mounts = [line.split()[4] for line in open("/proc/self/mountinfo")]
        return next(each for each in reversed(mounts) if each.endswith("/" + label))

    def fill(self, card, count, size, folders=1):
        for number in range(count):
            folder = os.path.join(card, "DCIM", f"{100 + number % folders}TARVO")
            os.makedirs(folder, exist_ok=True)
            with open(os.path.join(folder, f"TARV{number:06}.JPG"), "wb") as file:
                if size:
                    file.write(os.urandom(size))

    def in_turns(self, ours, theirs):
        """Runs both by turns, each with a new empty folder as the last word where it wants one."""
        times = ([], [])
        for _ in range(self.arguments.runs):
            for command, seconds in zip((ours, theirs), times):
                folder = tempfile.mkdtemp(dir=self.arguments.place)
                seconds.append(seconds_of(command(folder)))
                shutil.rmtree(folder)
        return times

    def side_by_side(self, title, names, ours, theirs):
        print(title)
        own, other = self.in_turns(ours, theirs)
        figure(names[0], own)
        figure(names[1], other)
        share(f"{names[0]} beside {names[1].split()[0]}", other, own)

    def copying(self):
        count, size = self.arguments.count, self.arguments.size
        card = self.plug("COPYING")
        self.fill(card, count, size, folders=10)
        self.side_by_side(
            f"Listing {count} pictures", ("volume ls", "find -iname '*.jpg'"),
            lambda _: [*self.ours, "ls"], lambda _: ["find", card, "-iname", "*.jpg"])
        self.side_by_side(
            f"Copying {count} pictures of {size / 1e6:.1f} MB", ("volume get --all", "cp -p"),
            lambda folder: [*self.ours, "get", "--all", "--output", folder],
            lambda folder: ["sh", "-c", f"cp -p {card}/DCIM/*/* {folder}"])
        self.simulator.call("unplug", self.identifier)

    def memory(self):
        print("Peak memory")
        for count in (1000, 100_000, 1_000_000):
            card = self.plug(f"CARD{count}")
            self.fill(card, count, 0)
            figure(f"volume ls, {count} files",
                   [peak_of([*self.ours, "ls"]) for _ in range(self.arguments.runs)], "MB")
            seconds = [seconds_of([*self.ours, "ls"]) for _ in range(self.arguments.runs)]
            figure(f"volume ls, {count} files, time", seconds)
            if count <= 100_000:
                folder = tempfile.mkdtemp(dir=self.arguments.place)
                peak = peak_of([*self.ours, "get", "--all", "--output", folder])
                figure(f"volume get --all, {count} files", [peak], "MB")
                shutil.rmtree(folder)
            self.simulator.call("unplug", self.identifier)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for name in ("simulator", "tarvoctl", "card", "place"):
        parser.add_argument("--" + name, required=True)
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--count", type=int, default=1000, help="number of the pictures")
    parser.add_argument("--size", type=int, default=500_000,
                        help="bytes of each; with gigabytes in all the memory is what is measured")
    parser.add_argument("--only", choices=["copying", "memory"])
    bench = Bench(parser.parse_args())
    for name, part in (("copying", bench.copying), ("memory", bench.memory)):
        if bench.arguments.only in (None, name):
            part()


if __name__ == "__main__":
    main()
