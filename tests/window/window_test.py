#!/usr/bin/python3
"""Drives the Relay's window through its accessibility interface, as a person would, on a virtual
display and virtual cameras, with the unmodified programs.

    window_test.py RELAY TARVOCTL SIMULATOR [WORD]     all cases, or those with WORD in their name

Without a testbed, Xvfb or pyatspi: status 77.
"""

import contextlib
import glob
import json
import os
import pwd
import shutil
import signal
import subprocess
import sys
import tempfile
import time

SECONDS = 40  # that anything expected may take
LOCATION = "17825792"  # of the first port of the first bus


def wait(what, condition):
    """What the condition gives once it is true."""
    deadline = time.monotonic() + SECONDS
    while time.monotonic() < deadline:
        try:
            found = condition()
        except Exception:  # pylint: disable=broad-except; a widget went while it was looked at
            found = None
        if found:
            return found
        time.sleep(0.05)
    raise AssertionError(f"did not happen in {SECONDS} s: {what}")


def is_running(process):
    try:
        with open(f"/proc/{process}/stat", encoding="utf-8", errors="replace") as file:
            return file.read().rpartition(")")[2].split()[0] not in "ZX"
    except OSError:
        return False


def nodes(top):
    yield top
    for child in list(top):
        if child is not None:
            yield from nodes(child)


class Window:
    """The Relay, started as the agent does."""

    def __init__(self, relay, environment, card):
        words = ["card", LOCATION, card] if card else ["PTP", LOCATION, ""]
        self.process = subprocess.Popen([relay, *words], env=environment)
        self.frame = wait("the window opens", self.find_frame)

    def find_frame(self):
        for application in pyatspi.Registry.getDesktop(0):
            if application is not None and application.get_process_id() == self.process.pid:
                return next((each for each in application if each is not None), None)
        return None

    def shown(self, role):
        return [each for each in nodes(self.frame) if each.getRoleName() == role and
                each.getState().contains(pyatspi.STATE_VISIBLE)]

    def says(self, text):
        return wait(f"the window says '{text}'", lambda: any(
            text in each.name for each in self.shown("label")))

    def button(self, name):
        return wait(f"the button '{name}' can be pressed", lambda: next(
            (each for each in self.shown("push button") + self.shown("button")
             if each.name.endswith(name) and
             each.getState().contains(pyatspi.STATE_SENSITIVE)), None))

    def press(self, name):
        self.button(name).queryAction().doAction(0)

    def cells(self):
        return {each.name for each in nodes(self.frame)
                if each.getRoleName() == "table cell" and ".JPG" in each.name}

    def children(self):
        """Processes of the import."""
        found = []
        for stat in glob.glob("/proc/[0-9]*/stat"):
            with open(stat, encoding="utf-8", errors="replace") as file:
                fields = file.read().rpartition(")")[2].split()
            if int(fields[1]) == self.process.pid and fields[0] != "Z":
                found.append(int(stat.split("/")[2]))
        return found

    def close(self):
        actions = self.frame.queryAction()
        names = [actions.getName(place) for place in range(actions.nActions)]
        actions.doAction(names.index("window.close"))
        assert self.process.wait(SECONDS) == 0


