"""A request that waits for a table's lock delays its own answer, and nothing else breaks."""

import signal
import threading
import time

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
        late["answer"] = snmpget(master.address, GUARDED, timeout=60)
        late["seconds"] = time.monotonic() - begin

    manager = threading.Thread(target=ask)
    manager.start()
    daemon.wait_for_log("waiting")
    slowest = 0.0
    asked = 0
    while manager.is_alive():
        begin = time.monotonic()
        snmpget(master.address, OF_THE_MASTER, timeout=5)
        slowest = max(slowest, time.monotonic() - begin)
        asked += 1
        manager.join(0.5)
    print(f"late answer after {late['seconds']:.1f} s; the master answered {asked} times meanwhile, at most {slowest:.2f} s")
    assert late["answer"] == [f".{GUARDED} = INTEGER: 42"]
    assert 20 < late["seconds"] < 27
    assert asked > 20
    assert slowest < 3

    for oid, value in ((GUARDED, 42), (FREE, 43)):
        begin = time.monotonic()
        assert snmpget(master.address, oid) == [f".{oid} = INTEGER: {value}"]
        assert time.monotonic() - begin < 2
    assert "disconnected" not in daemon.log()
    assert daemon.log().count("AgentX subagent connected") == 1


def test_sigterm_ends_a_daemon_whose_loop_waits_for_a_lock(start):
    daemon = start(Daemon, module=LOCK_HOLDER)
    daemon.order("hold 60")
    daemon.wait_for_log("holding")
    threading.Thread(target=snmpget, args=(daemon.address, GUARDED), kwargs={"timeout": 1, "check": False}).start()
    daemon.wait_for_log("waiting")
    begin = time.monotonic()
    daemon.signal(signal.SIGTERM)
    assert daemon.wait() == 0
    print(f"left after {time.monotonic() - begin:.1f} s")
    assert time.monotonic() - begin < 10
    assert "still busy, leaving all the same" in daemon.log()


def test_a_second_signal_ends_a_busy_daemon_at_once(start):
    daemon = start(Daemon, module=LOCK_HOLDER)
    daemon.order("hold 60")
    daemon.wait_for_log("holding")
    threading.Thread(target=snmpget, args=(daemon.address, GUARDED), kwargs={"timeout": 1, "check": False}).start()
    daemon.wait_for_log("waiting")
    begin = time.monotonic()
    daemon.signal(signal.SIGTERM)
    time.sleep(0.1)  # two equal signals sent together may arrive as one
    daemon.signal(signal.SIGINT)
    assert daemon.wait() == 0
    assert time.monotonic() - begin < 3
