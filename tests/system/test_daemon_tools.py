"""What a shell command of the module inherits from the daemon: no descriptors, and default signal dispositions."""

import re
import signal
import socket

import pytest

from agents import ROOT, TEST_BASE, TEST_MODULES, Daemon, Master, free_port
from udp_manager import GET, message, pdu

MASTER_CONFIGURATION = ROOT / "host/snmpd-master.conf"


def tool_output(daemon, command):
    """Has the module run a shell command. Returns its output."""
    output = daemon.directory / "tool.txt"
    daemon.order(f"{command} > {output} 2>/dev/null")
    daemon.wait_for_log("tool ended")
    return output.read_text()


def bit(number):
    """The signal's bit in a mask of /proc/PID/status."""
    return 1 << (number - 1)


@pytest.mark.parametrize("behind_a_master", [False, True])
def test_tool_inherits_no_descriptor(start, behind_a_master):
    master = start(Master, MASTER_CONFIGURATION) if behind_a_master else None
    daemon = start(Daemon, module=TEST_MODULES / "tool_runner.so", master=master,
                   options=["-Lf", "more.log"] if behind_a_master else [])
    lines = tool_output(daemon, "ls -l /proc/self/fd").splitlines()
    open_descriptors = {int(number): target for number, target in re.findall(r" (\d+) -> (\S+)", "\n".join(lines))}
    # ls has the directory open that it lists, and the test module the pipe from which it reads its orders.
    beyond = {number: target for number, target in open_descriptors.items()
              if number > 2 and not target.startswith("/proc/") and target != str(daemon.control)}
    assert 0 in open_descriptors
    assert not any("socket" in target for target in open_descriptors.values())
    assert beyond == {}


def test_tool_inherits_neither_a_manager_nor_a_new_log(start):
    port = free_port(socket.SOCK_STREAM)
    daemon = start(Daemon, module=TEST_MODULES / "tool_runner.so",
                   options=["-Lf", "more.log", "--listen", f"tcp:127.0.0.1:{port}"])
    with socket.create_connection(("127.0.0.1", port)) as manager:
        manager.sendall(message(pdu(GET, 1, [TEST_BASE])))
        assert manager.recv(1000)
        daemon.signal(signal.SIGHUP)
        daemon.wait_for_state("READY=1", count=2)
        listing = tool_output(daemon, "ls -l /proc/self/fd")
        assert "socket" not in listing and "more.log" not in listing


def test_tool_has_default_signal_dispositions(start):
    daemon = start(Daemon, module=TEST_MODULES / "tool_runner.so")
    status = tool_output(daemon, "cat /proc/self/status")
    ignored = int(re.search(r"SigIgn:\s*(\w+)", status).group(1), 16)
    assert ignored & bit(signal.SIGPIPE) == 0, "SIGPIPE must end a tool whose reader is gone"
    blocked = int(re.search(r"SigBlk:\s*(\w+)", status).group(1), 16)
    assert blocked & ~bit(signal.SIGUSR1) == 0, "only SIGUSR1 may be blocked"
