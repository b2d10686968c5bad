"""The chassis link, as the chassis management controller sees it: what it gets when, and what happens to slow clients.

The real module runs on the simulated server. The link's port is fixed, so these tests run in a network namespace of
their own, where nobody else can hold the port.
"""

import contextlib
import ctypes
import fcntl
import os
import pathlib
import re
import shutil
import signal
import socket
import struct
import tempfile
import termios
import time

import pytest

from agents import snmpget, wait_until
from oids import OBJECTS
from server import ServedDaemon, Server

PORT = 25678
CLONE_NEWUSER, CLONE_NEWNET = 0x10000000, 0x40000000
SIOCSIFFLAGS, IFF_UP = 0x8914, 1
SPEED = 20
# At stop the daemon gives the link 5 s of its clock and then leaves without it. A slow clock suits a busy machine.
STOP_SPEED = 2

BLOCK = b"the block\0\xff\n"
LARGE_BLOCK = bytes((i * 31 >> 3) & 0xff for i in range(200_000))
RACK_UNIT_DN = f"{OBJECTS}.9.35.1.2.1"  # a cell that is there from the start
SEND_ENDED = "Send (successful|failed)"


@pytest.fixture(scope="module", autouse=True)
def private_network():
    """A network namespace for this process and all that it starts from now on. Loopback is enough for these tests."""
    unshare = ctypes.CDLL(None, use_errno=True).unshare
    user, group = os.geteuid(), os.getegid()
    if user == 0:
        failed = unshare(CLONE_NEWNET)
    else:
        failed = unshare(CLONE_NEWUSER | CLONE_NEWNET)
        if not failed:
            for name, line in (("setgroups", "deny"), ("uid_map", f"0 {user} 1"), ("gid_map", f"0 {group} 1")):
                pathlib.Path("/proc/self", name).write_text(line)
    if failed:
        pytest.skip(f"cannot create a network namespace: {os.strerror(ctypes.get_errno())}")
    with socket.socket() as any_socket:
        fcntl.ioctl(any_socket, SIOCSIFFLAGS, struct.pack("16sh22x", b"lo", IFF_UP))


class LinkedDaemon(ServedDaemon):
    """The daemon with a chassis block, and so with the chassis link."""

    def __init__(self, directory, server, block=BLOCK, speed=SPEED, options=(), **settings):
        self.block_file = pathlib.Path(directory) / "block"
        self.write_block(block)
        super().__init__(directory, server, speed, options=["--chassis-block", self.block_file, *options], **settings)

    def write_block(self, content):
        """Replaces the block's file, or whatever is in its place, by a rename."""
        draft = self.block_file.with_suffix(".draft")
        draft.write_bytes(content)
        if self.block_file.is_dir():
            self.block_file.rmdir()
        draft.rename(self.block_file)

    def lines(self, pattern):
        """How often the pattern is in the log."""
        return len(re.findall(pattern, self.log()))

    def hang_up(self):
        """Sends SIGHUP and waits until the daemon has handled it."""
        taken = self.states.count("READY=1")
        self.signal(signal.SIGHUP)
        self.wait_for_state("READY=1", count=taken + 1)

    def replace_block(self, content):
        """Has the daemon read a new block, and waits until it is in place."""
        replaced = self.lines("octets from .* now")
        self.write_block(content)
        self.hang_up()
        self.wait_for_log("octets from .* now", count=replaced + 1)

    def assert_it_answers(self):
        assert snmpget(self.address, RACK_UNIT_DN) == [f'.{RACK_UNIT_DN} = STRING: "sys/rack-unit-1"']


def connected(receive_buffer):
    """A socket connected to the link, or None if nobody listens."""
    peer = socket.socket()
    if receive_buffer:
        peer.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
    peer.settimeout(60)
    try:
        peer.connect(("127.0.0.1", PORT))
        return peer
    except ConnectionRefusedError:
        peer.close()
        return None


@contextlib.contextmanager
def client(receive_buffer=None):
    """A connection to the link, perhaps still in its backlog. Waits for the link's thread to open the port."""
    with wait_until(lambda: connected(receive_buffer), what="the link's port") as peer:
        yield peer


def receive(peer, size):
    received = b""
    while len(received) < size:
        part = peer.recv(size - len(received))
        assert part, f"the link closed the connection after {len(received)} octets"
        received += part
    return received