class Desk:
    """A home, a camera in it, and the window."""

    def __init__(self, relay, tarvoctl, simulator, home):
        self.relay, self.simulator, self.home = relay, simulator, home
        self.windows = []
        self.pictures = os.path.join(home, "Pictures")
        os.makedirs(os.path.join(home, ".config"))
        os.makedirs(self.pictures)
        with open(os.path.join(home, ".config/user-dirs.dirs"), "w", encoding="utf-8") as file:
            file.write('XDG_PICTURES_DIR="$HOME/Pictures"\n')
        program = os.path.join(home, "import")
        with open(program, "w", encoding="utf-8") as file:
            file.write(f'#!/bin/sh\nexec "{simulator}" run -- "{tarvoctl}" "$@"\n')
        os.chmod(program, 0o700)
        self.environment = {name: value for name, value in os.environ.items()
                            if not name.startswith("XDG_")}
        self.environment |= {"HOME": home, "TARVO_TARVOCTL": program, "LC_ALL": "C.UTF-8"}
        self.camera = self.simulate("plug", "holiday-camera", "--port", "1-1")

    @contextlib.contextmanager
    def agent(self):
        """The agent on the same bus, without the programs that it would start."""
        built = os.path.dirname(os.path.dirname(self.relay))
        bundle = os.path.join(self.home, "bundle")
        self.simulate("bundle", bundle, *(f"--without={part}" for part in
                                          ("relay", "wireless", "viewer", "page")))
        environment = self.environment | {"TARVO_AGENT_BUNDLE": glob.glob(
            bundle + "/**/Tarvo Agent.app", recursive=True)[0]}
        program = [self.simulator, "run", "--", os.path.join(built, "agent/tarvo-agent")]
        with subprocess.Popen(program, env=environment, stderr=subprocess.DEVNULL) as process:
            try:
                yield
            finally:
                process.terminate()

    def simulate(self, *words):
        return subprocess.run([self.simulator, *words], check=True, capture_output=True,
                              text=True).stdout.strip()

    def open(self, card=""):
        self.windows.append(Window(self.relay, self.environment, card))
        return self.windows[-1]

    def end_windows(self):
        for window in self.windows:
            window.process.kill()
            window.process.wait()

    def imported(self):
        return {os.path.basename(path): path for path in
                glob.glob(self.pictures + "/**/*.JPG", recursive=True)}

    def check(self, count):
        """So many pictures are there, each once and as it is on the camera."""
        imported = self.imported()
        files = [path for path in glob.glob(self.pictures + "/**/*", recursive=True)
                 if os.path.isfile(path)]
        assert len(files) == len(imported) == count, files
        self.check_bytes(imported)

    def check_bytes(self, imported):
        original = os.path.join(self.home, "original")
        for each in json.loads(self.simulate("objects", self.camera, "--json")):
            if each["name"] in imported:
                self.simulate("export", self.camera, str(each["handle"]), original)
                with open(original, "rb") as left, open(imported[each["name"]], "rb") as right:
                    assert left.read() == right.read(), each["name"]

    def change_to_card(self):
        """The camera's card in a reader, with one picture more; its mount point."""
        self.simulate("unplug", self.camera)
        devices = os.path.join(os.path.dirname(__file__), "../../simulator/devices")
        with open(os.path.join(devices, "holiday-camera.json"), encoding="utf-8") as file:
            content = json.load(file)["stores"][0]["content"]
        content[0]["content"][0]["content"].append({"file": "CARD0001.JPG", "picture": [300, 200]})
        card = {"kind": "massStorage", "scsi": {"type": 0, "vendor": "TARVO", "model": "Card Dock"},
                "usb": {"vendor": "0xF055", "product": "0x0501", "manufacturer": "Tarvo Imaging",
                        "name": "Tarvo Card Dock", "serial": "TCD-000019"},
                "volume": {"label": "HOLIDAY", "content": content}}
        description = os.path.join(self.home, "card.json")
        with open(description, "w", encoding="utf-8") as file:
            json.dump(card, file)
        self.camera = self.simulate("plug", description, "--port", "1-1")
        return f"/media/{pwd.getpwuid(os.getuid()).pw_name}/HOLIDAY"

    def add_picture(self):
        source = os.path.join(self.home, "one.jpg")
        shutil.copy(next(iter(self.imported().values())), source)
        with open(source, "ab") as file:
            file.write(b"another one")
        self.simulate("add", self.camera, source, "--name", "TARV0999.JPG")


def case_imports_and_the_second_time_only_what_is_new(desk):
    window = desk.open()
    window.says("12 new pictures")
    wait("the pictures are shown", lambda: len(window.cells()) == 12)
    window.press("Import 12 Pictures")
    window.says("12 pictures imported")
    window.button("Open Folder")
    desk.check(12)
    window.close()
    desk.add_picture()
    window = desk.open()
    window.says("1 new picture")
    window.press("Import 1 Picture")
    window.says("1 picture imported")
    desk.check(13)
    window.close()


def begin_slowly(desk):
    """The window in the middle of its import."""
    window = desk.open()
    window.button("Import 12 Pictures")
    desk.simulate("fault", desk.camera, "delay=200")
    window.press("Import 12 Pictures")
    wait("the first pictures are there", desk.imported)
    return window


def finish(desk, window):
    """Imports what is left: each is there once then, and whole."""
    window.says("new picture")
    left = 12 - len(desk.imported())
    window.press(f"Import {left} Picture" + ("s" if left > 1 else ""))
    window.says("imported")
    wait("all are there", lambda: len(desk.imported()) == 12)
    window.button("Open Folder")
    desk.check(12)
    window.close()


def case_cancels_and_goes_on(desk):
    window = begin_slowly(desk)
    window.press("Cancel")
    window.says("Cancelled")
    desk.simulate("fault", desk.camera, "delay=off")
    first = desk.imported()
    assert 0 < len(first) < 12, first
    desk.check_bytes(first)
    window.close()
    window = desk.open()
    finish(desk, window)


def case_outlives_its_import(desk):
    window = begin_slowly(desk)
    for child in window.children():
        os.kill(child, signal.SIGKILL)
    window.says("crashed")
    desk.simulate("fault", desk.camera, "delay=off")
    desk.check_bytes(desk.imported())
    window.press("Try Again")
    finish(desk, window)


