"""What a shell command that the module runs inherits from the daemon."""

import re

import pytest

from agents import ROOT, TEST_MODULES, Daemon, Master

MASTER_CONFIGURATION = ROOT / "host/snmpd-master.conf"


def tool_output(daemon, command):
    output = daemon.directory / "tool.txt"
    daemon.order(f"{command} > {output} 2>/dev/null")
    daemon.wait_for_log("tool ended")
    return output.read_text()


@pytest.mark.parametrize("behind_a_master", [False, True])
def test_a_tool_inherits_no_descriptor(start, behind_a_master):
    master = start(Master, MASTER_CONFIGURATION) if behind_a_master else None
    daemon = start(Daemon, module=TEST_MODULES / "tool_runner.so", master=master,
                   options=["-Lf", "more.log"] if behind_a_master else [])
    lines = tool_output(daemon, "ls -l /proc/self/fd").splitlines()
    open_descriptors = {int(number): target for number, target in re.findall(r" (\d+) -> (\S+)", "\n".join(lines))}
    # `ls` itself opens the directory that it lists, the test module the pipe with its orders.
    beyond = {number: target for number, target in open_descriptors.items()
              if number > 2 and not target.startswith("/proc/") and target != str(daemon.control)}
    assert 0 in open_descriptors
    assert not any("socket" in target for target in open_descriptors.values())
    assert beyond == {}


def test_a_tool_has_the_default_signal_dispositions(start):
    daemon = start(Daemon, module=TEST_MODULES / "tool_runner.so")
    status = tool_output(daemon, "cat /proc/self/status")
    ignored = int(re.search(r"SigIgn:\s*(\w+)", status).group(1), 16)
    assert ignored & 1 << 12 == 0, "SIGPIPE must end a tool whose reader has gone"
    blocked = int(re.search(r"SigBlk:\s*(\w+)", status).group(1), 16)
    assert blocked & ~(1 << 9) == 0, "only SIGUSR1 may be blocked"
