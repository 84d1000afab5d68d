"""A machine for a person: devices come, the agent's journal is shown, then a shell is theirs."""
from desk import SOCKET, Desk

HELP = """
A shell of the user anna follows, in the machine. Try
  tarvoctl devices                       what she sees
  tarvo-simulator unplug 1-1             takes the camera away
  tarvo-simulator plug dock              a dock that becomes a camera by itself
  tarvo-simulator plug card && udisksctl mount -b /dev/sda1
  journalctl -t tarvo-agent              what the agent has done; new lines come by themselves
'exit' ends the machine, and nothing of it is kept.
"""


def play(guest):
    with guest.machine(serial="stdio,signal=off") as machine:
        desk = Desk(machine, traces=False)
        agent = desk.agent()
        print("\n==> Plugging in a camera", flush=True)
        desk.plug("tarvo-camera")
        agent.wait_for_log("createTaskForPath", 2)
        print(agent.log())
        print(f"The Relay was started with {agent.launches()[0]}.")
        print(HELP, flush=True)
        machine.root(f"chown anna {SOCKET} && systemctl stop serial-getty@ttyS0 && "
                     "dmesg --console-off && systemctl start tarvo-shell")
        machine.process.wait()
