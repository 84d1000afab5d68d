"""What must hold on a real kernel. Each scenario has a fresh machine with nothing plugged in; its
first line says what holds. Those of MAIN are run for every change, the others by .ci/full."""
import json

from desk import (FILM, PATHS, TOP, Display, ForeignCamera, SimulatedCamera, contents_of, expect,
                  files_of)
from machine import RELAY

# Bus number in the top byte, then one port number a nibble.
FIRST_PORT = 0x01100000
CAMERA = ("PTP", FIRST_PORT, "", "TLX2-000417")
LAUNCH = ("PTP", str(FIRST_PORT), "")


def camera_arrival(desk):
    """A camera starts the Relay with its type, its location and an empty path."""
    agent = desk.agent()
    desk.plug("tarvo-camera")
    agent.wait_for_launches(LAUNCH)


def camera_replugged(desk):
    """While the Relay runs a camera may go and come without another launch; then it has one."""
    agent = desk.agent()
    desk.plug("tarvo-camera")
    agent.wait_for_launches(LAUNCH)
    desk.unplug()
    agent.wait_for_devices()
    desk.plug("tarvo-camera")
    agent.wait_for_devices(CAMERA)
    agent.expect_launches(LAUNCH)
    agent.end_relay()
    desk.unplug()
    desk.plug("tarvo-camera")
    agent.wait_for_launches(LAUNCH, LAUNCH)


def agent_restarted(desk):
    """An agent that starts anew finds the camera, and the Relay that still runs."""
    agent = desk.agent()
    desk.plug("tarvo-camera")
    agent.wait_for_launches(LAUNCH)
    agent.restart()
    agent.wait_for_devices(CAMERA)
    agent.expect_launches(LAUNCH)


def flood(desk):
    """A flood of requests starts the wireless utility ten times; how long it is busy is told."""
    agent = desk.agent()
    agent.post("LaunchWRLAppNotification", 40)
    agent.wait_for_log("Received a notification to launch WRLA", 40)
    starts = sorted(report["started"] for report in agent.reports("TARVO Wireless Utility"))
    # A stand-in may be a little late to tell when it was started.
    expect("eleven within ten seconds", [pair for pair in zip(starts, starts[10:])
                                         if pair[1] - pair[0] < 9], [])
    expect("lines that say why", agent.log().count("Further starts are refused"), 1)
    agent.post("kWRLABusyNotification")
    desk.machine.wait("busy", lambda: agent.status("WirelessBusy"))
    lasted = int(desk.machine.root("date +%s")) - agent.status("WirelessBusySince") // 1000000
    if not 0 <= lasted <= 20:
        expect("seconds of busy", lasted, "0 to 20")
    desk.plug("tarvo-camera")
    agent.wait_for_log("is ignored: the wireless utility is transferring, for ")
    agent.post("kWRLADoneNotification")
    desk.machine.wait("done", lambda: agent.status("WirelessBusySince") == 0)


def own_scope(desk):
    """An application has a scope and limits of its own, is known by it, and outlives the agent."""
    machine = desk.machine
    # The scope alone tells an agent that starts anew; and a program may make a sandbox of its own.
    machine.root("rm /usr/local/share/applications/com.tarvo.Relay.desktop && "
                 "cd '/usr/local/lib/tarvo/TARVO Wireless Utility.app/Contents/MacOS' && "
                 "printf '#!/bin/sh\nunshare -Urm mount -t tmpfs none /mnt && touch ~/sandboxed\n' "
                 ">'TARVO Wireless Utility'")
    agent = desk.agent()
    machine.wait("a sandbox", lambda: machine.root("test -e /home/anna/sandboxed && echo yes",
                                                   check=False))
    desk.plug("tarvo-camera")
    agent.wait_for_launches(LAUNCH)
    relay = agent.reports()[0]["pid"]
    scope = f"app-tarvo-com.tarvo.Relay-{relay}.scope"
    machine.wait("its scope", lambda: machine.root(f"cat /proc/{relay}/cgroup").endswith(
        f"/{scope}\n"))
    for name, limit in (("TasksMax", "64"), ("MemoryMax", str(256 << 20))):
        expect(f"{name} of the agent", agent.unit(name), limit)
        expect(f"{name} of the Relay", agent.unit(name, scope),
               agent.unit(name, "dbus.service"))  # the manager's default
    masks = [machine.root(f"grep Umask /proc/{pid}/status").split()[1]
             for pid in (relay, agent.process())]
    expect("masks of the Relay and of the agent", masks, ["0022", "0077"])
    machine.user("systemctl --user stop tarvo-agent")
    machine.root(f"kill -0 {relay}")
    machine.user("systemctl --user start tarvo-agent")
    agent.wait_for_log("RelayApp is already running. Ignoring this camera event.")
    agent.expect_launches(LAUNCH)


