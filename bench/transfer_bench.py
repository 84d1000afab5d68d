#!/usr/bin/env python3
"""What moving objects costs, beside a bare loop on libusb and beside gphoto2, on one virtual camera.

Runs inside `tarvo-simulator serve --`; bench/transfers does that. Prints minimum, median and maximum
of every figure, and what one is of the other in the median. The testbed gives ratios, not the speed
of hardware.
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

from figures import Simulator, figure, peak_of, seconds_of, share  # noqa: E402

MIB = 1 << 20
CHUNK = 2 * MIB
BEST = [(MIB, 4), (MIB, 8), (512 << 10, 8), (256 << 10, 16)]  # transfer size and depth


class Bench:
    def __init__(self, arguments):
        self.arguments = arguments
        self.simulator = Simulator(arguments.simulator)

    @contextlib.contextmanager
    def camera(self, content, faults=None, datasets=None):
        """A camera of its own with this content; gives its device node and its identifier.

        With --device it is there already, and has no identifier.
        """
        if self.arguments.device:
            yield self.arguments.device, None
            return
        description = json.load(open(self.arguments.camera))
        description["stores"] = [{"id": "0x00010001", "capacity": 1 << 40, "free": 1 << 39,
                                  "content": content}]
        if datasets:
            description["datasets"] = datasets
            description["vendor"]["addressBook"] = {
                "maxAddresses": 10000, "maxGroups": 1000, "maxAddressesPerGroup": 1000,
                "maxAddressLengthInBytes": 100, "maxNicknameLengthInBytes": 100,
                "maxGroupNameLengthInBytes": 100}
        if self.arguments.describe:
            print(json.dumps(description, indent=2))
            sys.exit()
        with tempfile.NamedTemporaryFile("w", suffix=".json", delete=False) as file:
            json.dump(description, file)
        identifier = self.simulator.call("plug", file.name)
        for name, value in (faults or {}).items():
            self.simulator.call("fault", identifier, f"{name}={value}")
        try:
            yield self.simulator.device(identifier)["node"], identifier
        finally:
            self.simulator.call("unplug", identifier)
            os.unlink(file.name)

    def transactions(self, identifier):
        if identifier is None:  # nobody counts those of a device that is not the simulator's
            return 0
        return self.simulator.device(identifier)["statistics"]["transactions"]

    def bare(self, node, *words):
        return float(subprocess.run([self.arguments.bare, node, *map(str, words)], check=True,
                                    capture_output=True, text=True).stdout)

    def library(self, *words):
        with tempfile.TemporaryDirectory(dir=self.arguments.place) as folder:
            return float(subprocess.run([self.arguments.library, *map(str, words)], check=True,
                                        capture_output=True, text=True, cwd=folder).stdout)

    def program(self, measure, *words):
        """What `measure` tells of a whole program in a folder of its own."""
        with tempfile.TemporaryDirectory(dir=self.arguments.place) as folder:
            return measure(list(map(str, words)), folder)

    def best(self, node, *words):
        """The transfer size and depth with which the bare loop is fastest."""
        return min(BEST, key=lambda each: self.bare(node, *words, *each))

    def side_by_side(self, node, bare, library, least):
        best = self.best(node, *bare)
        measured, own = [], []
        for _ in range(self.arguments.runs):
            measured.append(self.bare(node, *bare, *best))
            own.append(self.library(*library))
        figure(f"bare loop, {best[0] >> 10} KiB x {best[1]}", measured)
        figure("library", own)
        share("speed of the library", measured, own, least)

    def one_large(self):
        size = self.arguments.large * MIB
        with self.camera([{"file": "LARGE.MOV", "size": size}]) as (node, _):
            print(f"One object of {self.arguments.large} MiB, one GetObject")
            self.side_by_side(node, ("get", 1, size), ("get", 1, size), 95)
            figure("library, into a file",
                   [self.library("file", 1, size) for _ in range(self.arguments.runs)])
            print("The same in pieces of 2 MiB")
            self.side_by_side(node, ("parts", 1, size, CHUNK), ("parts", 1, size, CHUNK), 95)
            for name, measure, unit in (("tarvoctl get", seconds_of, "s"),
                                        ("tarvoctl get, peak memory", peak_of, "MB")):
                figure(name, [self.program(measure, self.arguments.tarvoctl, "--quiet", "get", "1")
                              for _ in range(self.arguments.runs)], unit)

    def many(self, delay):
        count, size = self.arguments.many, 100 << 10
        content = [{"folder": "DCIM", "content": [{"generate": {
            "count": count, "size": size, "prefix": "IMG_", "extension": "JPG"}}]}]
        words = f", {delay} ms a transaction" if delay else ""
        with self.camera(content, {"delay": f"{delay}ms"} if delay else None) as (node, identifier):
            print(f"{count} objects of 100 KiB{words}")
            self.side_by_side(node, ("many", 2, count, size), ("many", 2, count), 90)
            self.whole_programs(identifier, [self.arguments.tarvoctl, "--quiet", "get", "--all"],
                                ["gphoto2", "--quiet", "--get-all-files"])

    def whole_programs(self, identifier, ours, theirs):
        own, other, counted = [], [], {}
        for name, command, times in (("tarvoctl", ours, own), ("gphoto2", theirs, other)):
            for _ in range(self.arguments.runs if shutil.which(command[0]) else 0):
                before = self.transactions(identifier)
                times.append(self.program(seconds_of, *command))
                counted[name] = self.transactions(identifier) - before
        figure(" ".join(["tarvoctl", *ours[1:]]), own)
        if not other:
            print("  gphoto2 is not installed")
            return
        figure(" ".join(theirs), other)
        print(f"  {'tarvoctl beside gphoto2':<44} "
              f"{statistics.median(other) / statistics.median(own):6.2f} times as fast; transactions "
              f"{counted['tarvoctl']} and {counted['gphoto2']}", flush=True)

    def importing(self):
        """An import beside get --all, by turns, and one that finds nothing new."""
        def pictures(count, size):
            return [{"folder": "DCIM", "content": [
                {"file": f"IMG_{each:05}.JPG", "size": size,
                 "captured": f"202406{each % 28 + 1:02}T120000"} for each in range(count)]}]

        count = self.arguments.many
        tarvoctl = [self.arguments.tarvoctl, "--quiet"]
        with self.camera(pictures(count, 2 * MIB)):
            print(f"Importing {count} objects of 2 MiB")
            fetched, imported = [], []
            for _ in range(self.arguments.runs):
                fetched.append(self.program(seconds_of, *tarvoctl, "get", "--all"))
                imported.append(self.program(self.import_seconds, *tarvoctl, "import"))
            figure("tarvoctl get --all", fetched)
            figure("tarvoctl import", imported)
            share("speed of the import", fetched, imported, 90)
        with self.camera(pictures(10000, 10000)):
            print("Nothing new among 10,000 objects")
            with tempfile.TemporaryDirectory(dir=self.arguments.place) as folder:
                words = [*tarvoctl, "import"]
                self.import_seconds(words, folder)
                listed, known = [], []
                for _ in range(self.arguments.runs):
                    listed.append(seconds_of([*tarvoctl, "ls", "--long", "--recursive"], folder))
                    known.append(self.import_seconds(words, folder))
                figure("tarvoctl ls --long --recursive", listed)
                figure("tarvoctl import", known)
                share("speed of the import", listed, known, 90)
                figure("tarvoctl import, peak memory", [peak_of(
                    [*words, "--output", "pictures"], folder)], "MB")

    @staticmethod
    def import_seconds(words, folder):
        os.environ["XDG_STATE_HOME"] = os.path.join(folder, "state")
        return seconds_of([*words, "--output", "pictures"], folder)

    def listing(self):
        for count in (100, 10000):
            content = [{"folder": "DCIM", "content": [{"generate": {
                "count": count, "size": 1000, "prefix": "IMG_", "extension": "JPG"}}]}]
            with self.camera(content) as (node, identifier):
                print(f"Listing {count} objects")
                firsts = [self.first_line() for _ in range(self.arguments.runs)]
                figure("tarvoctl ls --long --recursive, first line", firsts)
                if count > 1000:
                    before = self.transactions(identifier)
                    self.library("list")
                    print(f"  {'transactions of two listings in one process':<44} "
                          f"{self.transactions(identifier) - before}")
                    self.whole_programs(
                        identifier,
                        [self.arguments.tarvoctl, "--quiet", "ls", "--long", "--recursive"],
                        ["gphoto2", "--quiet", "--list-files"])

    def shared(self, people, groups, orders):
        """An address book and orders in vendor data sets, and how many transactions they take."""
        pictures = 100
        content = [{"generate": {"count": pictures, "size": 1000, "prefix": "IMG_"}}]
        datasets = {
            "contacts": [{"generate": people, "nickname": "P#", "email": "p#@example.org",
                          "firstName": "First#", "lastName": "Last#"}],
            "groups": [{"name": f"G{number}",
                        "members": [f"P{(number * 10 + each) % people + 1}" for each in range(10)]}
                       for number in range(groups)],
            "emailOrders": [{"to": [f"P{number % people + 1}"], "assets": [number % pictures + 1]}
                            for number in range(orders // 2)],
            "printOrders": [{"asset": number % pictures + 1} for number in range(orders // 2)]}
        with self.camera(content, datasets=datasets) as (_, identifier):
            # The limits; the handles of both kinds, and each of them.
            book = 3 + people + groups
            self.reading(identifier, f"Reading {people} contacts and {groups} groups", "book", book,
                         ["addressbook", "show"])
            # The handles of both kinds, each order, what its pictures are called, and whom it is to.
            self.reading(identifier, f"Reading {orders} orders", "orders",
                         2 + orders + pictures + book, ["orders", "list"])

    def reading(self, identifier, title, work, least, words):
        print(title)
        before = self.transactions(identifier)
        self.library("none")
        session = self.transactions(identifier) - before
        before = self.transactions(identifier)
        figure("library", [self.library(work) for _ in range(self.arguments.runs)])
        taken = (self.transactions(identifier) - before) // self.arguments.runs - session
        print(f"  {'transactions of the library':<44} {taken}, the least is {least}, and the number"
              f" of groups is asked anew for each contact")
        before = self.transactions(identifier)
        figure(" ".join(["tarvoctl", *words]),
               [self.program(seconds_of, self.arguments.tarvoctl, "--quiet", *words)
                for _ in range(self.arguments.runs)])
        taken = (self.transactions(identifier) - before) // self.arguments.runs - session
        print(f"  {'transactions of the whole program':<44} {taken}", flush=True)

    def first_line(self):
        began = time.monotonic()
        process = subprocess.Popen(
            [self.arguments.tarvoctl, "--quiet", "ls", "--long", "--recursive"],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        process.stdout.readline()
        process.stdout.readline()  # behind the titles
        seconds = time.monotonic() - began
        process.stdout.close()
        process.wait()
        return seconds

    def sending(self, count, size):
        path = os.path.join(self.arguments.place, "SENT.JPG")
        with open(path, "wb") as file:
            file.truncate(size)
        with self.camera([]) as (node, _):
            print(f"Sending {count} object(s) of {size} bytes")
            self.side_by_side(node, ("put", count, size), ("put", count, path), 90)
        os.unlink(path)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for name in ("simulator", "tarvoctl", "bare", "library", "camera", "place"):
        parser.add_argument("--" + name, required=name in ("camera", "place"))
    parser.add_argument("--device", help="node of a device that is there, for example a camera over "
                        "USB/IP; nothing is plugged in then")
    parser.add_argument("--describe", action="store_true",
                        help="print the camera that the part of --only measures, and no more")
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--large", type=int, default=1024, help="MiB of the large object")
    parser.add_argument("--many", type=int, default=1000, help="number of the small objects")
    parser.add_argument("--only", choices=["large", "many", "delay", "list", "put", "shared", "import"])
    bench = Bench(parser.parse_args())
    parts = {"large": bench.one_large, "many": lambda: bench.many(0),
             "delay": lambda: bench.many(1), "import": bench.importing, "list": bench.listing,
             "shared": lambda: bench.shared(1000, 100, 500),
             "put": lambda: (bench.sending(1, bench.arguments.large * MIB),
                             bench.sending(bench.arguments.many, 100 << 10))}
    for name, part in parts.items():
        if bench.arguments.only in (None, name):
            part()


if __name__ == "__main__":
    main()
