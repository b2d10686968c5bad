#!/usr/bin/python3
"""master_bench.py [SECONDS...]: what managers see behind snmpd while a table is being rebuilt.

Holds the lock of one table for so many seconds (default: 3 10 25), asks for the table, and asks for another object of
the daemon every 20 ms. Once with each way to configure snmpd and the daemon. Then the same with a SET at the master in
between, with a hold of 10 s.
"""

import pathlib
import shutil
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tests/system"))

from agents import BUILD, TEST_BASE, TEST_MODULES, Daemon, Master  # noqa: E402
from oids import PROCESSOR_DN  # noqa: E402
from udp_manager import GET, SET, UdpManager  # noqa: E402

SHIPPED = (ROOT / "host/snmpd-master.conf").read_text()
DEFAULTS = "master agentx\nagentXSocket /var/agentx/master\n"
WAYS = {
    "snmpd's defaults": (DEFAULTS, []),
    "defaults, --answer-within 800": (DEFAULTS, ["--answer-within", "800"]),
    "host/snmpd-master.conf": (SHIPPED, []),
}
SLOW = f"{PROCESSOR_DN}.7"
FREE = f"{TEST_BASE}.5.0"
SYS_CONTACT = "1.3.6.1.2.1.1.4.0"  # snmpd lets it be written, and refuses a number
SYS_UP_TIME = "1.3.6.1.2.1.1.3.0"
PERIOD = 0.02
AFTERWARDS = 4  # seconds for which the other object is asked after the hold
OCTETS, INTEGER, NO_SUCH_OBJECT = 0x04, 0x02, 0x80


class Agents:
    """snmpd and the daemon behind it, in a directory of their own."""

    def __init__(self, configuration, options):
        self._directory = pathlib.Path(tempfile.mkdtemp(prefix="tavo-"))
        self._running = []
        file = self._directory / "given.conf"
        file.write_text(configuration + "rwcommunity private\n")
        try:
            self.master = Master(self._directory, file)
            self._running.append(self.master)
            self.daemon = Daemon(self._directory, module=TEST_MODULES / "slow_tables.so", master=self.master,
                                 options=options, REAL_MODULE=str(BUILD / "libsnmpextmibmodule.so"))
            self._running.append(self.daemon)
        except BaseException:
            self.__exit__()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for program in reversed(self._running):
            program.stop()
        shutil.rmtree(self._directory, ignore_errors=True)

    def hold(self, seconds):
        self.daemon.order(f"hold ev 41 {seconds}")
        self.daemon.wait_for_log("holding ev 41")


def outcome(response):
    if response is None:
        return "no answer"
    tag = response.varbinds[0][1]
    kind = f"error {response.error}" if response.error else "value" if tag in (OCTETS, INTEGER) else \
        "noSuchObject" if tag == NO_SUCH_OBJECT else f"type {tag:#x}"
    return f"{kind} after {response.seconds:.1f} s"


def measure_hold(way, seconds):
    with Agents(*WAYS[way]) as agents:
        slow, others = UdpManager(agents.master.address), UdpManager(agents.master.address)
        others.ask(GET, FREE)
        agents.hold(seconds)
        begin = time.monotonic()
        question = slow.send(GET, SLOW)
        sent = {}
        while (now := time.monotonic()) < begin + seconds + AFTERWARDS:
            sent[others.send(GET, FREE)] = now
            while (left := now + PERIOD - time.monotonic()) > 0:
                others.receive(left)
            slow.receive()
        slow.receive(1)
        others.receive(2)
        answered = {number: others.responses[number] for number in sent if number in others.responses}
        valued = [number for number, response in answered.items() if response.varbinds[0][1] == INTEGER]
        missing = [sent[number] for number in sent if number not in valued]
        times = sorted(answered[number].seconds for number in valued)
        p99 = times[int(len(times) * 0.99)]
        away = f", from {missing[0] - begin:.1f} s to {missing[-1] - begin:.1f} s" if missing else ""
        print(f"{way}, held {seconds} s: the table: {outcome(slow.responses.get(question))}; the other object: "
              f"{len(valued)} of {len(sent)} values, median {times[len(times) // 2] * 1e3:.1f} ms, p99 {p99 * 1e3:.0f} "
              f"ms; {len(sent) - len(answered)} unanswered, {len(answered) - len(valued)} refused{away}; sessions lost: "
              f"{agents.daemon.log().count('disconnected')}", flush=True)


def measure_set(way, seconds=10):
    with Agents(*WAYS[way]) as agents:
        reader, writer = UdpManager(agents.master.address), UdpManager(agents.master.address, "private")
        agents.hold(seconds)
        slow = reader.send(GET, SLOW)
        time.sleep(0.3)
        write = writer.send(SET, SYS_CONTACT)
        time.sleep(0.1)
        own = reader.send(GET, SYS_UP_TIME)
        deadline = time.monotonic() + seconds + 5
        while (reader.unanswered() or writer.unanswered()) and time.monotonic() < deadline:
            reader.receive(0.05)
            writer.receive(0.05)
        uptime = reader.responses.get(own)
        print(f"{way}, held {seconds} s, a SET after 0.3 s: the table: {outcome(reader.responses.get(slow))}; the SET: "
              f"{outcome(writer.responses.get(write))}; snmpd's own sysUpTime: "
              f"{f'after {uptime.seconds:.1f} s' if uptime else 'no answer'}", flush=True)


def main():
    for way in WAYS:
        for seconds in map(float, sys.argv[1:] or (3, 10, 25)):
            measure_hold(way, seconds)
    for way in WAYS:
        measure_set(way)


if __name__ == "__main__":
    main()
