"""Endurance: while eight managers walk, hardware fails, leaves and comes back, and readings change. Nothing may leak.

TAVO_ENDURANCE_MINUTES is the duration on the daemon's clock (default: 6).
"""

import os
import pathlib
import random
import re
import subprocess
import time

import pytest

from agents import snmp, wait_until
from datagrams import Collector
from managers import Managers
from oids import (BASE, BOARD_POWER, DISK_PRESENCE, FAN_OPERABILITY, FAULT_TABLE, MEMORY_STATUS, MEMORY_TEMPERATURE,
                  OBJECTS)
from server import STORAGE_CLASS, UNREFRESHED_CLASS, ServedDaemon, Server
from test_walk import cells

MINUTES = float(os.environ.get("TAVO_ENDURANCE_MINUTES", "6"))
SPEED = 20
WARM_UP = 3  # minutes until the first periodic refresh and the first requests are over
TURN = 6  # seconds on the daemon's clock between two changes
MOST_BROKEN = 4  # parts at once: enough for ever new combinations

FAULT_SEVERITY = f"{FAULT_TABLE}.1.17"
LED_COLOUR = f"{OBJECTS}.15.114.1"

# Commands that break something, each with the command that mends it. {number} is an unused fault index.
CHANGES = [
    ("fan fail FAN2_TACH1", "fan repair FAN2_TACH1"),
    ("fan remove FAN4_TACH2", "fan insert FAN4_TACH2"),
    ("supply fail 1", "supply repair 1"),
    ("supply remove 2", "supply insert 2"),
    ("dimm fail DIMM_A1", "dimm repair DIMM_A1"),
    ("dimm remove DIMM_C2", "dimm insert DIMM_C2"),
    ("processor disable 2", "processor enable 2"),
    ("adapter remove 5", "adapter insert 5"),
    ("drive pull 4 2", "drive insert 4 2"),
    ("volume degrade 4 2", "volume rebuild 4 2"),
    ("battery fail 4", "battery repair 4"),
    ("sd-card pull 1", "sd-card insert 1"),
    ("sd-mode 1", "sd-mode 0"),
    ("power off", "power on"),
    ("led set LED_FANS color=RED", "led set LED_FANS color=AMBER"),
    ("server set low-voltage-memory=2", "server set low-voltage-memory=1"),
    ("processor set 1 temperature=71.5", "processor set 1 temperature=41.6"),
    *((f"fault raise {{number}} class={class_} severity=minor", "fault clear {number}")
      for class_ in ("fan", "supply", "memory", "processor", "adapter", UNREFRESHED_CLASS, STORAGE_CLASS)),
    *(("fault update 17 severity=major", "fault update 17 severity=critical") for _ in range(3)),
]

# Warnings and errors that a healthy daemon logs.
EXPECTED_WARNINGS = [
    "bad size for counter 64 (4)",  # once, when the module asks net-snmp which size it takes
    # net-snmp prepares each notification for SNMPv1 managers as well, though there are none.
    "send_trap: v1 traps can't carry Counter64 varbinds",
    "send_trap: failed to convert v2->v1 template PDU",
    "velt_thread:recv() failed: Success",  # an SD-card change is an empty connection, which is logged as a failure
]


class Console:
    """A shell on the server, so that commands need not enter its namespaces one by one."""

    def __init__(self, server):
        self._shell = subprocess.Popen([str(word) for word in server.entered("sh")], stdin=subprocess.PIPE,
                                       stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)

    def ctl(self, words):
        self._shell.stdin.write(f'bmcsim ctl {words}; echo "status $?"\n')
        self._shell.stdin.flush()
        lines = []
        while not (lines and lines[-1].startswith("status ")):
            line = self._shell.stdout.readline()
            assert line, f"the shell ended during {words}: {lines}"
            lines.append(line.rstrip("\n"))
        assert lines.pop() == "status 0", (words, lines)
        return "\n".join(lines)

    def close(self):
        self._shell.stdin.close()
        self._shell.wait()


class Changer:
    """Breaks and mends parts in a random order, always the same, and counts the notifications that must follow."""

    def __init__(self, console):
        self.changes = 0
        self.notifications = 0
        self._console = console
        self._random = random.Random(207)
        self._broken = []

    def _apply(self, words):
        output = self._console.ctl(words)
        self.changes += 1
        self.notifications += len(re.findall(r"\bfault \d+ (?:raised|updated|cleared)", output))

    def turn(self):
        if len(self._broken) >= MOST_BROKEN or self._broken and self._random.random() < 0.4:
            self._apply(self._broken.pop(self._random.randrange(len(self._broken))))
            return
        number = 500 + self.changes
        breaks, mends = (words.format(number=number) for words in self._random.choice(CHANGES))
        if mends not in self._broken:
            self._apply(breaks)
            self._broken.append(mends)

    def mend_all(self):
        while self._broken:
            self._apply(self._broken.pop())


class Footprint:
    """The daemon's memory, descriptors and threads, sampled again and again."""

    def __init__(self, daemon):
        self._process = pathlib.Path(f"/proc/{daemon.pid}")
        self._daemon = daemon
        self.samples = []  # (resident KiB, descriptors, threads)

    def sample(self):
        self.samples.append((self._daemon.resident_kib(), len(list((self._process / "fd").iterdir())),
                             len(list((self._process / "task").iterdir()))))

    def early_and_late(self):
        """The most memory, fewest descriptors and fewest threads in the first half of the samples, and in the second.

        Platform calls and pipes to tools open descriptors for a moment, so the fewest are those that stay open.
        """
        half = len(self.samples) // 2
        return [(max(kib for kib, _, _ in part), min(fds for _, fds, _ in part), min(tasks for _, _, tasks in part))
                for part in (self.samples[:half], self.samples[half:])]


