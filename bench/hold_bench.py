#!/usr/bin/env python3
"""How long a slow device holds the agent's loop, and how soon the agent ends in the middle of it.

Runs inside `tarvo-simulator serve --bundle DIR --`; bench/run does that. The hold is the longest that
a D-Bus call has waited for its answer.
"""

import argparse
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
sys.dont_write_bytecode = True

from agent_bench import Bus, Program  # noqa: E402
from figures import Simulator, wait_for  # noqa: E402

WATCHED = 12.0  # seconds in which the longest hold is looked for
INTO = 0.4  # seconds from the first transaction to the signal
NO_CLASS_REQUESTS = {"habits": {"noClassRequests": True}}

# Name, faults, and what else the device is.
ROWS = (
    ("silent from the first byte", {"silent": True}, {}),
    ("silent behind the container header", {"stop": "12"}, {}),
    ("silent in a vendor query", {"silent": "0x920A"}, {}),
    ("a packet every 400 ms", {"trickle": "400"}, {"long": True}),
    ("a packet every 3 s", {"trickle": "3000"}, {"long": True}),
    ("each answer after 3 s", {"delay": "3000"}, {}),
    ("wrong, and silent at the reset", {"wrong-id": True, "deaf": True}, {}),
    ("halted, and silent at the end of the halt", {"stall": True, "deaf": True}, {}),
    ("stale data without an end", {"endless": True}, NO_CLASS_REQUESTS),
    ("stale data without an end, class requests silent", {"endless": True, "deaf": True}, {}),
    ("a unit that does not answer a SCSI command", {"silent": "0x5A"}, {"device": "dock"}),
)


def describe(folder, faults, extra):
    source = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../simulator/devices")
    with open(f"{source}/{extra.get('device', 'tarvo-camera')}.json", encoding="utf-8") as file:
        device = json.load(file)
    device["faults"] = faults
    device.pop("camera", None)  # what it would come back as
    if "habits" in extra:
        device["habits"] = extra["habits"]
    if extra.get("long"):
        device["deviceInfo"]["bytesBehind"] = 60000
    path = f"{folder}/slow.json"
    with open(path, "w", encoding="utf-8") as file:
        json.dump(device, file)
    return path


def longest_call(seconds):
    longest, end = 0.0, time.monotonic() + seconds
    while time.monotonic() < end:
        began = time.monotonic()
        subprocess.run(["gdbus", "call", "--session", "--timeout", "60", "--dest", "com.tarvo.Agent",
                        "--object-path", "/com/tarvo/Agent", "--method",
                        "org.freedesktop.DBus.Properties.Get", "com.tarvo.Agent1", "Active"],
                       check=True, stdout=subprocess.DEVNULL)
        longest = max(longest, time.monotonic() - began)
    return longest


def is_asked(device):
    if "unit" in device:
        return device["unit"]["commands"]
    return device["statistics"]["transactions"]


def end_of(agent):
    began = time.monotonic()
    agent.process.terminate()
    return agent.process.wait(), time.monotonic() - began


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--simulator", required=True)
    parser.add_argument("--agent", required=True)
    parser.add_argument("--only", help="rows with this in their name")
    options = parser.parse_args()

    folder = tempfile.mkdtemp()
    os.environ["TARVO_STANDIN_LOG"] = f"{folder}/launches"
    os.environ["XDG_CONFIG_HOME"] = os.environ["XDG_CONFIG_DIRS"] = f"{folder}/none"
    os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = f"unix:path={folder}/none"
    simulator = Simulator(options.simulator)
    bus = Bus()
    for name, faults, extra in ROWS:
        if options.only and options.only not in name:
            continue
        path = describe(folder, faults, extra)
        agent = Program([options.agent], " ready", f"{folder}/log")
        identifier = simulator.call("plug", path)
        hold = longest_call(WATCHED)
        simulator.call("unplug", identifier)
        end_of(agent)

        agent = Program([options.agent], " ready", f"{folder}/log")
        identifier = simulator.call("plug", path)
        wait_for(lambda: is_asked(simulator.device(identifier)), "it is asked")
        time.sleep(INTO)
        code, seconds = end_of(agent)
        simulator.call("unplug", identifier)
        print(f"  {name:<50} hold {hold:6.3f} s, end after {seconds:6.3f} s, exit code {code}",
              flush=True)
    bus.end()
    shutil.rmtree(folder)


if __name__ == "__main__":
    main()
