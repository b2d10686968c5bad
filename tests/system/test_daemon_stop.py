"""How the daemon stops a module, and what signals do."""

import os
import re
import signal
import time

import pytest

from agents import ROOT, TEST_MODULES, Daemon, Master, wait_until

MASTER_CONFIGURATION = ROOT / "host/snmpd-master.conf"
STOPPING = TEST_MODULES / "stopping.so"


def calls(daemon):
    return re.findall(r"called (\w+)", daemon.log())


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_the_stop_functions_are_called_in_order_then_the_module_is_closed(start, number):
    daemon = start(Daemon, module=STOPPING)
    daemon.wait_for_log("test thread waits")
    daemon.signal(number)
    assert daemon.wait() == 0
    # stop_stor_thread is absent from this module, which is no reason to stumble.
    assert calls(daemon) == ["init_subagent_modules", "stop_test_trap_thread", "stop_FE_thread",
                             "stop_inventory_thread", "stop_velt_thread", "close_subagent_modules"]
    # The test thread looks at its flag only after a signal: the daemon sent it one.
    assert daemon.log().count("test thread took signal 10") == 1
    assert "joined the test thread" in daemon.log()
    daemon.wait_for_state("STOPPING=1")


@pytest.mark.parametrize("behind_a_master", [False, True])
def test_a_thread_that_never_ends_does_not_keep_the_daemon(start, behind_a_master):
    master = start(Master, MASTER_CONFIGURATION) if behind_a_master else None
    daemon = start(Daemon, module=STOPPING, master=master, options=["-p", "pid"], TEST_MODULE_STUCK="1")
    begin = time.monotonic()
    daemon.signal(signal.SIGTERM)
    assert daemon.wait() == 0
    seconds = time.monotonic() - begin
    print(f"left after {seconds:.1f} s")
    assert seconds > 4
    assert "leaving without it" in daemon.log()


def test_every_sigusr1_reaches_the_test_notification_thread(start):
    daemon = start(Daemon, module=STOPPING)
    for count in range(1, 4):
        daemon.signal(signal.SIGUSR1)
        daemon.wait_for_log("test thread took signal 10", count=count)


def test_sigusr1_without_a_test_thread_is_harmless(start):
    daemon = start(Daemon, module=TEST_MODULES / "notifier.so")
    daemon.signal(signal.SIGUSR1)
    daemon.order("send 1 1 1")
    daemon.wait_for_log("sent number 1")
    daemon.signal(signal.SIGTERM)
    assert daemon.wait() == 0


def test_sigusr1_is_blocked_in_every_thread(start):
    # Not in the module with a test thread: while that waits for the signal, the kernel shows it as not blocked.
    daemon = start(Daemon, module=TEST_MODULES / "notifier.so")
    masks = [int(re.search(r"SigBlk:\s*(\w+)", status.read_text()).group(1), 16)
             for status in (ROOT / f"/proc/{daemon.pid}/task").glob("*/status")]
    assert len(masks) >= 3
    assert all(mask & 1 << (signal.SIGUSR1 - 1) for mask in masks)


def test_sighup_opens_the_log_file_again(start, directory):
    daemon = start(Daemon, module=TEST_MODULES / "notifier.so", options=["-Lf", "daemon.txt"])
    (directory / "daemon.txt").rename(directory / "daemon.txt.1")
    daemon.signal(signal.SIGHUP)
    daemon.wait_for_state("READY=1", count=2)
    daemon.order("send 1 1 1")
    wait_until(lambda: (directory / "daemon.txt").exists() and "sent number 1" in (directory / "daemon.txt").read_text(),
               what="a line in the new file")


def test_sighup_while_the_master_is_away_leaves_one_session_after_its_return(start):
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
    second_session = "attempted to be re-opened"  # would come with the next look for a master, a second later
    with pytest.raises(AssertionError, match="not within"):
        daemon.wait_for_log(second_session, timeout=2.5)
    # A loop that had no time to look has had it when it has taken another signal.
    daemon.signal(signal.SIGHUP)
    daemon.wait_for_state("READY=1", count=4)
    assert second_session not in daemon.log()


def test_sigterm_ends_a_daemon_whose_log_nobody_reads(start, directory):
    reader, writer = os.pipe()
    daemon = start(Daemon, module=TEST_MODULES / "notifier.so", options=["-Lf", f"/proc/{os.getpid()}/fd/{writer}"])
    daemon.order("send 1 50000 1")
    # The pipe is full when the number sent stands still.
    sent = [-1]
    def stands_still():
        sent.append(os.path.getsize(daemon.log_file))
        return sent[-1] == sent[-2] and sent[-1] > 60_000
    wait_until(stands_still, what="a full pipe")
    begin = time.monotonic()
    daemon.signal(signal.SIGTERM)
    assert daemon.wait() == 0
    print(f"left after {time.monotonic() - begin:.1f} s")
    os.close(reader)
    os.close(writer)


def test_a_vanished_master_does_not_kill_the_daemon(start):
    master = start(Master, MASTER_CONFIGURATION)
    daemon = start(Daemon, module=STOPPING, master=master)
    daemon.signal(signal.SIGPIPE)
    master.kill()
    daemon.wait_for_log("AgentX master disconnected us")
    start(Master, MASTER_CONFIGURATION, udp_port=master.port)
    daemon.wait_for_log("AgentX subagent connected", count=2)
    daemon.signal(signal.SIGTERM)
    assert daemon.wait() == 0


def test_it_starts_without_a_master_and_connects_when_one_comes(start, directory):
    class Absent:
        address = None
        agentx = f"unix:{directory}/agentx"

    daemon = start(Daemon, module=STOPPING, master=Absent)
    begin = time.monotonic()
    start(Master, MASTER_CONFIGURATION)
    daemon.wait_for_log("AgentX subagent connected")
    print(f"connected after {time.monotonic() - begin:.1f} s")
    assert time.monotonic() - begin < 12, "a second or two, not net-snmp's own 15 s"
    daemon.wait_for_state(f"STATUS=serving through {Absent.agentx}")
