"""What sits on the desk of a scenario: the simulator with its devices, the agent of a user, and
what both have to tell."""
import collections
import json
import os
import shlex

from machine import PROJECT, Failure, USERS

SOCKET = "/run/tarvo-simulator.sock"
# What both cameras below hold at first. Something happens to the film while it is fetched.
FILM = "TARV0003.MOV"
FILM_SIZE = 96 << 20
PATHS = ["DCIM", "DCIM/100TARVO", "DCIM/100TARVO/TARV0001.JPG", "DCIM/100TARVO/TARV0002.JPG",
         "DCIM/100TARVO/" + FILM, "MISC", "MISC/NOTES.TXT"]
TOP = [path for path in PATHS if "/" not in path]


class Desk:
    """The devices of one machine; use `agent()` for a user's agent."""

    def __init__(self, machine, traces=True):
        self.machine = machine
        self.traces = traces  # of the device library, in the agent's log
        self.maker = {}  # keys of the group [Maker] in a user's preferences
        machine.root(f"systemd-run --quiet --unit=simulator tarvo-simulator --socket {SOCKET}"
                     " usbip --attach")
        machine.wait("the simulator", lambda: machine.root(f"test -S {SOCKET} && echo yes",
                                                           check=False))

    def simulator(self, *words):
        return self.machine.root(shlex.join(["tarvo-simulator", "--socket", SOCKET, *words]))

    def changed(self, device, **changes):
        """The name of a shipped device with other keys; of a key that is none it has nothing."""
        with open(os.path.join(PROJECT, "simulator", "devices", device + ".json")) as file:
            description = json.load(file) | changes
        text = json.dumps({key: value for key, value in description.items() if value is not None})
        name = "changed-" + device
        self.machine.root(
            f"echo {shlex.quote(text)} >/usr/local/share/tarvo/simulator/{name}.json")
        return name

    def mount(self, port="1-1"):
        """The user mounts the unit's file system; where it is then."""
        return self.machine.user("udisksctl mount --no-user-interaction --block-device "
                                 + self.block(port)).split()[-1]

    def plug(self, device, port="1-1"):
        """Plugs a device in and waits until udev has dealt with it; `port` is the kernel's too."""
        self.simulator("plug", device, "--port", port)
        self.wait_for_node(port)

    def wait_for_node(self, port="1-1"):
        self.machine.wait(f"the device at {port}", lambda: self.node(port))
        self.machine.root("udevadm settle")

    def unplug(self, port="1-1"):
        self.simulator("unplug", port)
        self.machine.wait(f"nothing at {port}", lambda: not self.node(port))

    def node(self, port="1-1"):
        """Path of the device's usbfs node; empty where there is no device."""
        return self.machine.root(
            f"cd /sys/bus/usb/devices/{port} 2>/dev/null && "
            "printf '/dev/bus/usb/%03d/%03d' $(cat busnum devnum 2>/dev/null)", check=False)

    def plugged(self):
        """What the simulator tells of each device, by its port."""
        return {device["id"]: device for device in json.loads(self.simulator("list", "--json"))}

    def unit(self, port="1-1"):
        """What it tells of the mass-storage unit at that port; none where there is no unit."""
        return self.plugged().get(port, {}).get("unit")

    def block(self, port="1-1"):
        """Path of the block device that holds the unit's file system."""
        return self.machine.wait(f"a file system at {port}", lambda: self.machine.root(
            "udevadm settle; for node in $(lsblk --noheadings --raw --paths --output NAME); do "
            f"udevadm info --query=path $node | grep -q '/{port}/' && "
            "blkid --probe --match-tag TYPE $node >/dev/null && echo $node; done | tail -1",
            check=False).strip())

    def agent(self, user="anna", **preferences):
        return Agent(self, user, preferences)


class SimulatedCamera:
    """A camera of the simulator with two pictures and a film; USB/IP brings it to the kernel."""
    words = "a simulated camera"

    def __init__(self, desk):
        self.desk, self.port, self.location = desk, "1-1", 0x01100000
        self.device = desk.changed("tarvo-camera", stores=[{"id": "0x00010001", "content": [
            {"folder": "DCIM", "content": [{"folder": "100TARVO", "content": [
                {"file": "TARV0001.JPG", "size": 2412034}, {"file": "TARV0002.JPG", "size": 1987072},
                {"file": FILM, "size": FILM_SIZE}]}]},
            {"folder": "MISC", "content": [{"file": "NOTES.TXT", "text": "Orders live here."}]}]}])

    def plug(self):
        self.desk.plug(self.device, self.port)

    def unplug(self):
        self.desk.unplug(self.port)

    def contents(self):
        """Digests of what it holds by name, asked behind the back of USB; of a folder "folder"."""
        found = {}
        for entry in json.loads(self.desk.simulator("objects", self.port, "--json")):
            if entry["format"] == 0x3001:
                found[entry["name"]] = "folder"
                continue
            self.desk.simulator("export", self.port, str(entry["handle"]), "/tmp/exported")
            found[entry["name"]] = self.desk.machine.root("md5sum </tmp/exported").split()[0]
        return found