def receive_all(peer):
    """Everything that arrives until the link closes the connection."""
    return b"".join(iter(lambda: peer.recv(65536), b""))


def reset(peer):
    """Closes the connection with a reset instead of an orderly end."""
    peer.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    peer.close()


def wait_for_stuck_send(daemon, peer):
    """Waits until the link cannot send any more to a peer that does not read. Returns how many sends ended before."""
    ended = daemon.lines(SEND_ENDED)
    arrived = [-1]

    def stands_still():
        arrived.append(struct.unpack("i", fcntl.ioctl(peer, termios.FIONREAD, bytes(4)))[0])
        return 0 < arrived[-1] == arrived[-2]
    wait_until(stands_still, what="a stuck send")
    assert daemon.lines(SEND_ENDED) == ended
    return ended


def resources(daemon):
    """How many descriptors and how many threads the daemon has."""
    return [len(os.listdir(f"/proc/{daemon.pid}/{kind}")) for kind in ("fd", "task")]


class TestWhileItServes:
    @pytest.fixture(scope="class")
    def running(self):
        directory = pathlib.Path(tempfile.mkdtemp(prefix="tavo-"))
        server = Server(directory)
        daemon = LinkedDaemon(directory, server)
        yield daemon
        daemon.stop()
        server.stop()
        shutil.rmtree(directory)

    @pytest.fixture
    def daemon(self, running):
        running.replace_block(BLOCK)
        yield running
        print(running.log()[-2000:])

    def test_block_is_sent_on_connect_and_per_message(self, daemon):
        with client() as peer:
            assert receive(peer, len(BLOCK)) == BLOCK
            peer.sendall(b"again")
            assert receive(peer, len(BLOCK)) == BLOCK
            peer.shutdown(socket.SHUT_WR)
            assert receive_all(peer) == b""

    def test_burst_is_answered_with_whole_blocks(self, daemon):
        with client() as peer:
            assert receive(peer, len(BLOCK)) == BLOCK
            peer.sendall(b"x" * 3000)
            peer.shutdown(socket.SHUT_WR)
            received = receive_all(peer)
        # One block for each read, and a read takes at most 1,024 octets.
        assert received in (BLOCK, BLOCK * 2, BLOCK * 3)

    def test_slow_reader_delays_neither_agent_nor_sighup(self, daemon):
        daemon.replace_block(LARGE_BLOCK)
        with client(receive_buffer=4096) as peer:
            ended = wait_for_stuck_send(daemon, peer)
            daemon.assert_it_answers()
            replaced = daemon.lines("octets from .* now")
            for content in (b"overtaken", b"the newest"):
                daemon.write_block(content)
                daemon.hang_up()
                daemon.assert_it_answers()
            assert daemon.lines("octets from .* now") == replaced
            # The send is stuck until we read: a daemon that waits for it would not have got here.
            assert daemon.lines(SEND_ENDED) == ended

            assert receive(peer, len(LARGE_BLOCK)) == LARGE_BLOCK
            daemon.wait_for_log("block is 10 octets from .* now")
            assert daemon.lines("is 9 octets") == 0
            peer.sendall(b"again")
            assert receive(peer, 10) == b"the newest"

    def test_second_client_waits_for_the_first(self, daemon):
        with client() as first:
            assert receive(first, len(BLOCK)) == BLOCK
            with client() as second:
                second.settimeout(0.3)
                with pytest.raises(TimeoutError):
                    second.recv(1)
                first.close()
                second.settimeout(60)
                assert receive(second, len(BLOCK)) == BLOCK

    def test_reset_ends_only_its_own_send(self, daemon):
        daemon.replace_block(LARGE_BLOCK)
        failures = daemon.lines("Send failed\\.\\.\\.")
        with client(receive_buffer=4096) as peer:
            receive(peer, 1000)
            wait_for_stuck_send(daemon, peer)
            reset(peer)
        daemon.wait_for_log("Send failed\\.\\.\\.", count=failures + 1)
        with client() as peer:
            assert receive(peer, len(LARGE_BLOCK)) == LARGE_BLOCK
        daemon.assert_it_answers()

    def test_ten_thousand_connections_leak_nothing(self, daemon):
        daemon.assert_it_answers()  # opens whatever the agent opens with its first answer
        before = resources(daemon)
        begin = time.monotonic()
        for number in range(10_000):
            with client() as peer:
                assert receive(peer, len(BLOCK)) == BLOCK
                if number % 2:
                    reset(peer)
        print(f"10,000 connections in {time.monotonic() - begin:.1f} s")
        # There may be fewer: a tool that the module was running may have ended since.
        wait_until(lambda: all(now <= then for now, then in zip(resources(daemon), before)),
                   what=f"at most {before} descriptors and threads")

    @pytest.mark.parametrize("trouble", ["absent", "a directory", "a FIFO", "too large"])
    def test_unreadable_file_keeps_the_block_and_warns(self, daemon, trouble):
        daemon.block_file.unlink()
        reason = "not a regular file"
        if trouble == "a directory":
            daemon.block_file.mkdir()
        elif trouble == "a FIFO":
            os.mkfifo(daemon.block_file)
        elif trouble == "too large":
            reason = "larger than 16777216 octets"
            with open(daemon.block_file, "wb") as file:
                file.truncate(1 << 40)
        else:
            reason = "No such file or directory"
        warning = re.escape(f"cannot read the chassis link's block {daemon.block_file}: {reason}; the block stays")
        warned = daemon.lines(warning)
        daemon.hang_up()
        daemon.wait_for_log(warning, count=warned + 1)
        assert daemon.lines(warning) == warned + 1
        with client() as peer:
            assert receive(peer, len(BLOCK)) == BLOCK

    def test_nothing_is_sent_for_an_empty_file(self, daemon):
        daemon.replace_block(b"")
        sent = daemon.lines("Send successful")
        with client() as peer:
            daemon.wait_for_log("Send successful", count=sent + 1)
            peer.shutdown(socket.SHUT_WR)
            assert receive_all(peer) == b""


