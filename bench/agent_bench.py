#!/usr/bin/env python3
"""What an arrival costs, how fast the agent is ready, and what it costs while it is idle.

Runs inside `tarvo-simulator serve --bundle DIR --`; bench/run does that. Prints minimum, median and
maximum of every figure. The testbed gives ratios and upper bounds, not the speed of hardware.
"""

import argparse
import glob
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
sys.dont_write_bytecode = True

from figures import Simulator, figure, wait_for  # noqa: E402

SETTLING = 20.0  # seconds after the start: GLib ends its unused pool threads after 15


class Bus:
    """A session bus of the benchmark's own."""

    def __init__(self):
        self.process = subprocess.Popen(
            ["dbus-daemon", "--session", "--nofork", "--print-address=1"],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        os.environ["DBUS_SESSION_BUS_ADDRESS"] = self.process.stdout.readline().strip()

    def end(self):
        self.process.terminate()
        self.process.wait()


class Program:
    """A program whose first line with `ready` in it says that it is ready."""

    def __init__(self, command, ready, log):
        self.log = log
        began = time.monotonic()
        with open(log, "wb") as output:
            self.process = subprocess.Popen(command, stdout=output, stderr=output)
        wait_for(lambda: ready in open(log, errors="replace").read(), f"{command[0]}: {ready}")
        self.seconds_to_ready = time.monotonic() - began

    def end(self):
        self.process.terminate()
        self.process.wait()


def relay_reports(launches):
    if not os.path.exists(launches):
        return []
    lines = open(launches).read().splitlines()
    return [r for r in map(json.loads, lines) if r["program"] == "Tarvo Relay"]


def arrivals(simulator, launches, device, runs):
    """Milliseconds from the request to plug in to the Relay's main(), and the wire's figures."""
    times, transactions, sent_and_received = [], set(), set()
    for _ in range(runs):
        before = len(relay_reports(launches))
        asked = time.monotonic()
        identifier = simulator.call("plug", device)
        report = wait_for(lambda: relay_reports(launches)[before:], "the Relay starts")[0]
        times.append((report["started"] - asked) * 1000)
        wire = simulator.device(identifier)["statistics"]
        transactions.add(wire["transactions"])
        sent_and_received.add((wire["bytesFromHost"], wire["bytesToHost"]))
        os.kill(report["pid"], signal.SIGTERM)
        wait_for(lambda: not os.path.exists(f"/proc/{report['pid']}"), "the Relay ends")
        simulator.call("unplug", identifier)
    return times, transactions, sent_and_received


def switches(pid):
    """Context switches so far, by thread: every wake-up is one."""
    return {status: sum(map(int, re.findall(r"ctxt_switches:\s+(\d+)", open(status).read())))
            for status in glob.glob(f"/proc/{pid}/task/*/status")}


def memory(pid):
    text = open(f"/proc/{pid}/smaps_rollup").read()
    return [int(re.search(rf"^{key}:\s+(\d+)", text, re.M)[1]) / 1024 for key in ("Rss", "Pss")]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--simulator", required=True)
    parser.add_argument("--agent", required=True)
    parser.add_argument("--bare", required=True, help="the bare giomm program")
    parser.add_argument("--runs", type=int, default=20)
    parser.add_argument("--idle", type=float, default=60, help="seconds of idling")
    options = parser.parse_args()

    folder = tempfile.mkdtemp()
    os.makedirs(f"{folder}/tarvo")
    launches = os.environ["TARVO_STANDIN_LOG"] = f"{folder}/launches"
    os.environ["XDG_CONFIG_HOME"] = folder
    os.environ["XDG_CONFIG_DIRS"] = f"{folder}/none"
    os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = f"unix:path={folder}/none"
    simulator = Simulator(options.simulator)
    bus = Bus()

    armed, bare = [], []
    for _ in range(options.runs):
        for command, ready, times in (([options.agent], " ready", armed),
                                      ([options.bare], "connected", bare)):
            program = Program(command, ready, f"{folder}/log")
            times.append(program.seconds_to_ready * 1000)
            program.end()
    figure("exec to armed, tarvo-agent", armed, "ms")
    figure("exec to connected, bare giomm program", bare, "ms")
    figure("  the agent beyond it", [a - b for a, b in zip(armed, bare)], "ms")

    agent = Program([options.agent], " ready", f"{folder}/log")
    time.sleep(SETTLING)
    fresh = memory(agent.process.pid)
    before = switches(agent.process.pid)
    time.sleep(options.idle)
    after = switches(agent.process.pid)
    woken = sum(count - before.get(thread, 0) for thread, count in after.items())
    ended = len(before.keys() - after.keys())
    print(f"{'wake-ups of the idle agent':<58} {woken} in {options.idle:.0f} s,"
          f" {ended} of {len(before)} threads ended")
    print(f"{'memory of the idle agent, fresh':<58} resident {fresh[0]:.2f} MB,"
          f" proportional {fresh[1]:.2f} MB")

    for device in ("tarvo-camera", "big-store"):
        times, transactions, wire = arrivals(simulator, launches, device, options.runs)
        figure(f"arrival to the Relay's main(), {device}", times, "ms")
        print(f"{'  transactions of one arrival':<58} {sorted(transactions)}")
        print(f"{'  bytes to and from the device':<58} {sorted(wire)}")
    time.sleep(2)
    later = memory(agent.process.pid)
    print(f"{f'memory of the idle agent after {2 * options.runs} arrivals':<58}"
          f" resident {later[0]:.2f} MB, proportional {later[1]:.2f} MB")

    agent.end()
    bus.end()
    shutil.rmtree(folder)


if __name__ == "__main__":
    main()
