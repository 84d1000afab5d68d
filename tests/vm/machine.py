"""A guest in QEMU: booted once, its state kept, every test on a machine that comes out of it.

    guest = Guest(folder)              # build/vm; makes what is missing
    with guest.machine() as machine:
        machine.root("udevadm settle")
        machine.wait("the camera", lambda: "f055" in machine.root("lsusb"))

No network, no access to the host but a disk image with the programs under test. Commands go through
QEMU's guest agent. Nothing waits by sleeping alone: what is waited for has a deadline.
"""
import base64
import contextlib
import hashlib
import json
import os
import shlex
import shutil
import socket
import subprocess
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
PROJECT = os.path.dirname(os.path.dirname(HERE))
PROGRAM_DISK_MEBIBYTES = 96  # of one size, as the kept state knows the disk
# What a guest is made by, beside the folder of its own files and its lists of packages.
GUEST_PARTS = ["build_guest", "customise_guest", "machine.py", "vmlinux.py"]
# Where the agent looks for it. A stand-in takes its place until a scenario puts it back.
RELAY = "/usr/local/lib/tarvo/Tarvo Relay.app/Contents/Library/Tarvo Relay"
USERS = {"anna": 1000, "bert": 1001}


class Failure(Exception):
    """What a test has found, in words."""


class Channel:
    """A socket of QEMU on which both sides speak JSON, an object a line."""

    def __init__(self, path, deadline):
        self.socket = socket.socket(socket.AF_UNIX)
        self.buffer = b""
        while True:
            try:
                self.socket.connect(path)
                return
            except OSError:
                if time.monotonic() > deadline:
                    raise
                time.sleep(0.02)

    def ask(self, command, timeout=60, **arguments):
        request = {"execute": command, "arguments": arguments}
        self.socket.sendall(json.dumps(request).encode() + b"\n")
        self.socket.settimeout(timeout)
        while True:
            answer = self.line()
            if "return" in answer:
                return answer["return"]
            if "error" in answer:
                raise Failure(f"{command}: {answer['error'].get('desc')}")

    def line(self):
        while b"\n" not in self.buffer:
            part = self.socket.recv(65536)
            if not part:
                raise Failure("the machine has gone")
            self.buffer += part
        line, self.buffer = self.buffer.split(b"\n", 1)
        # The guest agent sends this byte before an answer after it was told to start anew.
        return json.loads(line.lstrip(b"\xff"))


