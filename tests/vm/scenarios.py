"""What must hold on a real kernel. Each scenario has a fresh machine with nothing plugged in; its
first line says what holds. Those of MAIN are run for every change, the others by .ci/full."""
from desk import expect

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


def access(desk):
    """The user at the seat may use the maker's units, other users and other units have nothing."""
    machine = desk.machine
    machine.root("sed s/0xF055/0x1234/ /usr/local/share/tarvo/simulator/card.json >/tmp/other.json")
    desk.plug("dock", "1-1")
    desk.plug("/tmp/other.json", "1-2")
    nodes = [desk.node("1-1"), machine.wait("the unit's sg node", lambda: machine.root(
        "ls -d /sys/bus/usb/devices/1-1/1-1:1.0/host*/target*/*/scsi_generic/* | sed 's,.*/,/dev/,'"
        " | grep /dev/sg", check=False).strip()), desk.node("1-2")]
    machine.root("udevadm settle")
    for user, rights in (("anna", ["yes", "yes", "no"]), ("bert", ["no", "no", "no"])):
        expect(f"rights of {user}", machine.root("for node in " + " ".join(nodes) + "; do setpriv "
               f"--reuid {user} --regid {user} --init-groups test -w $node && echo yes || echo no; "
               "done").split(), rights)


def unit_switched(desk):
    """A unit that can switch by itself leaves and comes back as the camera, and the Relay starts."""
    agent = desk.agent()
    desk.plug("dock")
    agent.wait_for_launches(LAUNCH)
    expect("the unit", desk.unit(), None)


def unit_ejected(desk):
    """A unit that cannot is unmounted and ejected, though its medium is mounted."""
    desk.plug("dock-fixed")
    mount = f"udisksctl mount --no-user-interaction --block-device {desk.block()}"
    desk.machine.user(mount)
    agent = desk.agent()
    desk.machine.wait("the tray is open", lambda: desk.unit()["trayOpen"])
    expect("mounts", desk.machine.root("findmnt --noheadings /media/anna/TARVO_DOCK", check=False),
           "")
    agent.expect_launches()


def _volume_arrival(desk, device, label, kind):
    agent = desk.agent()
    desk.plug(device)
    path = f"/media/anna/{label}"
    expect("where it is mounted", desk.machine.user(
        f"udisksctl mount --no-user-interaction --block-device {desk.block()}").split()[-1], path)
    agent.wait_for_launches((kind, str(FIRST_PORT), path))


def disk_arrival(desk):
    """A camera in disk mode starts the Relay when it is mounted, with its mount point."""
    _volume_arrival(desk, "msc-camera", "TARVO_LUMO", "MSC")


def card_arrival(desk):
    """So does a card in a reader of the maker, as a card."""
    _volume_arrival(desk, "card", "TARVO_CARD", "card")


def tool(desk):
    """tarvoctl shows cameras, cards and units to the user, and fetches from a card."""
    run = desk.machine.user
    desk.plug("tarvo-camera", "1-1")
    desk.plug("dock", "1-2")
    desk.plug("msc-camera", "1-3")
    run(f"udisksctl mount --no-user-interaction --block-device {desk.block('1-3')}")
    for command, text in (("devices", "TLX2-000417"), ("devices", "/media/anna/TARVO_LUMO"),
                          ("msc list", "Picture Dock"), ("msc model", "Tarvo Lumo 410"),
                          ("--device 0x01300000 volume ls", "DCIM/100TARVO/TARV0002.JPG")):
        output = run(f"tarvoctl {command}")
        if text not in output:
            expect(f"tarvoctl {command}", output, f"...{text}...")
    run("tarvoctl --device 0x01300000 volume get --output ~ DCIM/100TARVO/TARV0001.JPG")
    run("cmp ~/TARV0001.JPG /media/anna/TARVO_LUMO/DCIM/100TARVO/TARV0001.JPG")


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
    machine = desk.machine
    machine.root("cd /usr/local/share/tarvo/simulator && sed 's/\"camera\"/\"volume\": "
                 "{\"label\": \"TARVO_DOCK\"}, &/' dock.json >full-dock.json")
    desk.plug("full-dock")
    machine.user(f"udisksctl mount --no-user-interaction --block-device {desk.block()}")
    agent = desk.agent()
    agent.wait_for_launches(LAUNCH)
    agent.wait_for_log("is still mounted while the camera is switched")


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
    """200 times plugged and unplugged: the list is right, nothing is leaked, the Relay starts."""
    agent = desk.agent()
    # The first arrivals load what is loaded once; the Relay holds back further ones.
    for _ in range(3):
        desk.plug("tarvo-camera")
        agent.wait_for_devices(CAMERA)
        desk.unplug()
        agent.wait_for_devices()
    before = _resources(agent)
    for number in range(200):
        desk.plug("tarvo-camera")
        # Every other time it goes at some point of its arrival.
        if number % 2:
            agent.wait_for_devices(CAMERA)
        desk.unplug()
    agent.wait_for_devices()
    after = _resources(agent)
    expect("descriptors", after[0], before[0])
    if after[1] > before[1] + 2048:
        expect("resident KiB", after[1], f"at most {before[1]} + 2048")
    desk.plug("tarvo-camera")
    agent.wait_for_devices(CAMERA)
    agent.expect_launches(LAUNCH)


def _resources(agent):
    """Open descriptors of the agent and its resident KiB."""
    pid = agent.process()
    return tuple(map(int, agent.machine.root(
        f"ls /proc/{pid}/fd | wc -l; awk '/VmRSS/ {{ print $2 }}' /proc/{pid}/status").split()))


MAIN = [camera_arrival, camera_replugged, agent_restarted, access, unit_switched, unit_ejected,
        disk_arrival, card_arrival, tool]
OTHERS = [user_switch, recovery, switched_while_mounted, unit_vanishes, imported, many_cycles]