class ForeignCamera:
    """The same camera by other hands: umtp-responder on a gadget of the kernel, over a folder."""
    words = "a camera by other hands"

    def __init__(self, desk):
        self.desk = desk
        desk.maker["ptpVendorExtensionID"] = 6
        root = desk.machine.root
        root("mkdir -p /srv/card/DCIM/100TARVO /srv/card/MISC && cd /srv/card && "
             "head -c 2412034 /dev/urandom >DCIM/100TARVO/TARV0001.JPG && "
             "head -c 1987072 /dev/urandom >DCIM/100TARVO/TARV0002.JPG && "
             f"seq 100000000 | head -c {FILM_SIZE} >DCIM/100TARVO/{FILM}; "
             "echo Orders live here. >MISC/NOTES.TXT")
        root("""set -e
            modprobe -a libcomposite dummy_hcd usb_f_fs
            mountpoint -q /sys/kernel/config || mount -t configfs none /sys/kernel/config
            mkdir /sys/kernel/config/usb_gadget/camera && cd /sys/kernel/config/usb_gadget/camera
            mkdir strings/0x409 configs/c.1 functions/ffs.mtp
            echo 0xF055 >idVendor
            echo 0x0302 >idProduct
            echo Tarvo Imaging >strings/0x409/manufacturer
            echo Tarvo Lumo X2 >strings/0x409/product
            echo TLX2-000900 >strings/0x409/serialnumber
            ln -s functions/ffs.mtp configs/c.1
            mkdir /dev/ffs-mtp
            mount -t functionfs mtp /dev/ffs-mtp""")
        bus = root("cat /sys/devices/platform/dummy_hcd.0/usb*/busnum").split()[0]
        self.port, self.location = f"{bus}-1", int(bus) << 24 | 1 << 20

    def plug(self):
        self.desk.machine.root("systemd-run --quiet --collect --unit=responder umtprd")
        self.desk.machine.wait("the responder", lambda: self.desk.machine.root(
            "test -e /dev/ffs-mtp/ep3 && echo yes", check=False))
        self._controller("$(ls /sys/class/udc)")
        self.desk.wait_for_node(self.port)

    def unplug(self):
        self._controller("")
        # A camera whose cable is pulled sends no more; this program would go on at the next host.
        self.desk.machine.root("systemctl kill --signal=KILL responder")
        self.desk.machine.wait("the responder's end", lambda: self.desk.machine.root(
            "systemctl is-active responder", check=False) != "active\n")
        self.desk.machine.wait(f"nothing at {self.port}", lambda: not self.desk.node(self.port))

    def _controller(self, name):
        """Connects the gadget to the controller of that name; to none where it is empty."""
        self.desk.machine.root(f'echo "{name}" >/sys/kernel/config/usb_gadget/camera/UDC')

    def contents(self):
        """As of SimulatedCamera."""
        return contents_of(self.desk.machine, "/srv/card")


def contents_of(machine, folder):
    """Digests of the files below a folder by name; of a folder "folder"."""
    lines = machine.root(f"cd {folder} && find . -mindepth 1 -type d -printf 'folder %f\\n' && "
                         "find . -type f -exec md5sum {} + | sed 's,  .*/, ,'").splitlines()
    return {name: digest for digest, name in (line.split(" ", 1) for line in lines)}


def files_of(machine, folder):
    """The same without the folders."""
    return {name: digest for name, digest in contents_of(machine, folder).items()
            if digest != "folder"}


class Display:
    """A virtual display of a user, and the window of a program there as a screen reader has it: by
    the accessibility bus. To be made before the agent, which gives it to what it starts."""
    PATIENCE = 120  # seconds; a toolkit takes its time on an emulated processor
    LABEL, BUTTON = 29, 43  # roles of AT-SPI
    IN_USE = 1 << 24 | 1 << 30  # its states "sensitive" and "visible"

    def __init__(self, machine, user="anna"):
        self.machine, self.user = machine, user
        machine.user("systemd-run --user --quiet --unit=display Xvfb :0 -screen 0 1280x1024x24 "
                     "-nolisten tcp -noreset", user)
        machine.wait("the display", lambda: machine.root(
            "test -S /tmp/.X11-unix/X0 && echo yes", check=False), self.PATIENCE)
        # There is no graphics card: what OpenGL draws would have to be computed, slowly.
        machine.user("systemctl --user set-environment DISPLAY=:0 GSK_RENDERER=cairo", user)
        self.bus = f"unix:path=/run/user/{USERS[user]}/bus"
        self.bus = machine.wait("the accessibility bus", lambda: self._ask(
            "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress"), self.PATIENCE)

    def wait_for_text(self, text):
        """Waits until a label has it."""
        self._wait_for(self.LABEL, text)

    def press(self, name):
        """Presses a button, once that is possible."""
        button = self._wait_for(self.BUTTON, name)
        is_pressed = self._ask(*button, "org.a11y.atspi.Action", "DoAction", "i", "0")
        expect(f"whether {name!r} is pressed", is_pressed, True)

    def _wait_for(self, role, text):
        """The bus name and path of a widget of that role, once one with that text can be used."""
        return self.machine.wait(f"{text!r} in the window", lambda: next(
            (where for where, name, its_role in self._widgets()
             if its_role == role and text in name), None), self.PATIENCE)

    def _widgets(self):
        """Where they are, name and role of those that can be used, as far as they are known."""
        programs = self._ask("org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root",
                             "org.a11y.atspi.Accessible", "GetChildren")
        items = [item for program, _ in programs for item in self._ask(
            program, "/org/a11y/atspi/cache", "org.a11y.atspi.Cache", "GetItems")
            if item[9][0] & self.IN_USE == self.IN_USE]
        # A widget is among them only after its parent was asked for it.
        known = collections.Counter(path for _, _, (_, path), *_ in items)
        for where, _, _, _, children, *_ in items:
            if known[where[1]] < children:
                self._ask(*where, "org.a11y.atspi.Accessible", "GetChildren")
        return [(item[0], item[6], item[7]) for item in items]

    def _ask(self, *words):
        """What a method on the bus answers; nothing where what is asked has gone meanwhile."""
        answer = self.machine.root(shlex.join([
            "setpriv", "--reuid", self.user, "--regid", self.user, "--init-groups", "busctl",
            f"--address={self.bus}", "--json=short", "call", *words]), check=False)
        return json.loads(answer)["data"][0] if answer.startswith("{") else []


