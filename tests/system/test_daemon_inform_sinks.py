"""Informs: one manager that does not acknowledge costs the daemon no memory, and the other managers nothing."""

import contextlib
import pathlib
import re
import signal
import socket

from agents import TEST_BASE, TEST_MODULES, Daemon, TrapCollector, snmpget, wait_until
from datagrams import INFORM, Collector, varbinds
from oids import DAEMON_BASE
from udp_manager import RESPONSE

NOTIFIER = TEST_MODULES / "notifier.so"
NUMBER = f"{TEST_BASE}.2.0"
UNDELIVERED = f"{DAEMON_BASE}.1.3.6.0"


def numbers(collector):
    return [varbinds(datagram)[NUMBER] for datagram in list(collector.datagrams)]


def memory(daemon, line):
    """A figure of the process in KiB: VmRSS, or VmHWM for its peak."""
    status = pathlib.Path(f"/proc/{daemon.pid}/status").read_text()
    return int(re.search(rf"{line}:\s*(\d+) kB", status).group(1))


def silent_socket():
    """A socket that takes datagrams and answers none."""
    silent = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    silent.bind(("127.0.0.1", 0))
    return silent, f"udp:127.0.0.1:{silent.getsockname()[1]}"


def start_with_sinks(start, *lines):
    return start(Daemon, module=NOTIFIER, configuration="".join(line + "\n" for line in lines))


def test_a_silent_sink_costs_neither_memory_nor_others(start):
    silent, address = silent_socket()
    collector = Collector()
    try:
        daemon = start_with_sinks(start, f"informsink {address} public", f"trap2sink {collector.destination} public")
        daemon.order("send 1 100 960")
        wait_until(lambda: len(collector.datagrams) == 100, what="the first notifications")
        before = memory(daemon, "VmRSS")
        daemon.order("send 101 20000 960")
        wait_until(lambda: len(collector.datagrams) == 20_100, what="all of them at the other manager")
        assert numbers(collector) == list(range(1, 20_101))
        # Of 20,000 notifications of 1.2 KiB, those in the queue (2,048 at most) and 50 at net-snmp.
        print(f"memory {before} KiB, peak {memory(daemon, 'VmHWM')} KiB, now {memory(daemon, 'VmRSS')} KiB")
        assert memory(daemon, "VmHWM") < before + 32 * 1024
        wait_until(lambda: memory(daemon, "VmRSS") < before + 4 * 1024, what="memory that is given back")
        daemon.wait_for_log(rf"UDP: \[127.0.0.1\]:{silent.getsockname()[1]}.* does not acknowledge informs")
        daemon.wait_for_log(r"\d+ notifications to UDP: \[127.0.0.1\].* lost")
        assert snmpget(daemon.address, f"{TEST_BASE}.1.0")
        assert int(snmpget(daemon.address, UNDELIVERED, options=["-Oqv"])[0]) >= 19_000
        daemon.stop()
        lost = [int(count) for count in re.findall(r"lost, (\d+) since", daemon.log())]
        assert lost[-1] >= 19_000, "the last line says how many there were in all"
        assert len(daemon.log().split("notifications to UDP")) < 6, "not a line for each"
    finally:
        collector.stop()
        silent.close()


def test_a_sink_that_acknowledges_gets_a_whole_burst(start):
    collector = start(TrapCollector)
    daemon = start_with_sinks(start, f"informsink {collector.destination} public")
    daemon.order("send 1 5000 960")
    wait_until(lambda: len(collector.received()) >= 5000, what="all informs")
    seen = [int(number) for number in re.findall(rf"{re.escape(NUMBER)} = Gauge32: (\d+)", collector.log())]
    assert seen == list(range(1, 5001))
    assert "lost" not in daemon.log()


@contextlib.contextmanager
def silent_sink_of_200(start, timeout):
    """A socket that is to acknowledge by hand, and a daemon that sends it informs, from number 1 to 200."""
    silent, address = silent_socket()
    silent.settimeout(timeout)
    with silent:
        daemon = start_with_sinks(start, f"informsink {address} public")
        daemon.order("send 1 200 10")
        yield silent, daemon


def acknowledge(silent):
    """Acknowledges one inform, and returns its number."""
    datagram, sender = silent.recvfrom(65536)
    at = datagram.index(bytes([INFORM]), 10)  # a response has the same content behind another tag
    silent.sendto(datagram[:at] + bytes([RESPONSE]) + datagram[at + 1:], sender)
    return varbinds(datagram)[NUMBER]


def test_a_sink_that_comes_back_gets_what_follows(start):
    with silent_sink_of_200(start, timeout=10) as (silent, daemon):
        daemon.wait_for_log("does not acknowledge informs")
        while "takes notifications again" not in daemon.log():
            acknowledge(silent)
        assert re.search(r"takes notifications again: \d+ were lost", daemon.log())
        daemon.order("send 201 100 10")
        wanted = set(range(201, 301))
        while wanted:
            wanted.discard(acknowledge(silent))


def test_informs_that_are_given_up_make_room(start):
    with silent_sink_of_200(start, timeout=20) as (silent, daemon):
        wait_until(lambda: snmpget(daemon.address, UNDELIVERED, options=["-Oqv"]) == ["200"], 60, "the end of all")
        daemon.order("send 201 1 10")
        while acknowledge(silent) != 201:
            pass
        daemon.wait_for_log("takes notifications again")


def test_a_stop_sends_what_is_still_queued(start):
    with silent_sink_of_200(start, timeout=5) as (silent, daemon):
        daemon.wait_for_log("sent number 200\n")
        daemon.signal(signal.SIGTERM)
        daemon.wait_for_log("stopping")
        seen = set()
        while seen != set(range(1, 201)):
            seen.add(acknowledge(silent))
        assert daemon.wait() == 0


def test_the_context_reaches_the_manager(start):
    """Only SNMPv3 carries one."""
    with contextlib.closing(silent_socket()[0]) as silent:
        silent.settimeout(10)
        daemon = start_with_sinks(
            start, "createUser tavo", "trapsess -v3 -e 0x8000f00d0300002a6b7c8d01 -u tavo -l noAuthNoPriv "
            f"udp:127.0.0.1:{silent.getsockname()[1]}")
        daemon.order("kinds")
        datagrams = [silent.recv(65536) for _ in range(4)]
        assert [b"0x8000F00D0300002A6B7C8D01" in datagram for datagram in datagrams] == [False, False, False, True]
