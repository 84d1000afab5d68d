#!/usr/bin/python3
"""Takes part in busy and done as the wireless utility does.

    busy.py COMMAND [ARGUMENT...]    runs the command, busy for as long as it runs
    busy.py --watch                  prints what the Relay application's side says

Needs PyGObject (package python3-gi). docs/wireless.md tells what each name means.
"""

import subprocess
import sys

from gi.repository import Gio, GLib

PLACE = "/com/tarvo/DistributedNotification"
INTERFACE = "com.tarvo.DistributedNotification"


def say(bus, name):
    bus.emit_signal(None, PLACE, INTERFACE, name, None)
    bus.flush_sync(None)


def run(bus, command):
    say(bus, "kWRLABusyNotification")
    try:
        return subprocess.run(command, check=False).returncode
    finally:
        # Also after a failure: nobody else can say so for us.
        say(bus, "kWRLADoneNotification")


def watch(bus):
    words = {"kRLABusyNotification": "the Relay works on a device",
             "kRLADoneNotification": "the Relay has finished"}

    def heard(_bus, _sender, _path, _interface, name, _arguments):
        if name in words:
            print(words[name], flush=True)

    bus.signal_subscribe(None, INTERFACE, None, PLACE, None, Gio.DBusSignalFlags.NONE, heard)
    # The bus has the subscription once it has answered a call that came after it.
    bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
                  None, None, Gio.DBusCallFlags.NONE, -1, None)
    print("listening", flush=True)
    GLib.MainLoop().run()


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)
    if sys.argv[1] == "--watch":
        watch(bus)
    sys.exit(run(bus, sys.argv[1:]))


if __name__ == "__main__":
    main()
