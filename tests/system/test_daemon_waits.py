"""A request that waits for a table's lock delays its own answer, and nothing else breaks."""

import signal
import threading
import time

import pytest

from agents import ROOT, TEST_BASE, TEST_MODULES, Daemon, Master, snmpget

MASTER_CONFIGURATION = ROOT / "host/snmpd-master.conf"
LOCK_HOLDER = TEST_MODULES / "lock_holder.so"
GUARDED = f"{TEST_BASE}.4.0"
FREE = f"{TEST_BASE}.5.0"
OF_THE_MASTER = "1.3.6.1.2.1.1.3.0"


def test_a_lock_held_for_25_seconds_makes_a_late_answer_and_keeps_the_session(start):
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
        snmpget(master.address, OF_THE_MASTER)
        answered += 1
        manager.join(0.5)
    print(f"late answer after {late['seconds']:.1f} s; the master answered {answered} times meanwhile")
    assert late["answer"] == [f".{GUARDED} = INTEGER: 42"]
    assert late["seconds"] > 10, "most of the 25 s, however late the manager asked"
    assert answered > 3, "a master that waits as well answers once"

    for oid, value in ((GUARDED, 42), (FREE, 43)):
        assert snmpget(master.address, oid) == [f".{oid} = INTEGER: {value}"]
    assert "disconnected" not in daemon.log()
    assert daemon.log().count("AgentX subagent connected") == 1


def hold_up(daemon):
    """Makes the daemon's loop wait for a lock, longer than any test does."""
    daemon.order("hold 600")
    daemon.wait_for_log("holding")
    threading.Thread(target=snmpget, args=(daemon.address, GUARDED), kwargs={"timeout": 1, "check": False}).start()
    daemon.wait_for_log("waiting")


def test_sigterm_ends_a_daemon_whose_loop_waits_for_a_lock(start):
    # Its last line has half a second, since nobody may be reading the log: too little where no core is free.
    for _ in range(3):
        daemon = start(Daemon, module=LOCK_HOLDER)
        hold_up(daemon)
        begin = time.monotonic()
        daemon.signal(signal.SIGTERM)
        assert daemon.wait() == 0
        print(f"left after {time.monotonic() - begin:.1f} s")
        if "still busy, leaving all the same" in daemon.log():
            return
    pytest.fail("the daemon did not say that it left all the same")


def test_a_second_signal_ends_a_busy_daemon_at_once(start):
    daemon = start(Daemon, module=LOCK_HOLDER)
    hold_up(daemon)
    begin = time.monotonic()
    daemon.signal(signal.SIGTERM)
    time.sleep(0.1)  # two equal signals sent together may arrive as one
    daemon.signal(signal.SIGINT)
    assert daemon.wait() == 0
    assert time.monotonic() - begin < 7, "the first signal alone takes 8 s"