def name_taken(desk):
    """Who owns the agent's name is told; the unit tries again a few times, and then no more."""
    machine = desk.machine
    agent = desk.agent()

    def take():
        ready = agent.log().count(" ready")
        machine.user("systemctl --user stop tarvo-agent && "
                     "systemd-run --user --quiet --unit=taker tarvo-agent")
        agent.wait_for_log(" ready", ready + 1)
        machine.user("systemctl --user start tarvo-agent", check=False)
        return agent.unit("MainPID", "taker")

    taker = take()
    agent.wait_for_log(f"is owned already, by process {taker}: /usr/local/bin/tarvo-agent", 2)
    machine.user("systemctl --user stop taker")
    machine.wait("the agent", lambda: agent.status("Active"))
    take()
    machine.wait("no more attempts", lambda: agent.unit("ActiveState") == "failed", 60)


def access(desk):
    """The user at the seat may use the maker's cameras and optical units, nobody has anything else."""
    machine = desk.machine
    # Of the system's own rules there is one for cameras of any maker, and one for any optical drive.
    machine.root("ln -s /dev/null /etc/udev/rules.d/70-uaccess.rules && udevadm control --reload")
    foreign = {"vendor": "0x1234", "product": "0x0501"}
    devices = {"1-1": "tarvo-camera", "1-2": "dock-fixed", "1-3": "card",
               "1-4": desk.changed("dock-fixed", usb=foreign),
               "1-5": desk.changed("tarvo-camera", usb=foreign)}
    for port, device in devices.items():
        desk.plug(device, port)
    units = {port: machine.wait(f"the sg node at {port}", lambda: machine.root(
        f"ls -d /sys/bus/usb/devices/{port}/*/host*/target*/*/scsi_generic/sg* | sed 's,.*/,/dev/,'",
        check=False).strip()) for port in ("1-2", "1-3", "1-4")}
    machine.root("udevadm settle")
    nodes = {f"usb {port}": desk.node(port) for port in devices} | {
        f"sg {port}": node for port, node in units.items()}
    for user, rights in (("anna", ["usb 1-1", "sg 1-2"]), ("bert", [])):
        expect(f"what {user} may use", [name for name, node in nodes.items() if machine.root(
            f"setpriv --reuid {user} --regid {user} --init-groups test -w {node} && echo yes",
            check=False)], rights)


def unit_switched(desk):
    """A unit that can switch by itself leaves and comes back as the camera, and the Relay starts."""
    agent = desk.agent()
    desk.plug("dock")
    agent.wait_for_launches(LAUNCH)
    expect("the unit", desk.unit(), None)


def unit_ejected(desk):
    """A unit that cannot is unmounted and ejected, though its medium is mounted."""
    desk.plug("dock-fixed")
    desk.mount()
    agent = desk.agent()
    desk.machine.wait("the tray is open", lambda: desk.unit()["trayOpen"])
    expect("mounts", desk.machine.root("findmnt --noheadings /media/anna/TARVO_DOCK", check=False),
           "")
    agent.expect_launches()