def assert_link_stops_with(daemon):
    """Stops the daemon. The link's thread must end; other threads of the module may not."""
    daemon.signal(signal.SIGTERM)
    assert daemon.wait() == 0
    assert daemon.lines("Stopping CMCThread") == daemon.lines("CMCThread exited") == 1


@pytest.mark.parametrize("state", ["no client", "an idle client", "a client that does not read"])
def test_link_stops_with_the_daemon(start, state):
    daemon = start(LinkedDaemon, start(Server), LARGE_BLOCK, speed=STOP_SPEED)
    with contextlib.ExitStack() as clients:
        if state == "an idle client":
            receive(clients.enter_context(client()), len(LARGE_BLOCK))
        elif state == "a client that does not read":
            wait_for_stuck_send(daemon, clients.enter_context(client(receive_buffer=4096)))
            daemon.write_block(BLOCK)
            daemon.hang_up()
        assert_link_stops_with(daemon)


def test_link_is_closed_to_all_but_named_peers(start):
    daemon = start(LinkedDaemon, start(Server), options=[
        "--chassis-listen", "127.0.0.1", "--chassis-peer", "127.0.0.2", "--chassis-peer", "127.0.0.3",
        "--chassis-idle-limit", 2 * SPEED])
    with client() as stranger:
        assert receive_all(stranger) == b""
    with pytest.raises(ConnectionRefusedError), socket.socket() as elsewhere:
        elsewhere.connect(("127.0.0.4", PORT))
    with socket.socket() as silent, socket.socket() as second:
        for peer, address in (silent, "127.0.0.2"), (second, "127.0.0.3"):
            peer.settimeout(60)
            peer.bind((address, 0))
            peer.connect(("127.0.0.1", PORT))
            assert receive(peer, len(BLOCK)) == BLOCK
        assert receive_all(silent) == b"", "closed after its idle time"
    assert daemon.lines("has refused 1 connections, the last from 127.0.0.1") == 1
    assert daemon.lines("idle for 40 s") >= 1


def test_no_link_without_the_option(start):
    daemon = start(ServedDaemon, start(Server), SPEED)
    assert connected(receive_buffer=None) is None
    daemon.signal(signal.SIGTERM)
    assert daemon.wait() == 0
    assert "CMC" not in daemon.log()


def test_daemon_serves_without_the_link_if_port_in_use(start):
    with socket.socket() as taken:
        taken.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)  # earlier tests' connections may be in TIME_WAIT
        taken.bind(("127.0.0.1", PORT))
        taken.listen()
        daemon = start(LinkedDaemon, start(Server), speed=STOP_SPEED)
        daemon.wait_for_log("bind failed")
        daemon.assert_it_answers()
        daemon.replace_block(b"for nobody")
        assert_link_stops_with(daemon)
