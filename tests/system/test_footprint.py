"""What the module and the daemon take of a small controller: memory, time to start, wake-ups. Each has a budget.

Memory is anonymous: heap, stacks, and the pages of files that the process has written to. What the module adds is the
difference to the same daemon with a module that does nothing. docs/footprint.md has the figures that are printed here.
TAVO_MANY_FAULTS: how many come and go (default: 2000).
"""

import os
import pathlib
import platform
import re
import time

import pytest

from agents import ROOT, TEST_MODULES, Master, snmpget, wait_until
from engine import Engine
from oids import PROCESSOR_DN
from server import ServedDaemon, Server

FAULTS = 1024
MANY_FAULTS = int(os.environ.get("TAVO_MANY_FAULTS", 2000))
SIMULATED_FAULTS = 4  # of the scenario

# KiB, on a 64-bit machine.
AT_REST = 370
WITH_FAULTS = 1600  # about 150 KiB of it in the daemon's own list of active faults
WHILE_LOADING = 3500  # about 1 MiB of it in the simulated platform's library
LEFT_BEHIND = 1024  # once many faults have gone; they had more than twice as much

# Seconds of processor time, tools included. The start also waits 5 s for the power supplies.
START_UP = 2.0

pytestmark = pytest.mark.skipif(platform.machine() != "x86_64", reason="the budgets are those of x86_64")


def field(process_file, name):
    return int(re.search(rf"^{name}:\s+(\d+)", process_file.read_text(), re.MULTILINE)[1])


class Memory:
    """The anonymous memory of a daemon in KiB."""

    def __init__(self, daemon):
        self._process = pathlib.Path(f"/proc/{daemon.pid}")

    def now(self):
        return field(self._process / "smaps_rollup", "Anonymous")

    def peak_above_now(self):
        """How much more was resident once than is now."""
        return field(self._process / "status", "VmHWM") - field(self._process / "status", "VmRSS")


@pytest.fixture
def server(start, directory, monkeypatch):
    monkeypatch.setenv("BMCSIM_SOCKET", str(directory / "bmcsim"))
    return start(Server)


@pytest.fixture
def engine(directory, server):
    return Engine(str(directory / "bmcsim"))


# The daemon's own log of changes grows up to its limit, and is not the module's.
NO_LOG = ["--change-limit", "0"]


def serve(start, server, options=(), **settings):
    """A daemon that has nothing more to do: its threads wait for events, or sleep."""
    daemon = start(ServedDaemon, server, options=[*NO_LOG, *options], **settings)
    daemon.wait_for_log("Total Fault entries:")
    server.wait_for_sd_listener(daemon)
    return daemon


def change_faults(engine, word, count, *settings):
    for number in range(1000, 1000 + count):
        engine.tell("fault", word, str(number), *settings)
        engine.wait_for_reply()


def without_module(start, server):
    daemon = start(ServedDaemon, server, module=TEST_MODULES / "idle.so")
    memory = Memory(daemon).now()
    daemon.stop()
    return memory


def test_memory_that_the_module_adds(start, server, engine):
    empty = without_module(start, server)
    daemon = serve(start, server)
    at_rest = Memory(daemon).now() - empty
    daemon.stop()

    change_faults(engine, "raise", FAULTS, "class=processor")
    daemon = start(ServedDaemon, server, options=NO_LOG)
    daemon.wait_for_log(f"Total Fault entries:{FAULTS + SIMULATED_FAULTS}\n")
    server.wait_for_sd_listener(daemon)
    memory = Memory(daemon)
    with_faults = memory.now() - empty
    while_loading = with_faults + memory.peak_above_now()
    print(f"memory: {empty} KiB with an idle module; the module adds {at_rest} KiB at rest, {with_faults} KiB "
          f"with {FAULTS} faults, {while_loading} KiB while it loads them")
    assert at_rest <= AT_REST
    assert with_faults <= WITH_FAULTS
    assert while_loading <= WHILE_LOADING


def test_memory_goes_back_when_faults_have_gone(start, server, engine):
    daemon = serve(start, server)
    memory = Memory(daemon)
    before = memory.now()
    change_faults(engine, "raise", MANY_FAULTS, "class=processor")
    daemon.wait_for_log(f"Total Fault entries:{MANY_FAULTS + SIMULATED_FAULTS}\n")
    full = memory.now()
    change_faults(engine, "clear", MANY_FAULTS)
    daemon.wait_for_log(f"Removed an entry, Total Fault entries:{SIMULATED_FAULTS}\n")
    print(f"memory: {before} KiB, {full} KiB with {MANY_FAULTS} faults, {memory.now()} KiB when they have gone")
    assert full > before + MANY_FAULTS // 2
    wait_until(lambda: memory.now() <= before + LEFT_BEHIND, 5, "memory that is given back")


def test_seconds_to_the_first_answer(start, server):
    began = time.monotonic()
    daemon = start(ServedDaemon, server)
    snmpget(daemon.address, f"{PROCESSOR_DN}.1")
    seconds = time.monotonic() - began
    times = pathlib.Path(f"/proc/{daemon.pid}/stat").read_text().rpartition(") ")[2].split()[11:15]
    processor_seconds = sum(map(int, times)) / os.sysconf("SC_CLK_TCK")
    print(f"first answer after {seconds:.1f} s, with {processor_seconds:.2f} s of processor time")
    assert processor_seconds <= START_UP


def wake_ups(daemon):
    """{thread: how often it has begun to wait}"""
    return {task.name: field(task / "status", "voluntary_ctxt_switches")
            for task in pathlib.Path(f"/proc/{daemon.pid}/task").iterdir()}


@pytest.mark.parametrize("behind_master", [False, True], ids=["stand-alone", "behind a master"])
def test_nothing_wakes_up_at_rest(start, server, behind_master):
    """The refresh thread sleeps through the first minute; afterwards it wakes up every 10 s."""
    settings = {"master": start(Master, ROOT / "host/snmpd-master.conf")} if behind_master else {}
    # Without a limit there are no watchers, which wake up once, half a minute after the last tool.
    daemon = serve(start, server, options=["--tool-timeout", "0"], **settings)
    time.sleep(1)
    before = wake_ups(daemon)
    time.sleep(5)
    woken = {thread: count - before[thread] for thread, count in wake_ups(daemon).items() if count != before[thread]}
    print(f"wake-ups in 5 s: {woken}")
    assert woken == {}