def unit_beside_its_twin(desk):
    """Of two units with one serial number, which is one drive to UDisks2, the agent has its own go."""
    machine = desk.machine
    usb = {"manufacturer": "Tarvo Imaging", "name": "Tarvo Fixed Dock", "serial": "TFD-000074"}
    for port, vendor in (("1-1", "0xF055"), ("1-2", "0x1234")):
        # What is on them tells their file systems apart.
        desk.plug(desk.changed("dock-fixed", usb=usb | {"vendor": vendor, "product": "0x0503"},
                               volume={"label": "UNIT" + port[-1]}), port)
        desk.mount(port)
    drives = [machine.root("busctl get-property org.freedesktop.UDisks2 /org/freedesktop/UDisks2/"
                           f"block_devices/{desk.block(port)[5:]} org.freedesktop.UDisks2.Block "
                           "Drive") for port in ("1-1", "1-2")]
    expect("the drive of the other one", drives[1], drives[0])
    # What needs a password is refused, and no dialog waits for one.
    machine.root(f"mkdir /srv/second && mount -o ro {desk.block('1-1')} /srv/second")
    agent = desk.agent()
    agent.wait_for_log("an authorisation, for which nobody was asked")
    agent.wait_for_log("could not be ejected")
    machine.root("umount /srv/second")
    agent.restart()
    machine.wait("the tray is open", lambda: desk.unit("1-1")["trayOpen"])
    expect("what is mounted", machine.root("findmnt --noheadings --raw --output TARGET | "
                                           "grep /media/").split(), ["/media/anna/UNIT2"])
    expect("the tray of the other one", desk.unit("1-2")["trayOpen"], False)


def _volume_arrival(desk, device, label, kind):
    agent = desk.agent()
    desk.plug(device)
    path = f"/media/anna/{label}"
    expect("where it is mounted", desk.mount(), path)
    agent.wait_for_launches((kind, str(FIRST_PORT), path))


def disk_arrival(desk):
    """A camera in disk mode starts the Relay when it is mounted, with its mount point."""
    _volume_arrival(desk, "msc-camera", "TARVO_LUMO", "MSC")


def card_arrival(desk):
    """So does a card in a reader of the maker, as a card."""
    _volume_arrival(desk, "card", "TARVO_CARD", "card")


def relay_imports(desk):
    """The Relay itself imports what is new, once, by the camera and from its card."""
    machine = desk.machine
    machine.root(f"mv '{RELAY} as installed' '{RELAY}'")
    agent = desk.agent()
    camera = SimulatedCamera(desk)
    here = {}
    for number, names in enumerate((["TARV0001.JPG"], ["TARV0001.JPG", "TARV0003.MOV"]), 1):
        camera.device = desk.changed("tarvo-camera", stores=[{"id": "0x00010001", "content": [
            {"file": name, "size": 60000} for name in names]}])
        camera.plug()
        agent.wait_for_log("got RLA died notification", number)
        here = files_of(machine, "/home/anna/Pictures")
        expect("what was imported", here, camera.contents())
        camera.unplug()
    # Its card has what came by the camera, and one more.
    machine.root("mkdir -p /tmp/card/DCIM /tmp/card/MISC && cd /tmp/card && "
                 "cp -p /home/anna/Pictures/*/*/* DCIM && echo more >DCIM/TARV0009.JPG && "
                 "echo orders >MISC/IREVIEW.DB && mkfs.ext4 -q -L CARD -d . /tmp/card.img 16M")
    desk.plug(desk.changed("card", volume=None, image="/tmp/card.img"))
    desk.mount()
    agent.wait_for_log("got RLA died notification", 3)
    expect("what was imported", files_of(machine, "/home/anna/Pictures"),
           files_of(machine, "/tmp/card/DCIM"))