def case_knows_on_the_card_what_came_by_the_camera(desk):
    window = desk.open()
    window.press("Import 12 Pictures")
    window.says("12 pictures imported")
    window.close()
    window = desk.open(desk.change_to_card())
    window.says("1 new picture")
    window.press("Import 1 Picture")
    window.says("1 picture imported")
    assert len(desk.imported()) == 13, desk.imported()
    window.close()


def case_loses_nothing_when_the_window_is_killed(desk):
    window = begin_slowly(desk)
    children = window.children()
    window.process.kill()
    window.process.wait()
    wait("the import ends with its window", lambda: not any(map(is_running, children)))
    desk.simulate("fault", desk.camera, "delay=off")
    window = desk.open()
    finish(desk, window)


def case_tells_of_a_camera_that_goes(desk):
    window = desk.open()
    window.button("Import 12 Pictures")
    desk.simulate("unplug", desk.camera)
    window.says("The device is gone")
    desk.camera = desk.simulate("plug", "holiday-camera", "--port", "1-1")
    window.press("Try Again")
    window.says("12 new pictures")
    window.close()


def case_fetches_the_orders(desk):
    desk.simulate("unplug", desk.camera)
    desk.camera = desk.simulate("plug", "orders-camera", "--port", "1-1")
    window = desk.open()
    window.press("Pictures")
    window.says("Orders done: 5")
    orders = glob.glob(desk.pictures + "/*orders/*/order.json")
    assert len(orders) == 5, orders
    window.close()
    window = desk.open()
    window.says("No new pictures")
    window.close()


def case_shows_another_camera_that_the_agent_sees(desk):
    window = desk.open()
    window.press("Import 12 Pictures")
    window.says("12 pictures imported")
    with desk.agent():
        desk.simulate("plug", "second-camera", "--port", "1-2")
        window.says("Tarvo Lumo Z5")
        window.press("Pictures")
        window.says("imported")
        desk.simulate("unplug", "1-2")
    window.close()


def inside(programs, word):
    place = os.environ["WINDOW_TEST_PLACE"]
    failed = 0
    for name, case in [each for each in globals().items() if each[0].startswith("case_")]:
        if word not in name:
            continue
        home = tempfile.mkdtemp(dir=place)
        desk = Desk(*programs, home)
        began = time.monotonic()
        try:
            case(desk)
            print(f"passed: {name[5:]}, {time.monotonic() - began:.1f} s", flush=True)
        except Exception as error:  # pylint: disable=broad-except; the other cases go on
            failed += 1
            print(f"FAILED: {name[5:]}: {error!r}", flush=True)
            shot = os.path.join(tempfile.gettempdir(), f"tarvo-{name}.png")
            subprocess.run(["import", "-window", "root", shot], check=False)
            print(f"the display: {shot}", flush=True)
        desk.end_windows()
        desk.simulate("unplug", desk.camera)
    return 1 if failed else 0


def main():
    if os.environ.get("WINDOW_TEST_PLACE"):
        return inside(sys.argv[1:4], "".join(sys.argv[4:]))
    programs = [os.path.abspath(path) for path in sys.argv[1:4]]
    if not shutil.which("Xvfb"):
        return 77
    with tempfile.TemporaryDirectory(prefix="tarvo-", dir="/tmp") as place:
        environment = os.environ | {
            "WINDOW_TEST_PLACE": place, "TARVO_SIMULATOR_SOCKET": f"{place}/control",
            "DBUS_SYSTEM_BUS_ADDRESS": f"unix:path={place}/none", "GDK_BACKEND": "x11",
            "GSK_RENDERER": "cairo"}
        serve = [programs[2], "serve", "--"]
        refused = subprocess.run([*serve, "true"], env=environment, stderr=subprocess.PIPE,
                                 text=True, check=False)
        if refused.returncode != 0:
            print(refused.stderr)
            return 77 if "namespaces" in refused.stderr else 1
        with subprocess.Popen(["Xvfb", "-displayfd", "1", "-screen", "0", "1280x1024x24",
                               "-nolisten", "tcp", "-noreset"], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL) as display:
            environment["DISPLAY"] = ":" + display.stdout.readline().decode().strip()
            try:
                return subprocess.run(
                    [*serve, "dbus-run-session", "--", sys.executable, os.path.abspath(__file__),
                     *programs, *sys.argv[4:]], env=environment, check=False).returncode
            finally:
                display.terminate()


if __name__ == "__main__":
    try:
        import pyatspi
    except ImportError:
        sys.exit(77)
    sys.exit(main())
