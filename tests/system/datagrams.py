"""Notifications as they come off the wire: a collector fast enough for a storm, and a decoder for what it collects."""

import functools
import socket
import threading
import time

INTEGER, OCTETS, OID, INFORM, TRAP = 0x02, 0x04, 0x06, 0xA6, 0xA7
SO_RCVBUFFORCE = 33  # like SO_RCVBUF, but exceeds the system's limit; the socket module does not have it


def element(octets, at=0):
    """Tag, content and end offset of the BER element at offset `at`."""
    tag, length, at = octets[at], octets[at + 1], at + 2
    if length & 0x80:
        count = length & 0x7F
        length, at = int.from_bytes(octets[at:at + count], "big"), at + count
    return tag, octets[at:at + length], at + length


def elements(octets):
    """(tag, content) of each BER element."""
    at = 0
    while at < len(octets):
        tag, content, at = element(octets, at)
        yield tag, content


@functools.cache  # a storm repeats a few names in many notifications
def oid(content):
    numbers, number = [], 0
    for octet in content:
        number = number << 7 | octet & 0x7F
        if not octet & 0x80:
            numbers.append(number)
            number = 0
    first = min(numbers[0] // 40, 2)
    return ".".join(map(str, [first, numbers[0] - 40 * first, *numbers[1:]]))


def each_varbind(datagram):
    """(name, value) of each varbind of an SNMPv2c notification: numbers as int, OIDs as text, strings as bytes."""
    _, message, _ = element(datagram)
    pdu = [content for tag, content in elements(message) if tag in (INFORM, TRAP)][0]
    for _, varbind in elements(list(elements(pdu))[3][1]):
        (_, name), (tag, value) = elements(varbind)
        if tag == INTEGER:
            yield oid(name), int.from_bytes(value, "big", signed=True)
        elif tag == OID:
            yield oid(name), oid(value)
        elif tag == OCTETS:
            yield oid(name), value
        else:
            yield oid(name), int.from_bytes(value, "big")


def varbinds(datagram):
    """{name: value} of an SNMPv2c notification."""
    return dict(each_varbind(datagram))


class Collector:
    """Receives datagrams on a thread of its own, and keeps them undecoded, with the time of each."""

    receive_buffer = 512 * 1024 * 1024

    def __init__(self):
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.bind(("127.0.0.1", 0))
        self._socket.settimeout(0.2)
        try:
            self._socket.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, self.receive_buffer)
        except PermissionError:
            self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, self.receive_buffer)
        self.destination = "udp:127.0.0.1:%d" % self._socket.getsockname()[1]
        self.datagrams = []
        self.times = []
        self._stopping = False
        self._thread = threading.Thread(target=self._collect)
        self._thread.start()

    def _collect(self):
        while not self._stopping:
            try:
                datagram = self._socket.recv(65536)
            except TimeoutError:
                continue
            self.times.append(time.monotonic())
            self.datagrams.append(datagram)

    def stop(self):
        self._stopping = True
        self._thread.join()
        self._socket.close()