def relay_window(desk):
    """Its window imports what is new at a press, and stays while the camera goes and comes."""
    machine = desk.machine
    machine.root(f"mv '{RELAY} as installed' '{RELAY}'")
    display = Display(machine)
    agent = desk.agent()
    camera = SimulatedCamera(desk)
    # Each file by its time, digest and path.
    pictures = lambda: machine.root("find /home/anna/Pictures ! -type d -printf '%T@ ' "
                                    "-exec md5sum {} ';'").splitlines()
    here = []
    for count, button, outcome in ((2, "Import 2 Pictures", "2 pictures imported"),
                                   (3, "Import 1 Picture", "1 picture imported")):
        camera.device = desk.changed("holiday-camera", stores=[{"id": "0x00010001", "content": [
            {"file": f"TARV010{number}.JPG", "picture": [320, 240]} for number in range(count)]}])
        camera.plug()
        display.press(button)
        display.wait_for_text(outcome)
        before, here = here, pictures()
        expect("what is not as it was", [line for line in before if line not in here], [])
        expect("digests", sorted(line.split()[1] for line in here),
               sorted(camera.contents().values()))
        camera.unplug()
        agent.wait_for_devices()
    camera.plug()
    display.wait_for_text("No new pictures")
    camera.unplug()
    display.wait_for_text("The device is gone")
    display.press("Close")
    agent.wait_for_log("got RLA died notification")
    expect("Relays that have ended", agent.log().count("got RLA died notification"), 1)
    expect("what is there", pictures(), here)


def tool(desk):
    """tarvoctl shows cameras, cards and units to the user, and fetches from a card."""
    run = desk.machine.user
    desk.plug("tarvo-camera", "1-1")
    desk.plug("dock", "1-2")
    desk.plug("msc-camera", "1-3")
    desk.mount("1-3")
    for command, text in (("devices", "TLX2-000417"), ("devices", "TARVO_LUMO"),
                          ("msc list", "Picture Dock"), ("msc model", "Tarvo Lumo 410"),
                          ("--device 0x01300000 volume ls", "DCIM/100TARVO/TARV0002.JPG")):
        output = run(f"tarvoctl {command}")
        if text not in output:
            expect(f"tarvoctl {command}", output, f"...{text}...")
    run("tarvoctl --device 0x01300000 volume get --output ~ DCIM/100TARVO/TARV0001.JPG")
    run("cmp ~/TARV0001.JPG /media/anna/TARVO_LUMO/DCIM/100TARVO/TARV0001.JPG")
    run("tarvoctl --device TARVO_LUMO eject")
    expect("what is mounted", desk.machine.root("findmnt --noheadings --raw --output TARGET | "
                                                "grep /media/", check=False), "")


def user_switch(desk):
    """Of two users with a session each, the one in front gets the Relay."""
    machine = desk.machine
    first = desk.agent("anna")
    machine.root("systemctl start getty@tty2")
    machine.wait("bert's session", lambda: machine.root("loginctl show-user bert", check=False)
                 .startswith("UID"))
    machine.wait("bert's bus", lambda: machine.root("test -S /run/user/1001/bus && echo yes",
                                                    check=False))
    second = desk.agent("bert")
    for agent, other in ((second, first), (first, second)):
        machine.root(f"loginctl activate $(loginctl show-user {agent.user} -p Display --value)")
        machine.wait("the switch", lambda: agent.status("Active") and
                     other.status("Active") is False)
        before = other.launches()
        desk.plug("tarvo-camera")
        agent.wait_for_launches(LAUNCH)
        expect(f"launches for {other.user}", other.launches(), before)
        agent.end_relay()
        desk.unplug()


def recovery(desk):
    """On system version 0x1062 the agent looks for a unit that has left until it is back."""
    agent = desk.agent(SystemVersion="0x1062")
    desk.plug("dock")
    agent.wait_for_launches(LAUNCH)
    agent.wait_for_log("starting Lost Device Timer")
    desk.machine.wait("its end", lambda: agent.status("RecoveryArmed") is False)
    expect("other devices", agent.log().count("serial number mismatch"), 0)


def switched_while_mounted(desk):
    """A camera that is switched while its card is mounted is warned about."""
    desk.plug(desk.changed("dock", volume={"label": "TARVO_DOCK"}))
    desk.mount()
    agent = desk.agent()
    agent.wait_for_launches(LAUNCH)
    agent.wait_for_log("is still mounted while the camera is switched")


