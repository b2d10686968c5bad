"""A start that takes long, because the platform does not answer, reports its progress; systemd lets it go on."""

import re
import signal
import socket
import time

import pytest

from agents import BUILD, ROOT, TEST_BASE, TEST_MODULES, Daemon, snmpget, wait_until
from server import MODULE, PLATFORM, Server, at_speed

SPEED = 20
UNIT = (ROOT / "host/snmp-subagentd.service.in").read_text()
TIMEOUT = int(re.search(r"(?m)^TimeoutStartSec=(\d+)$", UNIT).group(1))
TABLES = [
    "tavoFaultTable", "tavoMemoryUnitTable", "tavoMemoryUnitEnvStatsTable", "tavoProcessorUnitTable",
    "tavoProcessorEnvStatsTable", "tavoEquipmentFanTable", "tavoEquipmentPsuTable", "tavoComputeRackUnitTable",
    "tavoComputeBoardTable", "tavoAdaptorUnitTable", "tavoComputeMbPowerStatsTable",
    "tavoComputeRackUnitMbTempStatsTable", "tavoStorageControllerTable", "tavoStorageLocalDiskTable",
    "tavoStorageLocalLunTable", "tavoStorageRaidBatteryTable", "tavoStorageVeltroControllerTable",
    "tavoStorageVeltroCardTable", "tavoStorageVeltroDriveTable", "tavoEquipmentHealthLedTable",
]


class ServiceManager:
    """What systemd does while a service of type notify starts, on a clock `speed` times as fast."""

    def __init__(self, directory, speed=1):
        self.speed = speed
        self.path = directory / "service-manager"
        self.states = []
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind(str(self.path))

    def wait_until_ready(self):
        """Returns the seconds that the start took; fails when systemd would have given up."""
        begin = now = time.monotonic()
        deadline = begin + TIMEOUT / self.speed
        while "READY=1" not in self.states:
            self._socket.settimeout(max(deadline - now, 0.001))
            try:
                new = self._socket.recv(4096).decode().splitlines()
            except TimeoutError:
                raise AssertionError(f"given up after {(now - begin) * self.speed:.0f} s: {self.states}") from None
            now = time.monotonic()
            self.states += new
            for extension in re.findall(r"EXTEND_TIMEOUT_USEC=(\d+)", "\n".join(new)):
                deadline = max(deadline, now + int(extension) / 1e6 / self.speed)
        return (now - begin) * self.speed

    def fill(self):
        """Takes all the reports that the kernel keeps for it, so that none is left room for."""
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
            sender.setblocking(False)
            with pytest.raises(BlockingIOError):
                for _ in range(10_000):
                    sender.sendto(b"STATUS=other", str(self.path))

    def read(self):
        self._socket.setblocking(False)
        try:
            while True:
                self.states += self._socket.recv(4096).decode().splitlines()
        except BlockingIOError:
            return self.states

    def count(self, beginning):
        return sum(state.startswith(beginning) for state in self.read())

    def stop(self):
        self._socket.close()


def test_a_long_start_names_each_table_and_goes_on(start, directory):
    server = start(Server)
    # Six adaptor cards that do not answer take 150 s, longer than a start may be silent. Nor does much else answer.
    (directory / "cards").write_text("slot-number\n" * 6)
    server.ctl("tool", "slotutil", "prints", directory / "cards")
    server.ctl("tool", "datactl", "missing")
    manager = start(ServiceManager, SPEED)
    daemon = start(Daemon, module=MODULE, platforms=[PLATFORM], ready=False, options=["--tool-timeout", "40"],
                   program=[*server.entered(), "env", f"NOTIFY_SOCKET={manager.path}", *at_speed(SPEED),
                            BUILD / "snmp-subagentd"])
    seconds = manager.wait_until_ready()
    print(f"started after {seconds:.0f} s")
    assert seconds > 2 * TIMEOUT
    built = [state.removeprefix("STATUS=building ") for state in manager.states if "building" in state]
    assert built == TABLES
    statuses = [state for state in manager.read() if state.startswith("STATUS=")]
    assert statuses[-1] == f"STATUS=serving on udp:{daemon.address}"


def test_a_start_that_hangs_is_not_extended_again(start, directory):
    manager = start(ServiceManager)
    daemon = start(Daemon, module=TEST_MODULES / "tool_runner.so", ready=False, options=["--tool-timeout", "0"],
                   program=["env", f"NOTIFY_SOCKET={manager.path}", BUILD / "snmp-subagentd"],
                   TEST_MODULE_START_COMMAND=f"read -r line < {directory}/control")
    wait_until(lambda: manager.count("EXTEND_TIMEOUT_USEC="), what="the first sign of life")
    seen = manager.count("EXTEND_TIMEOUT_USEC=")
    time.sleep(1)
    assert manager.count("EXTEND_TIMEOUT_USEC=") == seen
    daemon.order("go on")
    wait_until(lambda: manager.count("READY=1"), what="the end of the start")


def test_a_daemon_that_serves_extends_nothing(start):
    daemon = start(Daemon, module=TEST_MODULES / "tool_runner.so")
    extended = sum(state.startswith("EXTEND_TIMEOUT_USEC=") for state in daemon.states)
    daemon.order("true")
    daemon.wait_for_log("tool ended with 0")
    daemon.signal(1)
    daemon.wait_for_state("READY=1", count=2)
    assert sum(state.startswith("EXTEND_TIMEOUT_USEC=") for state in daemon.states) == extended


def test_a_deaf_service_manager_stops_nobody(start):
    manager = start(ServiceManager)
    manager.fill()
    daemon = start(Daemon, module=TEST_MODULES / "notifier.so", ready=False,
                   program=["env", f"NOTIFY_SOCKET={manager.path}", BUILD / "snmp-subagentd"])
    daemon.wait_for_log("did not take READY=1", timeout=10)
    daemon.signal(signal.SIGHUP)
    daemon.wait_for_log("did not take RELOADING=1", timeout=10)
    value = f"{TEST_BASE}.1.0"
    assert snmpget(daemon.address, value, timeout=10) == [f".{value} = INTEGER: 0"]
    daemon.signal(signal.SIGTERM)
    assert daemon.wait() == 0
    assert "still busy" not in daemon.log()
