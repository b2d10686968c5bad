"""The programs that system tests run, each an object that starts the program, waits for it and stops it.

TAVO_BUILD_DIR names the build tree under test (default: build/release), TAVO_SERVER_BUILD_DIR the one that bmcsim is
taken from (default: the same). Programs listen on free loopback ports, and run in a directory of the test's own, which
also holds net-snmp's persistent files.
"""

import os
import pathlib
import random
import re
import shutil
import socket
import subprocess
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = (ROOT / os.environ.get("TAVO_BUILD_DIR", "build/release")).resolve()
SERVER_BUILD = (ROOT / os.environ.get("TAVO_SERVER_BUILD_DIR", BUILD)).resolve()
TEST_MODULES = BUILD / "test-modules"
SNMPD = shutil.which("snmpd") or "/usr/sbin/snmpd"
SNMPTRAPD = shutil.which("snmptrapd") or "/usr/sbin/snmptrapd"

# The subtree that the modules in tests/system/modules serve.
TEST_BASE = "1.3.6.1.4.1.61453.4.207.200"

# Above the chassis link's port, below those that the kernel gives to clients.
PORTS = range(26_000, 32_000)
_reservations = []  # abstract Unix sockets: every test run on the machine sees them


def free_port(kind=socket.SOCK_DGRAM, count=1):
    """A free loopback port, reserved until this process ends: other test runs skip it. Or the first of `count` such."""
    for port in random.sample(PORTS, len(PORTS)):
        reserved = []
        try:
            for successor in range(port, port + count):
                reserved.append(_reserve(successor, kind))
        except OSError:
            for reservation in reserved:
                reservation.close()
            continue
        _reservations.extend(reserved)
        return port
    raise AssertionError(f"no {count} free ports in {PORTS}")


def _reserve(port, kind):
    """Raises OSError if the port is in use or reserved."""
    reservation = socket.socket(socket.AF_UNIX)
    with socket.socket(socket.AF_INET, kind) as probe:
        try:
            reservation.bind(f"\0tavo-port-{port}")
            probe.bind(("127.0.0.1", port))
        except OSError:
            reservation.close()
            raise
    return reservation


def wait_until(condition, timeout=60, what="condition"):
    """Polls until condition() is true, and returns its value. Fails the test after `timeout` seconds."""
    deadline = time.monotonic() + timeout
    while True:
        # Read the clock before the condition: if we were held up, the condition may still have come true in time.
        late = time.monotonic() > deadline
        value = condition()
        if value:
            return value
        if late:
            raise AssertionError(f"{what}: not within {timeout} s")
        time.sleep(0.02)


def wait_for_sigwait(pid, number):
    """Waits until a thread of the process sits in sigwait() for this signal, which all its threads block."""
    def sits():
        # The kernel shows a blocked signal as unblocked only while a thread waits for it.
        masks = re.findall(r"SigBlk:\s*(\w+)", "".join(
            status.read_text() for status in pathlib.Path(f"/proc/{pid}/task").glob("*/status")))
        return any(not int(mask, 16) & 1 << (number - 1) for mask in masks)
    wait_until(sits, what=f"a thread waiting for signal {number}")


def environment(directory, **extra):
    """The environment of a net-snmp program: no MIB modules, persistent files in `directory`."""
    return {**os.environ, "MIBS": "", "SNMP_PERSISTENT_DIR": str(directory), **extra}


class Program:
    """A running program. Its output goes to NAME.log in `directory`."""

    def __init__(self, directory, name, command, **extra_environment):
        self.directory = pathlib.Path(directory)
        self.log_file = self.directory / f"{name}.log"
        # A restarted program appends to the same file; log() returns only what this one wrote.
        self._log_start = self.log_file.stat().st_size if self.log_file.exists() else 0
        self.command = [str(word) for word in command]
        # Ends the program when the test run is killed.
        bound_to_us = ["setpriv", "--pdeathsig", "TERM", "--", *self.command]
        with open(self.log_file, "ab") as log:
            self.process = subprocess.Popen(bound_to_us, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                            cwd=directory, env=environment(directory, **extra_environment))

    @property
    def pid(self):
        return self.process.pid

    def log(self):
        return self.log_file.read_bytes()[self._log_start:].decode(errors="replace")

    def wait_for_log(self, pattern, timeout=60, count=1):
        """Waits until the log holds `count` matches of the pattern."""
        def logged():
            if self.process.poll() is not None and len(re.findall(pattern, self.log())) < count:
                raise AssertionError(f"{self.command[0]} exited with {self.process.returncode}:\n{self.log()}")
            return len(re.findall(pattern, self.log())) >= count
        wait_until(logged, timeout, f"{pattern!r} in {self.log_file}")

    def signal(self, number):
        self.process.send_signal(number)

    def wait(self, timeout=60):
        """Waits until the program ends by itself. Returns its exit status."""
        return self.process.wait(timeout)

    def stop(self):
        """Ends the program, by force after 15 s. Returns its exit status."""
        if self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(15)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        return self.process.returncode

    def kill(self):
        self.process.kill()
        self.process.wait()