class Agent:
    """The agent of a user, as a unit of the user's manager, and the programs that it starts."""

    def __init__(self, desk, user, preferences):
        self.desk, self.machine, self.user = desk, desk.machine, user
        lines = ["[Preferences]", "LOG_SUBSYS_LISTENER=true",
                 f"LOG_SUBSYS_CAMERA_VERBOSE={str(desk.traces).lower()}", "[Platform]"]
        lines += [f"{key}={value}" for key, value in preferences.items()] + ["[Maker]"]
        lines += [f"{key}={value}" for key, value in desk.maker.items()]
        self.machine.user(
            f"mkdir -p ~/.config/tarvo && echo {shlex.quote(' '.join(lines))} | tr ' ' '\\n'"
            " >~/.config/tarvo/agent.conf && touch ~/launches && "
            "systemctl --user set-environment TARVO_STANDIN_LOG=$HOME/launches && "
            "systemctl --user enable --quiet tarvo-agent", user)
        # A desktop starts it this way.
        self.machine.user("systemctl --user start desk.target", user)
        self.machine.wait("the agent", lambda: self.status("Active") is not None)

    def process(self):
        return self.unit("MainPID")

    def restart(self):
        self.machine.user("systemctl --user restart tarvo-agent", self.user)

    def status(self, name):
        """A property of com.tarvo.Agent1; none while the agent is not there."""
        answer = self.machine.user(
            "busctl --user --json=short get-property com.tarvo.Agent /com/tarvo/Agent "
            f"com.tarvo.Agent1 {name}", self.user, check=False)
        return json.loads(answer)["data"] if answer.startswith("{") else None

    def devices(self):
        """What it lists, each as type, location, path, serial number."""
        return [tuple(device) for device in self.status("Devices") or []]

    def wait_for_devices(self, *expected):
        self.machine.wait(f"the list {list(expected)}", lambda: self.devices() == list(expected))

    def reports(self, program="Tarvo Relay"):
        """What every application of that name wrote that was started, in order."""
        lines = self.machine.root(f"cat /home/{self.user}/launches").splitlines()
        return [report for report in map(json.loads, lines) if report["program"] == program]

    def unit(self, name, unit="tarvo-agent"):
        """A property of a unit of the user's manager."""
        return self.machine.user(f"systemctl --user show -P {name} {shlex.quote(unit)}",
                                 self.user).strip()

    def post(self, notification, times=1):
        """Posts a distributed notification, as any process of the user can."""
        self.machine.user(f"for i in $(seq {times}); do dbus-send --session --type=signal "
                          "/com/tarvo/DistributedNotification "
                          f"com.tarvo.DistributedNotification.{notification}; done", self.user)

    def launches(self):
        """Arguments of every Relay that was started, in order."""
        return [tuple(report["arguments"]) for report in self.reports()]

    def wait_for_launches(self, *expected):
        try:
            self.machine.wait("", lambda: len(self.launches()) >= len(expected))
        except Failure:
            pass
        self.expect_launches(*expected)

    def expect_launches(self, *expected):
        expect(f"launches for {self.user}", self.launches(), list(expected))

    def wait_for_log(self, text, count=1):
        self.machine.wait(f"{count} log lines with {text!r}", lambda: self.log().count(text) >= count)

    def log(self):
        return self.machine.root(
            f"journalctl --quiet --output=cat _UID={USERS[self.user]} --identifier=tarvo-agent")

    def end_relay(self):
        self.machine.root(f"kill {self.reports()[-1]['pid']}")
        self.machine.wait("the Relay has ended", lambda: self.status("RelayRunning") is False)


def expect(what, got, expected):
    if got != expected:
        raise Failure(f"{what}: expected {expected!r}, got {got!r}")
