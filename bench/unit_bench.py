#!/usr/bin/env python3
"""What the arrival of a mass-storage unit and a switch of its mode cost, the switch beside sg_raw.

Runs inside `tarvo-simulator serve --`; bench/units does that. The switch is measured in turns, and
both sides start as whole programs. Prints minimum, median and maximum. The testbed gives ratios and
upper bounds, not the speed of hardware.
"""

import argparse
import json
import os
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
sys.dont_write_bytecode = True

from figures import Simulator, figure, seconds_of, share, wait_for  # noqa: E402

# The page of the USB mode with its header: start-up mode, no power-down.
PAGE = bytes.fromhex("0000000000000000 2507 01 00 00000000 00")


class Bench:
    def __init__(self, arguments):
        self.arguments = arguments
        self.simulator = Simulator(arguments.simulator)
        # One that stays, whatever a host does with it.
        unit = json.load(open(arguments.unit))
        unit.pop("camera")
        unit["modePages"]["usbMode"]["autoPowerCycle"] = False
        self.unit = self.file("unit.json", json.dumps(unit))

    def file(self, name, content, mode="w"):
        path = os.path.join(self.arguments.place, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, mode) as file:
            file.write(content)
        return path

    def arrivals(self):
        """From the request to plug in to the agent's word of the list entry."""
        self.file("config/tarvo/agent.conf", "[Preferences]\nLOG_SUBSYS_LISTENER=true\n")
        path = self.file("log", "")
        environment = os.environ | {
            "XDG_CONFIG_HOME": f"{self.arguments.place}/config",
            "DBUS_SYSTEM_BUS_ADDRESS": "unix:path=/nowhere",
            "DBUS_SESSION_BUS_ADDRESS": "unix:path=/nowhere"}
        times = []
        with open(path, "w") as log:
            agent = subprocess.Popen([self.arguments.agent], stdout=log, stderr=log,
                                     env=environment)
        wait_for(lambda: " ready" in open(path).read(), "the agent is ready")
        for number in range(self.arguments.runs):
            asked = time.monotonic()
            identifier = self.simulator.call("plug", self.unit)
            wait_for(lambda: open(path).read().count("newMSCDeviceAdded - entered") > number,
                     "the list entry")
            times.append((time.monotonic() - asked) * 1000)
            self.simulator.call("unplug", identifier)
        agent.terminate()
        agent.wait()
        figure("from the request to plug a unit in to its list entry", times, "ms")

    def commands_of(self, identifier):
        return len(self.simulator.device(identifier)["unit"]["commands"])

    @staticmethod
    def generic_node(identifier):
        return next("/dev/" + os.path.basename(folder) for folder, _, _ in os.walk("/sys/devices")
                    if f"/{identifier}/" in folder and "/scsi_generic/" in folder)

    def switches(self):
        page = self.file("page", PAGE, "wb")
        identifier = self.simulator.call("plug", self.unit)
        node = self.generic_node(identifier)
        raw = (f"sg_raw -r 23 {node} 5a 00 25 00 00 00 00 00 17 00 && "
               f"sg_raw -s 17 -i {page} {node} 55 00 00 00 00 00 00 00 11 00")
        commands = {"tarvoctl msc mode set": [self.arguments.tarvoctl, "msc", "mode", "set",
                                              "startup", "--yes"],
                    "sg_raw, sense and select": ["sh", "-c", raw]}
        times = {name: [] for name in commands}
        counts = {}
        for _ in range(self.arguments.runs):
            for name, command in commands.items():
                before = self.commands_of(identifier)
                times[name].append(seconds_of(command) * 1000)
                counts[name] = self.commands_of(identifier) - before
        for name, values in times.items():
            figure(f"{name} ({counts[name]} commands)", values, "ms")
        ours, theirs = times.values()
        share("tarvoctl beside sg_raw", theirs, ours)
        self.simulator.call("unplug", identifier)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for name in ("simulator", "tarvoctl", "agent", "unit", "place"):
        parser.add_argument("--" + name, required=True)
    parser.add_argument("--runs", type=int, default=20)
    bench = Bench(parser.parse_args())
    bench.arrivals()
    bench.switches()


if __name__ == "__main__":
    main()
