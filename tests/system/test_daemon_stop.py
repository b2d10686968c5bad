"""The daemon's stop, and what it does on SIGTERM, SIGINT, SIGHUP, SIGUSR1 and SIGPIPE."""

import ctypes
import os
import pathlib
import re
import signal
import time

import pytest

from agents import ROOT, TEST_MODULES, Daemon, Master, wait_until
from server import ServedDaemon, Server

MASTER_CONFIGURATION = ROOT / "host/snmpd-master.conf"
STOPPING = TEST_MODULES / "stopping.so"
TOOK_SIGUSR1 = f"test thread took signal {signal.SIGUSR1.value}"


def calls(daemon):
    """The module's functions that the daemon has called, in order."""
    return re.findall(r"called (\w+)", daemon.log())


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_stop_functions_run_in_order_before_the_close(start, number):
    daemon = start(Daemon, module=STOPPING)
    daemon.wait_for_log("test thread waits")
    daemon.signal(number)
    assert daemon.wait() == 0
    # This module has no stop_stor_thread; the daemon skips it.
    assert calls(daemon) == ["init_subagent_modules", "stop_test_trap_thread", "stop_FE_thread",
                             "stop_inventory_thread", "stop_velt_thread", "close_subagent_modules"]
    # The test thread checks its run flag only after a signal, so the daemon sends it one.
    assert daemon.log().count(TOOK_SIGUSR1) == 1
    assert "joined the test thread" in daemon.log()
    daemon.wait_for_state("STOPPING=1")


def test_the_sd_card_thread_is_woken(start):
    """It sleeps until a peer connects to its socket, and the daemon is one. Waking, it logs that nothing was said."""
    server = start(Server)
    daemon = start(ServedDaemon, server, 20)
    wait_until(lambda: server.run("test", "-S", "/tmp/snmp_velt_sock", check=False).returncode == 0, what="the socket")
    woken = "velt_thread:recv() failed"
    assert woken not in daemon.log()
    daemon.signal(signal.SIGTERM)
    assert daemon.wait() == 0
    assert woken in daemon.log()


@pytest.mark.parametrize("behind_a_master", [False, True])
def test_stuck_thread_does_not_keep_the_daemon(start, behind_a_master):
    master = start(Master, MASTER_CONFIGURATION) if behind_a_master else None
    daemon = start(Daemon, module=STOPPING, master=master, options=["-p", "pid"], TEST_MODULE_STUCK="1")
    begin = time.monotonic()
    daemon.signal(signal.SIGTERM)
    assert daemon.wait() == 0
    seconds = time.monotonic() - begin
    print(f"exited after {seconds:.1f} s")
    assert seconds > 4, "the module's threads have 5 s to end"
    assert not (daemon.directory / "pid").exists()
    assert "leaving without it" in daemon.log()


def test_every_sigusr1_reaches_the_test_thread(start):
    daemon = start(Daemon, module=STOPPING)
    for count in range(1, 4):
        daemon.signal(signal.SIGUSR1)
        daemon.wait_for_log(TOOK_SIGUSR1, count=count)


def test_sigusr1_without_a_test_thread_is_harmless(start):
    daemon = start(Daemon, module=TEST_MODULES / "notifier.so")
    daemon.signal(signal.SIGUSR1)
    daemon.order("send 1 1 1")
    daemon.wait_for_log("sent number 1")
    daemon.signal(signal.SIGTERM)
    assert daemon.wait() == 0


def test_sigusr1_is_blocked_in_every_thread(start):
    # A module without a test thread: while that thread waits for the signal, the kernel shows it as unblocked there.
    daemon = start(Daemon, module=TEST_MODULES / "notifier.so")
    masks = [int(re.search(r"SigBlk:\s*(\w+)", status.read_text()).group(1), 16)
             for status in (ROOT / f"/proc/{daemon.pid}/task").glob("*/status")]
    assert len(masks) >= 3
    assert all(mask & 1 << (signal.SIGUSR1 - 1) for mask in masks)


