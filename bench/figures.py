"""What the benchmarks have in common: their figures, waiting, and the simulator around them."""
import json
import statistics
import subprocess
import sys
import time

PATIENCE = 20.0  # seconds for anything that is waited for


def figure(name, values, unit="s"):
    print(f"  {name:<56} min {min(values):9.3f}  median {statistics.median(values):9.3f}"
          f"  max {max(values):9.3f} {unit}", flush=True)


def share(what, measure, own, least=None):
    """How much of the measure's speed is reached, in the median."""
    reached = 100 * statistics.median(measure) / statistics.median(own)
    verdict = f"  ({least - reached:.1f} short of {least})" if least and reached < least else ""
    print(f"  {what:<56} {reached:6.1f} % of its speed{verdict}", flush=True)


def wait_for(condition, what):
    deadline = time.monotonic() + PATIENCE
    while time.monotonic() < deadline:
        result = condition()
        if result:
            return result
        time.sleep(0.002)
    sys.exit(f"this did not happen within {PATIENCE:.0f} s: {what}")


def seconds_of(command, folder=None, environment=None):
    """Seconds of a whole program, which must succeed; it works in `folder`."""
    began = time.monotonic()
    result = subprocess.run(command, cwd=folder, env=environment, stdout=subprocess.DEVNULL,
                            stderr=subprocess.PIPE)
    if result.returncode != 0:
        sys.exit(f"{command[0]}: {result.stderr.decode(errors='replace')}")
    return time.monotonic() - began


def peak_of(command, folder=None):
    """Peak memory of a program in MB, looked at until it ends.

    Not by its resource usage, which counts this process's memory before the exec as well.
    """
    process = subprocess.Popen(command, cwd=folder, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)
    most = 0
    while process.poll() is None:
        with open(f"/proc/{process.pid}/status") as status:
            for line in status:
                if line.startswith("VmHWM"):
                    most = max(most, int(line.split()[1]))
    if process.returncode != 0:
        sys.exit(f"{command[0]} ended with {process.returncode}")
    return most / 1024


class Simulator:
    """The testbed that this program runs in."""

    def __init__(self, program):
        self.program = program

    def call(self, *words):
        return subprocess.run([self.program, *words], check=True, capture_output=True,
                              text=True).stdout.strip()

    def device(self, identifier):
        devices = json.loads(self.call("list", "--json"))
        return next(device for device in devices if device["id"] == identifier)