def unit_held(desk):
    """Of a unit that is mounted twice, the mount that is busy is named, and keeps the tray shut."""
    machine = desk.machine
    desk.plug("dock-fixed")
    path = desk.mount()
    machine.root(f"mkdir /srv/second && mount -o ro {desk.block()} /srv/second")
    machine.user(f"systemd-run --user --quiet --unit=holder --working-directory={path} sleep 1000")
    output = machine.user("tarvoctl msc eject 2>&1", check=False)
    for text in (f"{path}: in use by sleep", "/srv/second"):
        if text not in output:
            expect("what eject says", output, f"...{text}...")
    expect("the tray", desk.unit()["trayOpen"], False)
    machine.user("systemctl --user stop holder")
    machine.root("umount /srv/second")
    machine.user("tarvoctl msc eject")
    expect("the tray", desk.unit()["trayOpen"], True)


def unit_before_its_nodes(desk):
    """A unit that was there before the agent and before its generic node is taken with the node."""
    root = desk.machine.root
    root("echo blacklist sg >/etc/modprobe.d/late.conf && udevadm control --reload && "
         "if grep -q '^sg ' /proc/modules; then modprobe -r sg; fi")
    desk.plug("dock")
    desk.machine.wait("its disk", lambda: root("ls /sys/class/block/sr0", check=False))
    agent = desk.agent()
    root("modprobe sg")
    agent.wait_for_launches(LAUNCH)


def units_exchanged(desk):
    """Of two units that follow each other at one port at once, each gets what is meant for it."""
    agent = desk.agent()
    process = agent.process()
    stays_away = desk.changed("dock", camera=None)
    for _ in range(5):
        desk.simulator("plug", stays_away, "--port", "1-1")
        desk.machine.wait("the switch", lambda: not desk.plugged(), 40)
        desk.simulator("plug", "dock-fixed", "--port", "1-1")
        desk.machine.wait("the tray is open", lambda: (desk.unit() or {}).get("trayOpen"), 40)
        desk.simulator("unplug", "1-1")
    expect("failures", agent.log().count(" could not be "), 0)
    expect("the agent's process", agent.process(), process)


def told_to_end(desk):
    """An agent that is told to end while a unit is silent sends no command twice, and opens nothing."""
    agent = desk.agent()
    desk.simulator("plug", "dock-fixed", "--port", "1-1")
    desk.simulator("fault", "1-1", "silent=0x5A,once")
    sent = lambda: [command["block"][:2] for command in desk.unit()["commands"]
                    if command["block"][:2] in ("5a", "1e", "1b")]
    desk.machine.wait("the question", sent)
    agent.machine.user("systemctl --user stop tarvo-agent")
    expect("what was sent", sent(), ["5a"])


def unit_vanishes(desk):
    """Units that go in the middle of what the agent does to them leave it as it was."""
    agent = desk.agent()
    process = agent.process()
    for device, faults in (("dock", ("vanish-command=0x5A,@2", "vanish=0x5A,@2", "vanish-status=0x5A",
                                     "vanish-command=0x55", "vanish=0x55")),
                           ("dock-fixed", ("vanish-command=0x1E", "vanish-status=0x1E",
                                           "vanish-command=0x1B", "vanish-status=0x1B"))):
        for fault in faults:
            # The kernel lets a unit settle for a second before it asks it anything.
            desk.simulator("plug", device, "--port", "1-1")
            desk.simulator("fault", "1-1", fault)
            desk.machine.wait(f"the end of {device} by {fault}", lambda: not desk.plugged(), 40)
    agent.expect_launches()
    # This one has taken the command, so it comes back.
    desk.simulator("plug", "dock", "--port", "1-1")
    desk.simulator("fault", "1-1", "vanish-status=0x55")
    agent.wait_for_launches(LAUNCH)
    expect("the agent's process", agent.process(), process)


