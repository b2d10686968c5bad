"""Peers over TCP that do not read, or go away: they hold up neither the daemon nor anybody else."""

import contextlib
import re
import signal
import socket
import threading
import time

from agents import TEST_BASE, TEST_MODULES, Daemon, free_port, snmpget, wait_until
from datagrams import Collector, element, varbinds
from udp_manager import GET_BULK, message, pdu

NOTIFIER = TEST_MODULES / "notifier.so"
NUMBER = f"{TEST_BASE}.2.0"
SENT = f"{TEST_BASE}.1.0"


@contextlib.contextmanager
def listener(buffer=4096):
    """A listening socket with a small buffer, and its address in the words of a configuration."""
    with socket.socket() as listening:
        listening.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, buffer)
        listening.bind(("127.0.0.1", 0))
        listening.listen()
        listening.settimeout(10)
        yield listening, f"tcp:127.0.0.1:{listening.getsockname()[1]}"


@contextlib.contextmanager
def collector():
    collecting = Collector()
    try:
        yield collecting
    finally:
        collecting.stop()


def start_with_sinks(start, *addresses):
    return start(Daemon, module=NOTIFIER, configuration="".join(f"trap2sink {address} public\n"
                                                                for address in addresses))


def answers_at_once(daemon, sent):
    begin = time.monotonic()
    assert snmpget(daemon.address, SENT, timeout=10) == [f".{SENT} = INTEGER: {sent}"]
    return time.monotonic() - begin


class Reader:
    """Reads notifications from a connection, at most `rate` octets a second. Keeps their numbers."""

    def __init__(self, connection, rate):
        self.numbers = []
        self._connection = connection
        self._rate = rate
        self._thread = threading.Thread(target=self._read)
        self._thread.start()

    def _read(self):
        octets = b""
        while piece := self._connection.recv(self._rate // 100):
            octets += piece
            while len(octets) > 4 and len(octets) >= (end := element(octets)[2]):
                self.numbers.append(varbinds(octets[:end])[NUMBER])
                octets = octets[end:]
            time.sleep(0.01)

    def join(self):
        self._thread.join()


def test_a_sink_that_does_not_read_holds_up_nobody(start):
    with listener() as (listening, address), collector() as other:
        daemon = start_with_sinks(start, address, other.destination)
        deaf, _ = listening.accept()
        daemon.order("send 1 15000 960")
        daemon.wait_for_log("does not read: what it has no room for is dropped")
        wait_until(lambda: len(other.datagrams) == 15_000, what="all of them at the other manager")
        assert answers_at_once(daemon, 15_000) < 5
        begin = time.monotonic()
        assert daemon.stop() == 0
        assert time.monotonic() - begin < 5
        assert re.search(r"[1-9]\d* notifications to TCP: \[127.0.0.1\].* lost", daemon.log())
        deaf.close()


def test_a_sink_that_reads_again_gets_what_follows(start):
    with listener(buffer=65536) as (listening, address):
        daemon = start_with_sinks(start, address)
        connection, _ = listening.accept()
        daemon.order("send 1 15000 960")
        daemon.wait_for_log("does not read: what it has no room for is dropped")
        reader = Reader(connection, 10_000_000)
        daemon.wait_for_log("sent number 15000\n")
        wait_until(lambda: daemon.order("send 15001 1 10") or 15001 in reader.numbers, what="a later notification")
        assert re.search(r"takes notifications again: \d+ were lost", daemon.log())
        kept = [number for number in reader.numbers if number <= 15000]
        assert kept == sorted(set(kept)), "whole messages, in order, each once"
        daemon.stop()
        reader.join()
        connection.close()


def test_a_slow_sink_gets_everything(start):
    with listener(buffer=65536) as (listening, address):
        daemon = start_with_sinks(start, address)
        connection, _ = listening.accept()
        reader = Reader(connection, 1_500_000)
        daemon.order("send 1 7000 960")
        wait_until(lambda: len(reader.numbers) >= 7000, what="all of them")
        assert reader.numbers == list(range(1, 7001))
        assert "lost" not in daemon.log()
        daemon.stop()
        reader.join()
        connection.close()


def test_a_sink_that_goes_away_is_taken_out(start):
    with listener() as (listening, address), collector() as other:
        daemon = start_with_sinks(start, address, other.destination)
        connection, _ = listening.accept()
        connection.close()
        daemon.wait_for_log("has ended: it gets no notifications until SIGHUP")
        daemon.order("send 1 1000 960")
        wait_until(lambda: len(other.datagrams) == 1000, what="all of them at the other manager")
        assert "send_trap" not in daemon.log()
        daemon.signal(signal.SIGHUP)
        listening.accept()[0].close()


def test_a_manager_that_does_not_read_is_cut_off(start):
    port = free_port(socket.SOCK_STREAM)
    daemon = start(Daemon, module=NOTIFIER, options=["--listen", f"tcp:127.0.0.1:{port}"])
    with socket.socket() as manager:
        manager.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        manager.connect(("127.0.0.1", port))
        request = message(pdu(GET_BULK, 1, [SENT] * 60, second=1))
        manager.settimeout(20)
        with contextlib.suppress(ConnectionError):
            while True:
                manager.sendall(request)
    assert "a TCP peer does not read: its connection is closed" in daemon.log()
    assert answers_at_once(daemon, 0) < 2