class Machine:
    """A running guest; use it as `with`."""

    def __init__(self, guest, disk, state=None, serial="null"):
        self.folder = tempfile.mkdtemp(prefix="tarvo-vm-")
        self.disk = disk
        qmp, agent = (os.path.join(self.folder, name) for name in ("qmp", "agent"))
        command = [
            "qemu-system-x86_64", "-accel", "tcg,thread=multi,tb-size=512", "-M", "q35,vmport=off",
            "-cpu", "max,-svm", "-smp", "2", "-m", "1024", "-nodefaults", "-no-user-config",
            "-display", "none", "-no-reboot", "-kernel", guest.file("vmlinux"),
            "-initrd", guest.file("initrd"), "-append",
            "nokaslr mitigations=off tsc=reliable no_timer_check quiet console=ttyS0 panic=-1"
            " systemd.show_status=false",
            "-chardev", serial + ",id=console", "-serial", "chardev:console",
            "-drive", f"file={disk},format=qcow2,if=none,id=root,cache=unsafe",
            "-device", "virtio-blk-pci,drive=root",
            "-drive", f"file={guest.programs},format=raw,if=none,id=programs,snapshot=on",
            "-device", "virtio-blk-pci,drive=programs",
            "-device", "virtio-serial-pci",
            "-chardev", f"socket,path={agent},server=on,wait=off,id=agent",
            "-device", "virtserialport,chardev=agent,name=org.qemu.guest_agent.0",
            "-qmp", f"unix:{qmp},server=on,wait=off"]
        if state:
            command += ["-incoming", "exec:cat " + shlex.quote(state)]
        self.process = subprocess.Popen(command, stdin=None if "stdio" in serial else
                                        subprocess.DEVNULL)
        deadline = time.monotonic() + 30
        self.qmp = Channel(qmp, deadline)
        self.qmp.line()
        self.qmp.ask("qmp_capabilities")
        self.agent = Channel(agent, deadline)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        shutil.rmtree(self.folder, ignore_errors=True)

    def until_ready(self, patience):
        """Waits until the guest's agent answers, which is the sign that it runs."""
        deadline = time.monotonic() + patience
        number = 0
        while True:
            number += 1
            try:
                # Answers to what was asked before it could answer may come first.
                answer = self.agent.ask("guest-sync", timeout=1, id=number)
                while answer != number:
                    answer = self.agent.line()["return"]
                return
            except TimeoutError:
                if time.monotonic() > deadline:
                    raise Failure("the guest did not start") from None

    def root(self, script, check=True, timeout=60):
        """Runs a shell script as root; its output, both streams. A failure raises."""
        return self._run(["/bin/bash", "-c", script], check, timeout)

    def user(self, script, user="anna", check=True, timeout=60):
        """The same as a user, in the manager of that user's session."""
        runtime = f"/run/user/{USERS[user]}"
        return self._run(
            ["/usr/bin/setpriv", f"--reuid={user}", f"--regid={user}", "--init-groups",
             "--reset-env", "/usr/bin/env", f"XDG_RUNTIME_DIR={runtime}",
             "/usr/bin/systemd-run", "--user", "--quiet", "--wait", "--pipe", "--collect",
             "/bin/bash", "-c", script], check, timeout)

    def _run(self, words, check, timeout):
        deadline = time.monotonic() + timeout
        started = self.agent.ask("guest-exec", path=words[0], arg=words[1:],
                                 **{"capture-output": True})
        pause = 0.005
        while True:
            status = self.agent.ask("guest-exec-status", pid=started["pid"])
            if status["exited"]:
                break
            if time.monotonic() > deadline:
                raise Failure(f"still running after {timeout} s: {words[-1]}")
            time.sleep(pause)
            pause = min(pause * 2, 0.1)
        output = "".join(base64.b64decode(status.get(key, "")).decode(errors="replace")
                         for key in ("out-data", "err-data"))
        if check and status.get("exitcode") != 0:
            raise Failure(f"exit code {status.get('exitcode')} of: {words[-1]}\n{output}")
        return output

    def wait(self, what, condition, patience=20):
        """Waits until `condition` gives something true, and returns that."""
        deadline = time.monotonic() + patience
        while True:
            result = condition()
            if result:
                return result
            if time.monotonic() > deadline:
                raise Failure(f"not within {patience} s: {what}")
            time.sleep(0.05)

    def is_active(self, user):
        """Whether the user's session is the one in front."""
        return "Active=yes" in self.root(
            f"loginctl show-session $(loginctl show-user {user} -p Display --value) -p Active",
            check=False)

    def keep(self, path):
        """Writes the machine's state to a file; it does not go on."""
        self.qmp.ask("stop")
        self.qmp.ask("migrate-set-parameters", **{"max-bandwidth": 1 << 40})
        self.qmp.ask("migrate", uri="exec:cat > " + shlex.quote(path))
        self.wait("the state is written", self._migrated, 120)

    def _migrated(self):
        status = self.qmp.ask("query-migrate").get("status")
        if status == "failed":
            raise Failure("the state cannot be written")
        return status == "completed"


