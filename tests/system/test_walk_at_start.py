"""A walk during a start or a restart is whole or refused: a manager sees all tables or none.

TAVO_STARTS is the number of starts, and of restarts of the master (default: 3).
"""

import itertools
import os
import re
import signal
import subprocess
import threading

import pytest

from agents import (BUILD, ROOT, SNMPD, TEST_BASE, TEST_MODULES, Daemon, Master, Program, environment, free_port, snmp,
                    snmpget, wait_until)
from oids import BASE, FAULT_TABLE
from server import MODULE, PLATFORM, ServedDaemon, Server
from test_walk import cells

MASTER_CONFIGURATION = ROOT / "host/snmpd-master.conf"
STARTS = int(os.environ.get("TAVO_STARTS", "3"))
SPEED = 5  # of the daemon's clock, which makes a start take a second instead of six


def names(lines):
    """The cells in this output, without their values, which change as time goes by."""
    return [cell.partition(" = ")[0] for cell in cells(lines)]


class Walker:
    """A manager that walks without pause until stop(), by snmpwalk and snmpbulkwalk in turn.

    `refused` counts the walks that ended with an error or showed no cell. `shown` has the cells of the others.
    """

    def __init__(self, address, directory):
        self.refused = 0
        self.shown = []
        self._stopping = threading.Event()
        self._tools = itertools.cycle([["snmpbulkwalk", "-Cr10"], ["snmpwalk"]])
        # A manager that asks again could ask the old master first and the new one then, which would end its walk.
        self._arguments = ["-v2c", "-c", "public", "-On", "-t", "0.5", "-r", "0", address, BASE]
        self._environment = environment(directory)
        self._thread = threading.Thread(target=self._walk)
        self._thread.start()

    def _walk(self):
        while not self._stopping.is_set():
            result = subprocess.run([*next(self._tools), *self._arguments], capture_output=True, text=True,
                                    env=self._environment)
            shown = names(result.stdout.splitlines())
            if result.returncode != 0 or not shown:
                self.refused += 1
            else:
                self.shown.append(shown)

    def wait_for_answers(self, count=3):
        wanted = len(self.shown) + count
        wait_until(lambda: len(self.shown) >= wanted, what="walks that are answered")

    def stop(self):
        self._stopping.set()
        self._thread.join()


class Tally:
    """The walks of one or several walkers."""

    def __init__(self):
        self.refused = 0
        self.shown = []

    def add(self, walker):
        walker.stop()
        self.refused += walker.refused
        self.shown += walker.shown

    def check(self, expected):
        partial = [sorted(set(shown) ^ set(expected))[:5] for shown in self.shown if shown != expected]
        print(f"{STARTS} times: {len(self.shown) - len(partial)} walks whole, {self.refused} refused, {len(partial)} "
              "partial")
        assert partial == []


@pytest.fixture
def server(start):
    return start(Server)


def idle_walk(daemon):
    shown = names(snmp("snmpwalk", daemon.address, BASE, timeout=30))
    assert len(shown) > 1500
    assert any(name.startswith(f".{FAULT_TABLE}.") for name in shown)
    return shown


def test_walks_at_start_behind_a_master(start, server, directory):
    master = start(Master, MASTER_CONFIGURATION)
    daemon = start(ServedDaemon, server, master=master, speed=SPEED)
    expected = idle_walk(daemon)
    tally = Tally()
    for _ in range(STARTS):
        daemon.stop()
        walker = Walker(master.address, directory)
        try:
            daemon = start(ServedDaemon, server, master=master, speed=SPEED)
            walker.wait_for_answers()
        finally:
            tally.add(walker)
    tally.check(expected)
    assert tally.refused >= STARTS


def test_walks_at_start_alone(start, server, directory):
    daemon = start(ServedDaemon, server, speed=SPEED)
    expected = idle_walk(daemon)
    tally = Tally()
    for _ in range(STARTS):
        daemon.stop()
        daemon = start(ServedDaemon, server, speed=SPEED, ready=False)
        walker = Walker(daemon.address, directory)
        try:
            daemon.wait_for_state("READY=1")
            walker.wait_for_answers()
        finally:
            tally.add(walker)
    tally.check(expected)


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGKILL], ids=["stopped", "killed"])
def test_walks_while_the_master_restarts(start, server, directory, number):
    master = start(Master, MASTER_CONFIGURATION)
    daemon = start(ServedDaemon, server, master=master, speed=SPEED)
    expected = idle_walk(daemon)
    walker = Walker(master.address, directory)
    tally = Tally()
    try:
        for _ in range(STARTS):
            served = daemon.states.count(f"STATUS=serving through {master.agentx}")
            master.signal(number)
            master.wait()
            master = start(Master, MASTER_CONFIGURATION, udp_port=master.port)
            daemon.wait_for_state(f"STATUS=serving through {master.agentx}", count=served + 1)
            walker.wait_for_answers()
    finally:
        tally.add(walker)
    tally.check(expected)
    assert tally.refused >= STARTS


def test_walks_while_snmpd_loads_the_module(start, directory):
    if re.search(rb"__[at]san_init", MODULE.read_bytes()):
        pytest.skip("Debian's snmpd cannot load a module built with a sanitizer")
    configuration = directory / "snmpd.conf"
    configuration.write_text(f"rocommunity public\ndlmod subagent_modules {MODULE}\n")
    address = f"127.0.0.1:{free_port()}"
    walker = Walker(address, directory)
    tally = Tally()
    try:
        start(Program, "snmpd", [ROOT / "simulator/boot", "--build", BUILD, "--bind", directory, "--", "env",
                                 f"LD_PRELOAD={PLATFORM}", SNMPD, "-f", "-C", "-c", configuration, "-I", "-smux", "-Lo",
                                 f"udp:{address}"])
        walker.wait_for_answers()
    finally:
        tally.add(walker)

    def without_faults(shown):
        """snmpd does not wait for the event thread, which lists the faults after the start."""
        return [name for name in shown if not name.startswith(f".{FAULT_TABLE}.")]
    expected = without_faults(names(snmp("snmpwalk", address, BASE, timeout=30)))
    assert len(expected) > 1400
    tally.shown = list(map(without_faults, tally.shown))
    tally.check(expected)


def test_subtree_that_another_has_is_tried_again(start, directory):
    master = start(Master, MASTER_CONFIGURATION)
    module = TEST_MODULES / "notifier.so"
    first = start(Daemon, module=module, master=master)
    first.order("send 1 1 1")
    first.wait_for_log("sent number 1")
    value = f"{TEST_BASE}.1.0"
    assert snmpget(master.address, value) == [f".{value} = INTEGER: 1"]
    other_directory = directory / "other"
    other_directory.mkdir()
    other = Daemon(other_directory, module=module, master=master)
    try:
        other.wait_for_log(f"the AgentX master did not register {re.escape(BASE)}\n")
        assert snmpget(master.address, value) == [f".{value} = INTEGER: 1"]
        first.stop()
        wait_until(lambda: snmpget(master.address, value) == [f".{value} = INTEGER: 0"], 12, "the other daemon")
    finally:
        other.stop()