def card_with_traps(desk):
    """Links, loops and odd names on a card lead the tool nowhere else, and cost it no picture."""
    machine = desk.machine
    machine.root(r"""mkdir -p /tmp/card/DCIM && cd /tmp/card/DCIM
        for name in $'two\nlines.JPG' $'not-utf8-\xff.JPG' plain.JPG; do echo picture >"$name"; done
        ln -s /etc/passwd link.JPG && ln -s / root && ln -s . loop && mkfifo pipe.JPG
        mkfs.ext4 -q -d /tmp/card /tmp/card.img 16M""")
    desk.plug(desk.changed("card", volume=None, image="/tmp/card.img"))
    desk.mount()
    machine.user("tarvoctl volume get --all --output ~/got", check=False)
    expect("what was fetched", machine.user(
        "cd ~/got && find . -type f -printf '%P %s\\n' | LC_ALL=C sort | LC_ALL=C cat -v").splitlines(),
        ["not-utf8-M-^?.JPG 8", "plain.JPG 8", "two_lines.JPG 8"])


def card_pulled_out(desk):
    """A card that goes in the middle of a copy ends it in words, and no half picture stays."""
    machine = desk.machine
    desk.plug(desk.changed("card", volume={"label": "TARVO_CARD", "content": [
        {"file": "TARV0001.JPG", "size": 64 << 20}]}))
    desk.mount()
    desk.simulator("fault", "1-1", "delay=20,0x28")
    machine.user("mkdir ~/got && systemd-run --user --quiet --unit=copying --working-directory=/home/anna/got"
                 " tarvoctl volume get --all")
    machine.wait("half a copy", lambda: machine.root("find /home/anna/got -name '*.part' -size +0"))
    desk.simulator("unplug", "1-1")
    machine.wait("the end of the copy", lambda: "failed" in machine.user(
        "systemctl --user is-active copying", check=False))
    expect("what is left", machine.root("ls -A /home/anna/got").split(), [])


def imported(desk):
    """Any importer can have a device: usbip finds it over TCP, and may let it go again."""
    root = desk.machine.root
    root("systemd-run --quiet --unit=exporter tarvo-simulator --socket /run/exporter.sock usbip "
         "--device tarvo-camera")
    desk.machine.wait("the export", lambda: "f055:0302" in root("usbip list -r 127.0.0.1",
                                                                check=False))
    for _ in range(2):
        root("usbip attach -r 127.0.0.1 -b 1-1")
        desk.machine.wait("the camera", lambda: "TLX2-000417" in
                          desk.machine.user("tarvoctl devices", check=False))
        root("usbip detach -p 0")
        desk.machine.wait("its end", lambda: not desk.node())


def many_cycles(desk):
    """200 times plugged and unplugged, cameras and units: nothing is lost or leaked."""
    agent = desk.agent()
    tray_is_open = lambda: desk.unit()["trayOpen"]
    # The first arrivals load what is loaded once; the Relay holds back further ones.
    for number in range(206):
        if number == 6:
            before = _resources(agent)
        device = ("tarvo-camera", "dock-fixed")[number % 2]
        desk.plug(device)
        # Every other time it goes at some point of its arrival.
        if number % 4 == 2:
            agent.wait_for_devices(CAMERA)
        elif number % 4 == 3:
            desk.machine.wait("the tray is open", tray_is_open)
        desk.unplug()
    agent.wait_for_devices()
    after = _resources(agent)
    expect("what is open", after[0], before[0])
    if after[1] > before[1] + 2048:
        expect("resident KiB", after[1], f"at most {before[1]} + 2048")
    desk.plug("tarvo-camera")
    agent.wait_for_devices(CAMERA)
    agent.expect_launches(LAUNCH)


def _resources(agent):
    """What the agent has open, by kind, and its resident KiB."""
    pid = agent.process()
    output = agent.machine.root(
        f"ls -l /proc/{pid}/fd | sed -n 's/.* -> //p' | sed 's/[0-9]*//g' | sort; "
        f"awk '/VmRSS/ {{ print $2 }}' /proc/{pid}/status").splitlines()
    return output[:-1], int(output[-1])