class Guest:
    """What machines are made from: kernel, root, kept state, and the disk with the programs."""

    def __init__(self, folder, *lists):
        """`lists` name files with packages that it has besides those of guest.packages."""
        self.folder = folder
        self.lists = ["guest.packages", *lists]
        self.programs = os.path.join(folder, "programs.ext4")

    def file(self, name):
        return os.path.join(self.folder, name)

    def make(self):
        """Makes kernel, root and state, where what they are made from has changed."""
        key = self._key()
        kept = self.file("key")
        if os.path.exists(kept) and open(kept).read() == key:
            return
        os.makedirs(self.folder, exist_ok=True)
        with contextlib.suppress(FileNotFoundError):
            os.remove(kept)
        subprocess.run([os.path.join(HERE, "build_guest"), self.folder, *self.lists], check=True)
        self._boot()
        with open(kept, "w") as file:
            file.write(key)

    def _key(self):
        key = hashlib.sha256()
        parts = [os.path.join(HERE, name) for name in GUEST_PARTS + self.lists]
        for folder, _, files in os.walk(os.path.join(HERE, "guest")):
            parts += [os.path.join(folder, name) for name in files]
        for path in sorted(parts):
            key.update(os.path.relpath(path, HERE).encode())
            with open(path, "rb") as file:
                key.update(file.read())
        return key.hexdigest()

    def _boot(self):
        for name in ("state", "booted.qcow2"):
            with contextlib.suppress(FileNotFoundError):
                os.remove(self.file(name))
        self._overlay("root.ext4", "raw", self.file("booted.qcow2"))
        if not os.path.exists(self.programs):
            with open(self.programs, "wb") as file:
                file.truncate(PROGRAM_DISK_MEBIBYTES << 20)
        console = "file,path=" + self.file("console.log")
        with Machine(self, self.file("booted.qcow2"), serial=console) as machine:
            machine.until_ready(180)
            machine.wait("the user's session", lambda: machine.is_active("anna"), 120)
            machine.wait("the user's manager", lambda: machine.user(
                "systemctl --user is-system-running", check=False) == "running\n", 60)
            machine.wait("a quiet system", lambda: machine.root(
                "systemctl is-system-running", check=False) == "running\n", 60)
            machine.root("sync")
            machine.keep(self.file("state"))

    def _overlay(self, base, form, path):
        subprocess.run(["qemu-img", "create", "-q", "-f", "qcow2", "-b", self.file(base),
                        "-F", form, path], check=True)

    def load_programs(self, build):
        """Installs a built preset into the disk that the guest has as /usr/local."""
        with tempfile.TemporaryDirectory(prefix="tarvo-install-") as root:
            subprocess.run(["cmake", "--install", build, "--strip"], check=True,
                           stdout=subprocess.DEVNULL, env={**os.environ, "DESTDIR": root})
            with contextlib.suppress(FileNotFoundError):
                os.remove(self.programs)
            subprocess.run(["mkfs.ext4", "-q", "-O", "^has_journal", "-d",
                            os.path.join(root, "usr/local"), "-E", "root_owner=0:0",
                            self.programs, f"{PROGRAM_DISK_MEBIBYTES}M"], check=True,
                           stdout=subprocess.DEVNULL)

    @contextlib.contextmanager
    def machine(self, serial="null"):
        """A machine that comes out of the kept state, with the programs installed."""
        with tempfile.TemporaryDirectory(prefix="tarvo-disk-") as folder:
            disk = os.path.join(folder, "disk.qcow2")
            self._overlay("booted.qcow2", "qcow2", disk)
            with Machine(self, disk, self.file("state"), serial) as machine:
                machine.wait("the machine goes on", lambda: machine.qmp.ask(
                    "query-status")["status"] in ("running", "paused"), 30)
                machine.qmp.ask("cont")
                machine.until_ready(30)
                # Udev gives devices dates, and certificates nothing: only the order matters.
                machine.root(f"date -s @{int(time.time())} >/dev/null && "
                             "mount /dev/vdb /usr/local && "
                             f"mv '{RELAY}' '{RELAY} as installed' && "
                             "tarvo-simulator bundle /usr/local --without models >/dev/null && "
                             "udevadm control --reload")
                machine.user("systemctl --user daemon-reload")
                yield machine
