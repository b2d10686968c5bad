"""A tool that hangs or prints without end neither blocks the module for ever nor outlives the daemon."""

import os
import pathlib
import random
import re
import signal
import time

import pytest

from agents import TEST_MODULES, Daemon, snmp, wait_until
from oids import OBJECTS
from server import ServedDaemon, Server, children_of

TOOL_RUNNER = TEST_MODULES / "tool_runner.so"
KILLED = int(signal.SIGKILL)  # the status of a tool that was killed


class Hanging:
    """A command that hangs in two processes. No other test has the same."""

    def __init__(self):
        self.word = f"sleep {random.randrange(10**6, 10**9)}"
        self.command = f"{self.word} & {self.word} | cat"

    def is_gone(self):
        for path in pathlib.Path("/proc").glob("[0-9]*/cmdline"):
            try:
                if path.read_bytes().decode(errors="replace").replace("\0", " ").startswith(self.word):
                    return False
            except (FileNotFoundError, ProcessLookupError):
                pass
        return True


def open_descriptors(daemon):
    return sorted(os.readlink(path) for path in pathlib.Path(f"/proc/{daemon.pid}/fd").iterdir())


def test_a_hanging_tool_is_killed_with_its_children(start):
    tool = Hanging()
    daemon = start(Daemon, module=TOOL_RUNNER, options=["--tool-timeout", "1"])
    daemon.order("true")
    daemon.wait_for_log("tool ended with 0\n")  # so the module has its control pipe open
    before = open_descriptors(daemon)
    daemon.order(tool.command)
    daemon.wait_for_log(f"tool ended with {KILLED}\n")
    assert re.search(rf"tool killed after \d\.\d s: {re.escape(tool.command)}\n", daemon.log())
    wait_until(tool.is_gone, what="the end of both processes")
    daemon.order(f"read echo first; {tool.command}")
    daemon.wait_for_log(f"tool printed 6 octets and ended with {KILLED}\n")
    wait_until(tool.is_gone, what="the end of both processes")
    daemon.order("exit 3")
    daemon.wait_for_log(f"tool ended with {3 << 8}\n")
    assert children_of(daemon.pid) == []
    assert open_descriptors(daemon) == before


def test_a_tool_that_prints_without_end_is_killed(start):
    daemon = start(Daemon, module=TOOL_RUNNER)
    daemon.order("read yes")
    daemon.wait_for_log(f"tool printed 1048576 octets and ended with {KILLED}\n")
    assert re.search(r"tool killed after \d+\.\d s and more than 1048576 octets of output: yes\n", daemon.log())


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
@pytest.mark.parametrize("kind", ["", "read "], ids=["system", "popen"])
def test_a_stop_kills_the_tools_that_run(start, number, kind):
    tool = Hanging()
    daemon = start(Daemon, module=TOOL_RUNNER, options=["--tool-timeout", "0"])
    daemon.order(kind + tool.command)
    wait_until(lambda: not tool.is_gone(), what="the tool")
    begin = time.monotonic()
    daemon.signal(number)
    assert daemon.wait() == 0
    assert time.monotonic() - begin < 7, "no more than the usual stop"
    wait_until(tool.is_gone, what="the end of the tool")


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_a_stop_ends_a_start_that_waits_for_a_tool(start, number):
    tool = Hanging()
    daemon = start(Daemon, module=TOOL_RUNNER, ready=False, TEST_MODULE_START_COMMAND=tool.command)
    wait_until(lambda: not tool.is_gone(), what="the tool")
    begin = time.monotonic()
    daemon.signal(number)
    assert daemon.wait() == 0
    assert time.monotonic() - begin < 7, "the daemon waits 8 s for a start that goes on"
    reason = "because the daemon stops"
    assert re.search(rf"tool killed after \d+\.\d s {reason}: {re.escape(tool.command)}\n", daemon.log())
    wait_until(tool.is_gone, what="the end of the tool")


def test_a_hanging_platform_tool_costs_its_table(start):
    server = start(Server)
    server.ctl("tool", "slotutil", "slow", "600")
    daemon = start(ServedDaemon, server, options=["--tool-timeout", "2"])
    assert re.search(r'tool killed after \d\.\d s: slotutil -L  \| grep "slot-number" \| wc -l\n', daemon.log())
    processors = f"{OBJECTS}.41.9"
    assert len(snmp("snmpbulkwalk", daemon.address, f"{processors}.1.2")) == 2