class Master(Program):
    """Debian's snmpd as AgentX master. Managers ask it at `address`, subagents connect to `agentx`.

    `more` is added to the configuration; with `tcp`, an address, it listens there, too.
    """

    def __init__(self, directory, configuration, udp_port=None, trap_destination=None, more="", tcp=None):
        directory = pathlib.Path(directory)
        self.port = udp_port or free_port()
        self.address = f"127.0.0.1:{self.port}"
        self.agentx = f"unix:{directory}/agentx"
        # A killed snmpd leaves its socket behind.
        (directory / "agentx").unlink(missing_ok=True)
        text = pathlib.Path(configuration).read_text()
        text = re.sub(r"(?m)^agentXSocket .*$", f"agentXSocket {self.agentx}", text)
        text += f"\nrocommunity public\n{more}\n"
        if trap_destination:
            text += f"trap2sink {trap_destination} public\n"
        file = directory / "master.conf"
        file.write_text(text)
        super().__init__(directory, "snmpd",
                         [SNMPD, "-f", "-C", "-c", file, "-I", "-smux", "-Lo", f"udp:{self.address}",
                          *([f"tcp:{tcp}"] if tcp else [])])
        self.wait_for_log("NET-SNMP version")


class Daemon(Program):
    """snmp-subagentd: a subagent of `master`, or without one an agent of its own at `address`, community public.

    Unless `ready` is false, the constructor returns once the daemon has reported to systemd that it is ready.
    """

    def __init__(self, directory, module=None, master=None, platforms=(), options=(), configuration="", ready=True,
                 timeout=60, program=BUILD / "snmp-subagentd", **extra_environment):
        directory = pathlib.Path(directory)
        file = directory / "subagentd.conf"
        command = [*([program] if isinstance(program, (str, os.PathLike)) else program), "-f", "-C", "-c", file, "-LO",
                   "7"]
        if master:
            self.address = master.address
            command += ["-x", master.agentx]
        else:
            self.address = f"127.0.0.1:{free_port()}"
            configuration += "\nrocommunity public\n"
            command += ["--listen", f"udp:{self.address}"]
        file.write_text(configuration)
        if module:
            command += ["--module", module]
        for library in platforms:
            command += ["--platform", library]
        command += options
        # Test modules read their orders here.
        self.control = directory / "control"
        if not self.control.exists():
            os.mkfifo(self.control)
        notify = directory / "notify"
        notify.unlink(missing_ok=True)
        self._notifications = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._notifications.bind(str(notify))
        notify.chmod(0o666)  # the daemon may be another user's
        self._notifications.setblocking(False)
        self.states = []  # everything that the daemon has reported to systemd, in order
        super().__init__(directory, "subagentd", command, NOTIFY_SOCKET=str(notify),
                         TEST_MODULE_CONTROL=str(self.control), **extra_environment)
        if ready:
            self.wait_for_state("READY=1", timeout)

    def wait_for_state(self, state, timeout=60, count=1):
        """Waits until the daemon has reported `state` to systemd `count` times."""
        def reported():
            left = self.process.poll() is not None
            try:
                while True:
                    self.states += self._notifications.recv(4096).decode().splitlines()
            except BlockingIOError:
                pass
            if left and self.states.count(state) < count:
                raise AssertionError(f"the daemon exited with {self.process.returncode}:\n{self.log()}")
            return self.states.count(state) >= count
        wait_until(reported, timeout, f"{state} from the daemon:\n{self.log()}")

    def order(self, line):
        """Sends the test module one line."""
        with open(self.control, "w") as control:
            control.write(line + "\n")

    def stop(self):
        try:
            return super().stop()
        finally:
            self._notifications.close()


class TrapCollector(Program):
    """snmptrapd. received() has one line per notification, in the order of arrival, including those of snmpd itself.

    It listens on TCP, which loses nothing.
    """

    def __init__(self, directory):
        directory = pathlib.Path(directory)
        self.destination = f"tcp:127.0.0.1:{free_port(socket.SOCK_STREAM)}"
        file = directory / "snmptrapd.conf"
        file.write_text("disableAuthorization yes\n")
        super().__init__(directory, "snmptrapd",
                         [SNMPTRAPD, "-f", "-C", "-c", file, "-n", "-On", "-Lo", "-F", "TRAP %P %W %q %N %v\\n",
                          self.destination])
        self.wait_for_log("NET-SNMP version")

    def wait_for_end_of_connections(self):
        """Waits until no sender is connected any more: everything they sent has then arrived."""
        port = self.destination.rpartition(":")[2]
        end, listening = f":{int(port):04X}", "0A"

        def only_listens():
            lines = [line.split() for line in pathlib.Path("/proc/net/tcp").read_text().splitlines()]
            return [state for _, local, _, state, *_ in lines if local.endswith(end)] == [listening]
        wait_until(only_listens, what=f"the end of all connections to {self.destination}")

    def received(self):
        return [line for line in self.log().splitlines() if line.startswith("TRAP ")]


def snmp(tool, address, *arguments, options=(), timeout=60, retries=0, check=True):
    """Runs snmpget, snmpwalk or the like (community public, numeric OIDs). Returns the lines that it prints."""
    command = [tool, "-v2c", "-c", "public", "-On", "-t", str(timeout), "-r", str(retries), *options, address,
               *arguments]
    result = subprocess.run(command, capture_output=True, text=True, env={**os.environ, "MIBS": ""})
    if check and result.returncode != 0:
        raise AssertionError(f"{' '.join(command)} exited with {result.returncode}: {result.stdout}{result.stderr}")
    return result.stdout.splitlines()


def snmpget(address, *oids, **settings):
    return snmp("snmpget", address, *oids, **settings)
