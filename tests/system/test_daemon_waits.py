"""A request that waits for a table's lock delays only its own answer: the session survives, and signals still work."""

import signal
import threading
import time

import pytest

from agents import ROOT, TEST_BASE, TEST_MODULES, Daemon, Master, snmpget

MASTER_CONFIGURATION = ROOT / "host/snmpd-master.conf"
LOCK_HOLDER = TEST_MODULES / "lock_holder.so"
GUARDED = f"{TEST_BASE}.4.0"
FREE = f"{TEST_BASE}.5.0"
MASTER_UPTIME = "1.3.6.1.2.1.1.3.0"  # served by snmpd itself


def test_lock_held_for_25_s_keeps_the_agentx_session(start):
    master = start(Master, MASTER_CONFIGURATION)
    daemon = start(Daemon, module=LOCK_HOLDER, master=master)
    daemon.order("hold 25")
    daemon.wait_for_log("holding")

    late = {}

    def ask():
        begin = time.monotonic()
        late["answer"] = snmpget(master.address, GUARDED)
        late["seconds"] = time.monotonic() - begin

    manager = threading.Thread(target=ask)
    manager.start()
    daemon.wait_for_log("waiting")
    answered = 0
    while manager.is_alive():
        snmpget(master.address, MASTER_UPTIME)
        answered += 1
        manager.join(0.5)
    print(f"late answer after {late['seconds']:.1f} s; the master answered {answered} times meanwhile")
    assert late["answer"] == [f".{GUARDED} = INTEGER: 42"]
    assert late["seconds"] > 10, "the manager may have asked late, but waits for most of the 25 s"
    assert answered > 3, "a master that waits, too, answers only once"

    for oid, value in ((GUARDED, 42), (FREE, 43)):
        assert snmpget(master.address, oid) == [f".{oid} = INTEGER: {value}"]
    assert "disconnected" not in daemon.log()
    assert daemon.log().count("AgentX subagent connected") == 1


def hold_up(daemon):
    """Makes the daemon's loop wait for a lock, for longer than any test takes."""
    daemon.order("hold 600")
    daemon.wait_for_log("holding")
    threading.Thread(target=snmpget, args=(daemon.address, GUARDED), kwargs={"timeout": 1, "check": False}).start()
    daemon.wait_for_log("waiting")


def test_sigterm_ends_a_daemon_stuck_at_a_lock(start):
    # The daemon gives its last log line half a second, since nobody may be reading the log. A busy machine may need
    # another try.
    for _ in range(3):
        daemon = start(Daemon, module=LOCK_HOLDER)
        hold_up(daemon)
        begin = time.monotonic()
        daemon.signal(signal.SIGTERM)
        assert daemon.wait() == 0
        print(f"exited after {time.monotonic() - begin:.1f} s")
        if "still busy, leaving all the same" in daemon.log():
            return
    pytest.fail("the daemon did not log that its loop was still busy")


def test_second_signal_ends_a_busy_daemon_at_once(start):
    daemon = start(Daemon, module=LOCK_HOLDER)
    hold_up(daemon)
    begin = time.monotonic()
    daemon.signal(signal.SIGTERM)
    time.sleep(0.1)  # lets the first signal arrive before the second
    daemon.signal(signal.SIGINT)
    assert daemon.wait() == 0
    assert time.monotonic() - begin < 7, "one signal alone takes 8 s"
