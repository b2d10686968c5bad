"""The master or the daemon is killed or stopped while requests wait for a table: everything else is answered afterwards.

TAVO_ROUNDS is the number of rounds of each kind (default: 1).
"""

import os
import signal
import time

import pytest

from agents import BUILD, ROOT, TEST_BASE, TEST_MODULES, Daemon, Master
from oids import OBJECTS, PROCESSOR_DN
from udp_manager import GET, GET_NEXT, UdpManager

MASTER_CONFIGURATION = ROOT / "host/snmpd-master.conf"
ROUNDS = int(os.environ.get("TAVO_ROUNDS", "1"))
FREE = f"{TEST_BASE}.5.0"
OTHER_TABLE = f"{OBJECTS}.45.1.1.2.1"
OCTETS, INTEGER = 0x04, 0x02
ROWS = 8  # for which requests wait
HOLD = 3  # seconds
WATCHED = 1.5  # seconds after the return in which the others are asked


class Pair:
    """A master and the daemon behind it."""

    def __init__(self, start):
        self._start = start
        self.master = start(Master, MASTER_CONFIGURATION)
        self.start_daemon()

    def start_daemon(self):
        self.daemon = self._start(Daemon, module=TEST_MODULES / "slow_tables.so", master=self.master,
                                  REAL_MODULE=str(BUILD / "libsnmpextmibmodule.so"))
        self._holds = 0  # by this daemon

    def hold(self):
        self._holds += 1
        self.daemon.order(f"hold ev 41 {HOLD}")
        self.daemon.wait_for_log("holding ev 41", count=self._holds)

    def wait_for_release(self):
        self.daemon.wait_for_log("releasing ev 41", count=self._holds)

    def restart(self, victim, number):
        """Ends one of the two with this signal and starts it again. Returns when the daemon serves again."""
        if victim == "master":
            serving = f"STATUS=serving through {self.master.agentx}"
            served = self.daemon.states.count(serving)
            self.master.signal(number)
            self.master.wait()
            self.master = self._start(Master, MASTER_CONFIGURATION, udp_port=self.master.port)
            self.daemon.wait_for_state(serving, count=served + 1)
        else:
            self.daemon.signal(number)
            self.daemon.wait()
            self.daemon.stop()
            self.start_daemon()


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGKILL], ids=["stopped", "killed"])
@pytest.mark.parametrize("victim", ["master", "daemon"])
def test_others_are_answered_after_a_restart(start, victim, number):
    pair = Pair(start)
    for _ in range(ROUNDS):
        pair.hold()
        lost = UdpManager(pair.master.address)
        for row in range(1, ROWS + 1):
            lost.send(GET, f"{PROCESSOR_DN}.{row}")
        lost.send(GET_NEXT, PROCESSOR_DN)
        lost.send(GET, f"{PROCESSOR_DN}.1", OTHER_TABLE)
        assert not lost.receive(0.1), "they wait for the lock"
        pair.restart(victim, number)
        if victim == "daemon":
            pair.hold()

        # snmpd numbers its requests from 1 again: these have the numbers of those that waited.
        slow, others = UdpManager(pair.master.address), UdpManager(pair.master.address)
        questions = {slow.send(GET, f"{PROCESSOR_DN}.{row}"): row for row in range(ROWS, 0, -1)}
        begin = time.monotonic()
        asked = []
        while time.monotonic() < begin + WATCHED:
            for name in (FREE, OTHER_TABLE):
                asked.append(others.send(GET, name))
            time.sleep(0.02)
            others.receive()
        others.receive(3)
        seconds = sorted(response.seconds for response in others.responses.values())
        print(f"{len(asked)} asked, {len(others.unanswered())} unanswered, longest {seconds[-1] * 1e3:.0f} ms")
        assert not others.unanswered()
        assert {response.varbinds[0][1] for response in others.responses.values()} == {INTEGER, OCTETS}
        slow.receive(HOLD + 5)
        assert {question: response.varbinds for question, response in slow.responses.items()} == {
            question: [(f"{PROCESSOR_DN}.{row}", OCTETS, f"sys/rack-unit-1/board/cpu-{row}".encode())]
            for question, row in questions.items()}
        pair.wait_for_release()
    assert "attempted to be re-opened" not in pair.daemon.log()