def signal_thread(daemon, number):
    """Sends a signal to a thread other than the loop's, which the signal itself would wake."""
    def takes_it(task):
        blocked = int(re.search(r"SigBlk:\s*(\w+)", (task / "status").read_text()).group(1), 16)
        return int(task.name) != daemon.pid and not blocked & 1 << (number - 1)
    thread = int(next(filter(takes_it, pathlib.Path(f"/proc/{daemon.pid}/task").iterdir())).name)
    tgkill = {"x86_64": 234, "aarch64": 131}.get(os.uname().machine)
    if tgkill is None:
        pytest.skip(f"no number of the system call tgkill for {os.uname().machine}")
    assert ctypes.CDLL(None).syscall(tgkill, daemon.pid, thread, int(number)) == 0


def test_sighup_wakes_the_loop_from_any_thread(start):
    daemon = start(Daemon, module=STOPPING)
    signal_thread(daemon, signal.SIGHUP)
    daemon.wait_for_state("READY=1", count=2, timeout=10)


def test_sighup_opens_the_log_file_again(start, directory):
    daemon = start(Daemon, module=TEST_MODULES / "notifier.so", options=["-Lf", "daemon.txt"])
    (directory / "daemon.txt").rename(directory / "daemon.txt.1")
    daemon.signal(signal.SIGHUP)
    daemon.wait_for_state("READY=1", count=2)
    daemon.order("send 1 1 1")
    new_log = directory / "daemon.txt"
    wait_until(lambda: new_log.exists() and "sent number 1" in new_log.read_text(), what="a line in the new file")


def test_sighup_without_master_opens_one_session_later(start):
    master = start(Master, MASTER_CONFIGURATION)
    daemon = start(Daemon, module=STOPPING, master=master)
    master.kill()
    daemon.wait_for_log("AgentX master disconnected us")
    daemon.signal(signal.SIGHUP)
    daemon.wait_for_state("READY=1", count=2)
    start(Master, MASTER_CONFIGURATION, udp_port=master.port)
    daemon.wait_for_log("AgentX subagent connected", count=2)
    daemon.signal(signal.SIGHUP)
    daemon.wait_for_state("READY=1", count=3)
    second_session = "attempted to be re-opened"  # would be logged when the daemon next looks for a master, after 1 s
    with pytest.raises(AssertionError, match="not within"):
        daemon.wait_for_log(second_session, timeout=2.5)
    # A busy loop may not have looked for a master yet. It has once it has handled another signal.
    daemon.signal(signal.SIGHUP)
    daemon.wait_for_state("READY=1", count=4)
    assert second_session not in daemon.log()


def test_sigterm_ends_a_daemon_with_a_blocked_log(start, directory):
    reader, writer = os.pipe()
    daemon = start(Daemon, module=TEST_MODULES / "notifier.so", options=["-Lf", f"/proc/{os.getpid()}/fd/{writer}"])
    daemon.order("send 1 50000 1")
    # Once the pipe is full, the other log stops growing.
    sizes = [-1]
    def pipe_is_full():
        sizes.append(os.path.getsize(daemon.log_file))
        return sizes[-1] == sizes[-2] and sizes[-1] > 60_000
    wait_until(pipe_is_full, what="a full pipe")
    begin = time.monotonic()
    daemon.signal(signal.SIGTERM)
    assert daemon.wait() == 0
    print(f"exited after {time.monotonic() - begin:.1f} s")
    os.close(reader)
    os.close(writer)


def test_vanished_master_does_not_kill_the_daemon(start):
    master = start(Master, MASTER_CONFIGURATION)
    daemon = start(Daemon, module=STOPPING, master=master)
    daemon.signal(signal.SIGPIPE)
    master.kill()
    daemon.wait_for_log("AgentX master disconnected us")
    start(Master, MASTER_CONFIGURATION, udp_port=master.port)
    daemon.wait_for_log("AgentX subagent connected", count=2)
    daemon.signal(signal.SIGTERM)
    assert daemon.wait() == 0


def test_daemon_connects_to_a_master_that_comes_late(start, directory):
    class Absent:
        address = None
        agentx = f"unix:{directory}/agentx"

    daemon = start(Daemon, module=STOPPING, master=Absent)
    begin = time.monotonic()
    start(Master, MASTER_CONFIGURATION)
    daemon.wait_for_log("AgentX subagent connected")
    print(f"connected after {time.monotonic() - begin:.1f} s")
    assert time.monotonic() - begin < 12, "it takes a second or two; net-snmp on its own looks every 15 s"
    daemon.wait_for_state(f"STATUS=serving through {Absent.agentx}")