def _arrived(desk, camera):
    agent = desk.agent()
    camera.plug()
    agent.wait_for_launches(("PTP", str(camera.location), ""))


def objects(desk, camera):
    """The Relay starts for {}, and what it holds is listed, fetched, sent and removed as told."""
    machine = desk.machine
    _arrived(desk, camera)
    before = camera.contents()
    for words, paths in (("ls", TOP), ("ls --recursive", PATHS)):
        listed = json.loads(machine.user(f"tarvoctl --json {words} 2>/dev/null"))
        expect(words, sorted(entry.get("path", entry["name"]) for entry in listed), paths)
    machine.user("tarvoctl get --all --output ~/got")
    fetched = {name: digest for name, digest in before.items() if digest != "folder"}
    expect("what was fetched", contents_of(machine, "/home/anna/got"), fetched)
    machine.user("mkdir ~/sent && head -c 3145728 /dev/urandom >~/sent/SENT0001.JPG && "
                 "tarvoctl put ~/sent/SENT0001.JPG && tarvoctl rm --yes TARV0002.JPG")
    del before["TARV0002.JPG"]
    expect("what it holds", camera.contents(), before | contents_of(machine, "/home/anna/sent"))
    expect("what was fetched", contents_of(machine, "/home/anna/got"), fetched)


def _fetched_in_two(desk, camera, cut):
    """A film of which `cut` ends the first fetching is whole after the second one."""
    machine = desk.machine
    _arrived(desk, camera)
    before = camera.contents()
    machine.user("mkdir ~/got && systemd-run --user --quiet --unit=fetching "
                 f"--working-directory=/home/anna/got tarvoctl get {FILM}")
    machine.wait("half a film", lambda: machine.root(
        "find /home/anna/got -name '*.part' -size +1M"))
    cut()
    machine.wait("the end of the fetching", lambda: "failed" in machine.user(
        "systemctl --user is-active fetching", check=False))
    expect("what is whole", machine.root("find /home/anna/got -type f ! -name '*.part'"), "")
    machine.user(f"cd ~/got && tarvoctl get {FILM}")
    expect("what was fetched", contents_of(machine, "/home/anna/got"), {FILM: before[FILM]})
    expect("what it holds", camera.contents(), before)


def unplugged(desk, camera):
    """When {} is unplugged while it gives a film, the rest of it follows once it is back."""
    def cut():
        camera.unplug()
        camera.plug()
    _fetched_in_two(desk, camera, cut)


def killed(desk, camera):
    """When tarvoctl is killed while {} gives a film, the next one fetches the rest."""
    _fetched_in_two(desk, camera, lambda: desk.machine.user(
        "systemctl --user kill --signal=KILL fetching"))


def _with(camera, scenario):
    def run(desk):
        scenario(desk, camera(desk))
    run.__name__ = f"{scenario.__name__}_{camera.__name__[:-len('Camera')].lower()}"
    run.__doc__ = scenario.__doc__.format(camera.words)
    return run


MAIN = [camera_arrival, camera_replugged, agent_restarted, flood, own_scope, access, unit_switched,
        unit_ejected, unit_beside_its_twin, disk_arrival, card_arrival, relay_imports, tool]
MAIN += [_with(camera, scenario) for scenario in (objects, unplugged)
         for camera in (SimulatedCamera, ForeignCamera)]
OTHERS = [name_taken, user_switch, recovery, switched_while_mounted, unit_held,
          unit_before_its_nodes, units_exchanged, told_to_end, unit_vanishes, card_with_traps,
          card_pulled_out, imported, many_cycles, relay_window]
# What a kill leaves is looked at for every change by the stories, on virtual devices.
OTHERS += [_with(camera, killed) for camera in (SimulatedCamera, ForeignCamera)]
# These have the larger guest, with the packages of window.packages.
ON_A_DISPLAY = [relay_window]
