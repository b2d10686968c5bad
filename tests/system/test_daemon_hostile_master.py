"""An AgentX master that cuts off sessions, or leaves things unanswered, does not keep the daemon busy."""

import pathlib
import time

import pytest

from agents import BUILD, TEST_MODULES, Daemon, wait_until
from fake_master import CUT_OFF, NOTIFY, OPEN, PING, FakeMaster
from server import at_speed

NOTIFIER = TEST_MODULES / "notifier.so"
CONNECTED = "AgentX subagent connected"


@pytest.fixture
def master(directory):
    fake = FakeMaster(directory)
    yield fake
    fake.stop()


def cpu_seconds(daemon):
    fields = pathlib.Path(f"/proc/{daemon.pid}/stat").read_text().rpartition(") ")[2].split()
    return (int(fields[11]) + int(fields[12])) / 100


def test_a_master_that_cuts_off_is_left_alone(start, master):
    master.answer = lambda kind, count: CUT_OFF if kind == OPEN else 0
    daemon = start(Daemon, module=NOTIFIER, master=master)
    time.sleep(8)
    attempts = master.received[OPEN]
    print(f"{attempts} attempts in 8 s")
    assert 2 <= attempts <= 4, "after 1, 2 and 4 s"
    assert "ended the session at once: next attempt in 4 s" in daemon.log()

    master.answer = lambda kind, count: 0
    daemon.wait_for_log(CONNECTED, timeout=10)
    before, used = master.sessions, cpu_seconds(daemon)
    time.sleep(3)
    assert master.sessions == before, "nothing searches any more"
    assert "attempted to be re-opened" not in daemon.log()
    assert cpu_seconds(daemon) - used < 0.3


def test_a_lost_session_is_found_again_within_seconds(start, master):
    daemon = start(Daemon, module=NOTIFIER, master=master)
    daemon.wait_for_log(CONNECTED)
    for count in range(2, 5):
        time.sleep(1.5)
        master.cut_off()
        daemon.wait_for_log(CONNECTED, count=count, timeout=5)


def test_a_burst_that_breaks_off_is_sent_again(start, master):
    """The master cuts off while the daemon waits for room in the socket, which cannot hold a burst of 50."""
    bursts, cuts = [], []

    def answer(kind, count):
        if kind == NOTIFY and len(cuts) < len(bursts):
            cuts.append(count)
            time.sleep(0.2)
            return CUT_OFF
        return 0

    master.answer = answer
    daemon = start(Daemon, module=NOTIFIER, master=master)
    for first in [1, 101, 201]:
        daemon.wait_for_log(CONNECTED, count=len(bursts) + 1)
        time.sleep(1.5)  # a session that ends earlier makes the next attempt wait
        bursts.append(first)
        daemon.order(f"send {first} 100 8000")
    wait_until(lambda: len(set(master.payloads)) == 300, 20, "all notifications")
    assert len(cuts) == 3


def test_a_storm_at_a_deaf_master_costs_no_time(start, master):
    """It opens sessions and registers tables, but cuts off at a ping and acknowledges no notification."""
    master.answer = lambda kind, count: {NOTIFY: None, PING: CUT_OFF}.get(kind, 0)
    daemon = start(Daemon, module=NOTIFIER, master=master, options=["--notification-limit", "3000"],
                   configuration="agentXPingInterval 2\n")
    daemon.order("send 1 3000 100")
    time.sleep(8)
    print(f"{master.received[OPEN]} sessions, {cpu_seconds(daemon):.2f} s of CPU")
    assert master.received[OPEN] <= 9, "one a second"
    assert cpu_seconds(daemon) < 1
    assert daemon.log().count("did not acknowledge") == 0, "what a session leaves is sent again in the next"
    master.answer = lambda kind, count: 0
    master.cut_off()
    wait_until(lambda: len(set(master.payloads)) >= 3000, what="all notifications")


def test_a_slow_master_gets_nothing_twice(start, master):
    master.answer = lambda kind, count: None if kind == NOTIFY else 0
    daemon = start(Daemon, module=NOTIFIER, master=master)
    daemon.wait_for_log(CONNECTED)
    daemon.order("send 1 60 100")
    wait_until(lambda: master.received[NOTIFY] == 50, what="the first burst")
    time.sleep(4)
    assert master.received[NOTIFY] == 50, "neither sent again nor followed by others"


def test_a_refused_notification_is_logged(start, master):
    master.answer = lambda kind, count: 5 if kind == NOTIFY else 0
    daemon = start(Daemon, module=NOTIFIER, master=master)
    daemon.wait_for_log(CONNECTED)
    daemon.order("send 1 1 100")
    daemon.wait_for_log(r"the AgentX master refused a notification \(error 5\)\n")


def test_an_unanswered_notification_is_given_up(start, master):
    """After 60 s on the daemon's clock, and five repetitions."""
    master.answer = lambda kind, count: None if kind == NOTIFY else 0
    daemon = start(Daemon, module=NOTIFIER, master=master, program=[*at_speed(100), BUILD / "snmp-subagentd"])
    daemon.wait_for_log(CONNECTED)
    daemon.order("send 1 60 100")
    wait_until(lambda: len(set(master.payloads)) == 60, what="those behind the first burst")
    assert daemon.log().count("did not acknowledge a notification") >= 10


def test_a_quiet_master_is_not_pinged(start, master):
    """Not over a Unix socket, unless the configuration says so."""
    daemon = start(Daemon, module=NOTIFIER, master=master)
    daemon.wait_for_log(CONNECTED)
    time.sleep(3)
    assert master.received[PING] == 0
    daemon.stop()
    daemon = start(Daemon, module=NOTIFIER, master=master, configuration="agentXPingInterval 2\n")
    wait_until(lambda: master.received[PING] >= 2, 10, "two pings")