def column(daemon, oid):
    """{index: value} of a column."""
    lines = snmp("snmpbulkwalk", daemon.address, "-Cr50", oid, timeout=30)
    found = (re.match(r'\.[\d.]+\.(\d+) = \S+ "?([^"]*)"?$', line) for line in lines)
    return {int(cell[1]): cell[2] for cell in found if cell}


def shown_by_simulator(console, kind):
    """{field: value} of each part of this kind."""
    return [dict(re.findall(r"([\w-]+)=(\"[^\"]*\"|\S+)", line)) for line in console.ctl(f"show {kind}").splitlines()]


def settle(daemon, console):
    """Changes the server for good, and waits until a whole periodic refresh has passed."""
    for words in ("fan fail FAN3_TACH2", "dimm fail DIMM_B1", "drive pull 4 1", "environment set power=211 drift=0"):
        console.ctl(words)
    # LEDs come last in a pass. The pass that shows the second colour began after all changes.
    for colour in ("GREEN", "RED"):
        before = snmp("snmpbulkwalk", daemon.address, LED_COLOUR, timeout=30)
        console.ctl(f"led set LED_HLTH_STATUS color={colour}")
        wait_until(lambda: snmp("snmpbulkwalk", daemon.address, LED_COLOUR, timeout=30) != before, 600 / SPEED,
                   "a periodic refresh")


def assert_tables_match_the_simulator(daemon, console):
    severities = {"info": "1", "condition": "2", "warning": "3", "minor": "4", "major": "5", "critical": "6"}
    assert column(daemon, FAULT_SEVERITY) == {int(fault["index"]): severities[fault["severity"]]
                                              for fault in shown_by_simulator(console, "faults") if "index" in fault}
    dimms = [dimm for dimm in shown_by_simulator(console, "dimms") if dimm["present"] == "yes"]
    assert list(column(daemon, MEMORY_STATUS).values()) == [dimm["status"] for dimm in dimms]
    temperatures = list(map(int, column(daemon, MEMORY_TEMPERATURE).values()))
    assert temperatures == [pytest.approx(float(dimm["temperature"]), abs=0.51) for dimm in dimms]
    assert column(daemon, BOARD_POWER) == {1: "211"}
    assert column(daemon, DISK_PRESENCE)[1] == "11"
    assert column(daemon, FAN_OPERABILITY)[6] == "3"


def whole_walk(daemon):
    """All cells but the server's effective memory, which the module reads at its start only."""
    walk = cells(snmp("snmpbulkwalk", daemon.address, "-Cr50", BASE, timeout=30))
    return [cell for cell in walk if not cell.startswith(f".{BASE}.1.9.35.1.9.1 ")]


@pytest.fixture
def collector():
    collector = Collector()
    yield collector
    collector.stop()


@pytest.fixture
def server(start, directory):
    server = start(Server)
    server.ctl("environment", "set", "drift=1")
    return server


@pytest.fixture
def console(server):
    console = Console(server)
    yield console
    console.close()


def test_faults_pulls_and_walks_leak_nothing(start, directory, server, console, collector):
    errors = directory / "errors.log"
    daemon = start(ServedDaemon, server, SPEED, configuration=f"trap2sink {collector.destination} public\n",
                   options=["-LF", "0-4", errors])
    server.wait_for_listeners()
    changer, footprint = Changer(console), Footprint(daemon)
    managers = Managers(daemon, directory, BASE, last=f"{BASE}.1.45.36", pause=10 / SPEED)
    began = time.monotonic()
    try:
        for turn in range(1, int(MINUTES * 60 / TURN) + 1):
            changer.turn()
            due = began + turn * TURN / SPEED
            while time.monotonic() < due:
                time.sleep(0.05)
                if time.monotonic() - began > WARM_UP * 60 / SPEED:
                    footprint.sample()
        changer.mend_all()
        while len(footprint.samples) < 40:  # late turns leave no time for samples
            time.sleep(0.05)
            footprint.sample()
    finally:
        managers.stop()
    seconds = time.monotonic() - began
    wait_until(lambda: len(collector.datagrams) >= changer.notifications, what="every notification")

    early, late = footprint.early_and_late()
    print(f"{seconds * SPEED / 60:.0f} minutes of the daemon in {seconds:.0f} s: {changer.changes} changes, "
          f"{changer.notifications} fault records, {len(collector.datagrams)} notifications, {managers.walks} walks, "
          f"{managers.values} values, {len(managers.failures)} failures")
    for when, (kib, descriptors, threads) in (("first", early), ("second", late)):
        print(f"{when} half: {kib} KiB, {descriptors} descriptors, {threads} threads")

    assert managers.failures == []
    assert len(collector.datagrams) == changer.notifications
    assert set(errors.read_text().splitlines()) <= set(EXPECTED_WARNINGS)
    assert late[1] <= early[1], "descriptors"
    assert late[2] <= early[2], "threads"
    # A heap settles at the largest combination of requests and rebuilds so far. If a refresh leaked its rows, two hours
    # would show it: those of the memory tables alone take 10 KiB.
    assert late[0] <= early[0] + 256

    settle(daemon, console)
    assert_tables_match_the_simulator(daemon, console)
    old = whole_walk(daemon)
    assert daemon.stop() == 0
    fresh = start(ServedDaemon, server, SPEED)
    wait_until(lambda: whole_walk(fresh) == old, 400 / SPEED, "the same walk from a fresh daemon")
