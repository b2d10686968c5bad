"""The SNMPv3 engine of a stand-alone agent counts its starts, however the last run ended, so managers go on with it."""

import os
import pathlib
import re
import signal
import stat
import subprocess
import tempfile

import pytest

from agents import BUILD, SNMPTRAPD, TEST_BASE, TEST_MODULES, Daemon, Program, free_port, wait_until
from server import at_speed

SECRET = "an authentication secret"
ENGINE = "0x8000f00d0300002a6b7c8d01"
# A manager rejects an engine whose time is 150 s behind. On the daemon's clock each run is so long that the next one
# has not caught up when the manager gives up.
SPEED = 300
RUN = 1500
# How the runs end: in an orderly way, or without a chance to store anything.
ENDS = (signal.SIGTERM, signal.SIGKILL, signal.SIGKILL)


class Agent(Daemon):
    """Stand-alone, with an SNMPv3 user. The same port in every run, so that a manager need not look for it."""

    def __init__(self, directory, address, configuration="", **settings):
        super().__init__(directory, module=TEST_MODULES / "notifier.so",
                         program=[*at_speed(SPEED), BUILD / "snmp-subagentd"], options=["--listen", f"udp:{address}"],
                         configuration=f'createUser tavo SHA "{SECRET}"\nrouser tavo auth\n{configuration}', **settings)

    def run(self):
        """Lets it run for a while, without a request that would show the manager its time."""
        wait_until(lambda: age(self.pid) * SPEED > RUN, what=f"{RUN} s of the daemon's clock")

    def reload(self):
        self.signal(signal.SIGHUP)
        self.wait_for_state("READY=1", count=2)

    def end(self, number):
        self.signal(number)
        self.wait()


def age(pid):
    started = int(pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(") ")[2].split()[19])
    uptime = float(pathlib.Path("/proc/uptime").read_text().split()[0])
    return uptime - started / os.sysconf("SC_CLK_TCK")


class Manager:
    """One SNMPv3 session over the whole test."""

    def __init__(self, address):
        command = [BUILD / "test-programs/v3_session", address, "tavo", SECRET, f"{TEST_BASE}.1.0"]
        self._session = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def get(self):
        self._session.stdin.write("\n")
        self._session.stdin.flush()
        return self._session.stdout.readline().strip()

    def stop(self):
        self._session.stdin.close()
        self._session.stdout.close()
        self._session.wait()


@pytest.fixture
def address():
    return f"127.0.0.1:{free_port()}"


@pytest.fixture
def manager(address):
    session = Manager(address)
    yield session
    session.stop()


def test_a_session_goes_on_over_three_restarts(start, address, manager):
    for run, end in enumerate([*ENDS, signal.SIGTERM]):
        agent = start(Agent, address)
        assert manager.get() == "0", f"start of run {run}"
        agent.run()
        agent.reload()  # net-snmp counts that as a start, too
        assert manager.get() == "0", f"end of run {run}"
        agent.end(end)


class Receiver(Program):
    """snmptrapd for one SNMPv3 user of one engine."""

    def __init__(self, directory):
        self.destination = f"udp:127.0.0.1:{free_port()}"
        file = pathlib.Path(directory) / "receiver.conf"
        file.write_text(f'createUser -e {ENGINE} tavo SHA "{SECRET}"\nauthUser log tavo auth\n')
        command = [SNMPTRAPD, "-f", "-C", "-c", file, "-n", "-On", "-Lo", self.destination]
        super().__init__(directory, "receiver", command)
        self.wait_for_log("NET-SNMP version")


def test_notifications_arrive_after_every_restart(start, address):
    receiver = start(Receiver)
    session = f'trapsess -v3 -e {ENGINE} -u tavo -l authNoPriv -a SHA -A "{SECRET}" {receiver.destination}'

    def send(number):
        agent.order(f"send {number} 1 10")
        receiver.wait_for_log(rf"{re.escape(TEST_BASE)}\.2\.0 = Gauge32: {number}\b", timeout=10)

    for run, end in enumerate(ENDS):
        agent = start(Agent, address, configuration=f"exactEngineID {ENGINE}\n{session}\n")
        send(2 * run)
        agent.run()
        agent.reload()
        send(2 * run + 1)
        agent.end(end)


def file_system(path):
    return subprocess.run(["stat", "-f", "-c", "%T", path], capture_output=True, text=True, check=True).stdout.strip()


def test_a_directory_that_a_reboot_clears_is_named(start, address, directory):
    if file_system("/dev/shm") != "tmpfs" or file_system(directory) == "tmpfs":
        pytest.skip("needs a tmpfs at /dev/shm and none for temporary files")
    with tempfile.TemporaryDirectory(dir="/dev/shm") as volatile:
        agent = start(Agent, address, SNMP_PERSISTENT_DIR=volatile)
        warning = "the state of the SNMPv3 engine in {} is lost when the controller reboots"
        assert warning.format(volatile) in agent.log()
        agent.end(signal.SIGTERM)
    agent = start(Agent, address)
    assert warning.format(directory) not in agent.log()


def test_a_state_that_cannot_be_stored_is_a_warning(start, address):
    agent = start(Agent, address, SNMP_PERSISTENT_DIR="/dev/null/directory")
    assert "cannot store the state of the SNMPv3 engine in /dev/null/directory/snmp-subagentd.conf" in agent.log()


def test_its_users_keys_are_for_nobody_else(start, address, directory):
    start(Agent, address)
    assert (directory / "snmp-subagentd.conf").stat().st_mode & (stat.S_IRWXG | stat.S_IRWXO) == 0
