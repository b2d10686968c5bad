"""The programs that system tests run, each as an object that starts, is waited for and stops.

The build tree under test is TAVO_BUILD_DIR (default: build/release). Programs are started in a directory of their own,
on loopback ports found free, with net-snmp's persistent files kept inside that directory.
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
TEST_MODULES = BUILD / "test-modules"
SNMPD = shutil.which("snmpd") or "/usr/sbin/snmpd"
SNMPTRAPD = shutil.which("snmptrapd") or "/usr/sbin/snmptrapd"

# Where the test modules of tests/system/modules serve.
TEST_BASE = "1.3.6.1.4.1.61453.4.207.200"

# Beyond the chassis link's port, and below those that the kernel gives to clients.
PORTS = range(26_000, 32_000)
_reservations = []  # abstract Unix sockets, which every test run of the machine sees


def free_port(kind=socket.SOCK_DGRAM):
    """A loopback port that nobody uses. It is this process's until that ends: test runs beside it pass it over."""
    for port in random.sample(PORTS, len(PORTS)):
        reservation = socket.socket(socket.AF_UNIX)
        with socket.socket(socket.AF_INET, kind) as probe:
            try:
                reservation.bind(f"\0tavo-port-{port}")
                probe.bind(("127.0.0.1", port))
            except OSError:
                reservation.close()
                continue
        _reservations.append(reservation)
        return port
    raise AssertionError(f"no free port in {PORTS}")


def wait_until(condition, timeout=60, what="condition"):
    """Polls until condition() is true and returns its value; fails the test after `timeout` seconds."""
    deadline = time.monotonic() + timeout
    while True:
        late = time.monotonic() > deadline  # read first: what holds by now is not too late because we are
        value = condition()
        if value:
            return value
        if late:
            raise AssertionError(f"not within {timeout} s: {what}")
        time.sleep(0.02)


def wait_for_sigwait(pid, number):
    """Waits until a thread of the process sits in sigwait() for a signal that all its threads block."""
    def sits():
        # Only there the kernel shows it as not blocked.
        masks = re.findall(r"SigBlk:\s*(\w+)", "".join(
            status.read_text() for status in pathlib.Path(f"/proc/{pid}/task").glob("*/status")))
        return any(not int(mask, 16) & 1 << (number - 1) for mask in masks)
    wait_until(sits, what=f"a thread that waits for signal {number}")


def environment(directory, **extra):
    """The environment for a net-snmp program: no MIB texts, persistent files inside `directory`."""
    return {**os.environ, "MIBS": "", "SNMP_PERSISTENT_DIR": str(directory), **extra}


class Program:
    """A running program whose output goes to a file."""

    def __init__(self, directory, name, command, **extra_environment):
        self.directory = pathlib.Path(directory)
        self.log_file = self.directory / f"{name}.log"
        # A program started again goes on in the same file; what an earlier one wrote is not its log.
        self._log_start = self.log_file.stat().st_size if self.log_file.exists() else 0
        self.command = [str(word) for word in command]
        # It must not outlive a test run that is killed.
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
                raise AssertionError(f"{self.command[0]} left with {self.process.returncode}:\n{self.log()}")
            return len(re.findall(pattern, self.log())) >= count
        wait_until(logged, timeout, f"{pattern!r} in {self.log_file}")

    def signal(self, number):
        self.process.send_signal(number)

    def wait(self, timeout=60):
        """The exit status, once the program has left by itself."""
        return self.process.wait(timeout)

    def stop(self):
        """Asks the program to stop, and makes it."""
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
    """Debian's snmpd as AgentX master. `address` is where managers ask, `agentx` where subagents connect."""

    def __init__(self, directory, configuration, udp_port=None, trap_destination=None):
        directory = pathlib.Path(directory)
        self.port = udp_port or free_port()
        self.address = f"127.0.0.1:{self.port}"
        self.agentx = f"unix:{directory}/agentx"
        # snmpd removes the socket only when it stops in an orderly way.
        (directory / "agentx").unlink(missing_ok=True)
        text = pathlib.Path(configuration).read_text()
        text = re.sub(r"(?m)^agentXSocket .*$", f"agentXSocket {self.agentx}", text)
        text += "\nrocommunity public\n"
        if trap_destination:
            text += f"trap2sink {trap_destination} public\n"
        file = directory / "master.conf"
        file.write_text(text)
        super().__init__(directory, "snmpd", [SNMPD, "-f", "-C", "-c", file, "-I", "-smux", "-Lo", f"udp:{self.address}"])
        self.wait_for_log("NET-SNMP version")


class Daemon(Program):
    """snmp-subagentd. With `master` its subagent, otherwise an agent of its own at `address` (community public).

    Started ones are ready: the constructor waits for the readiness that the daemon reports to systemd.
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
        # A test module reads its orders here.
        self.control = directory / "control"
        if not self.control.exists():
            os.mkfifo(self.control)
        notify = directory / "notify"
        notify.unlink(missing_ok=True)
        self._notifications = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._notifications.bind(str(notify))
        self._notifications.setblocking(False)
        self.states = []  # what was reported to systemd, in order
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
                raise AssertionError(f"the daemon left with {self.process.returncode}:\n{self.log()}")
            return self.states.count(state) >= count
        wait_until(reported, timeout, f"{state} from the daemon:\n{self.log()}")

    def order(self, line):
        """Gives the test module one line."""
        with open(self.control, "w") as control:
            control.write(line + "\n")

    def stop(self):
        try:
            return super().stop()
        finally:
            self._notifications.close()


class TrapCollector(Program):
    """snmptrapd: received() is one line of text per notification, in the order of arrival, snmpd's own included.

    It listens on TCP, where nothing can be lost between the agent and it.
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
        """Waits until all has arrived that senders sent who have left by now."""
        port = self.destination.rpartition(":")[2]
        end, listening = f":{int(port):04X}", "0A"

        def only_listens():
            lines = [line.split() for line in pathlib.Path("/proc/net/tcp").read_text().splitlines()]
            return [state for _, local, _, state, *_ in lines if local.endswith(end)] == [listening]
        wait_until(only_listens, what=f"no connection to {self.destination}")

    def received(self):
        return [line for line in self.log().splitlines() if line.startswith("TRAP ")]


def snmp(tool, address, *arguments, options=(), timeout=60, retries=0, check=True):
    """Runs snmpget, snmpwalk and their like on a community-public agent; the lines that it prints, with numeric OIDs."""
    command = [tool, "-v2c", "-c", "public", "-On", "-t", str(timeout), "-r", str(retries), *options, address, *arguments]
    result = subprocess.run(command, capture_output=True, text=True, env={**os.environ, "MIBS": ""})
    if check and result.returncode != 0:
        raise AssertionError(f"{' '.join(command)} left with {result.returncode}: {result.stdout}{result.stderr}")
    return result.stdout.splitlines()


def snmpget(address, *oids, **settings):
    return snmp("snmpget", address, *oids, **settings)
