"""A manager that sends SNMPv2c requests without waiting for the answer to the one before."""

import select
import socket
import time
from typing import NamedTuple

from datagrams import element, elements, oid

GET, GET_NEXT, RESPONSE, SET, GET_BULK = 0xA0, 0xA1, 0xA2, 0xA3, 0xA5
GEN_ERR = 5


def encoded(tag, content):
    length = len(content)
    if length < 128:
        return bytes([tag, length]) + content
    octets = length.to_bytes((length.bit_length() + 7) // 8, "big")
    return bytes([tag, 0x80 | len(octets)]) + octets + content


def integer(value):
    return encoded(0x02, value.to_bytes(value.bit_length() // 8 + 1, "big", signed=True))


def _oid(text):
    numbers = [int(number) for number in text.split(".")]
    octets = bytearray()
    for number in [40 * numbers[0] + numbers[1], *numbers[2:]]:
        septets = [number & 0x7F]
        while number := number >> 7:
            septets.append(number & 0x7F | 0x80)
        octets += bytes(reversed(septets))
    return encoded(0x06, bytes(octets))


def pdu(kind, request_id, names, first=0, second=0):
    """`first` and `second`: a GETBULK's non-repeaters and repetitions."""
    value = integer(1) if kind == SET else encoded(0x05, b"")
    varbinds = b"".join(encoded(0x30, _oid(name) + value) for name in names)
    return encoded(kind, integer(request_id) + integer(first) + integer(second) + encoded(0x30, varbinds))


def message(content, community=b"public"):
    """An SNMPv2c message with this PDU."""
    return encoded(0x30, integer(1) + encoded(0x04, community) + content)


class Response(NamedTuple):
    error: int
    varbinds: list  # (name, tag, content)
    seconds: float  # since the request was sent


class UdpManager:
    """Requests from one UDP port, matched to their responses by request id."""

    def __init__(self, address, community="public"):
        host, _, port = address.rpartition(":")
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4 << 20)
        self._socket.connect((host, int(port)))
        self._community = community.encode()
        self._next_id = 1
        self._sent = {}
        self._waiting = set()
        self.responses = {}  # {request id: Response}
        self.repeated = 0  # responses to a request that had one already

    def send(self, kind, *names, first=0, second=0, request_id=None):
        """Sends a request and returns its id."""
        if request_id is None:
            request_id, self._next_id = self._next_id, self._next_id + 1
        self._sent.setdefault(request_id, time.monotonic())
        if request_id not in self.responses:
            self._waiting.add(request_id)
        self._socket.send(self._wrapped(pdu(kind, request_id, names, first, second)))
        return request_id

    def receive(self, timeout=0, all_of_it=False):
        """Takes what arrives within `timeout` seconds, and returns the ids answered.

        Returns as soon as nothing is unanswered, unless `all_of_it`.
        """
        answered = []
        deadline = time.monotonic() + timeout
        while self._waiting or all_of_it or not timeout:
            if not select.select([self._socket], [], [], max(0, deadline - time.monotonic()))[0]:
                break
            try:
                datagram = self._socket.recv(65536)
            except ConnectionRefusedError:
                continue
            now = time.monotonic()
            (_, number), (_, error), _, (_, varbinds) = elements(self._unwrapped(datagram))
            request_id = int.from_bytes(number, "big", signed=True)
            if request_id in self.responses:
                self.repeated += 1
                continue
            found = []
            for _, varbind in elements(varbinds):
                (_, name), (tag, content) = elements(varbind)
                found.append((oid(name), tag, content))
            self.responses[request_id] = Response(int.from_bytes(error, "big"), found, now - self._sent[request_id])
            self._waiting.remove(request_id)
            answered.append(request_id)
        return answered

    def _wrapped(self, content):
        """The message with this PDU."""
        return message(content, self._community)

    def _unwrapped(self, datagram):
        """The content of the message's PDU."""
        _, content, _ = element(datagram)
        return list(elements(content))[2][1]

    def ask(self, kind, *names, timeout=30, **settings):
        """The response to one request."""
        request_id = self.send(kind, *names, **settings)
        deadline = time.monotonic() + timeout
        while request_id not in self.responses:
            assert time.monotonic() < deadline, f"no answer to {names} within {timeout} s"
            self.receive(min(0.1, timeout))
        return self.responses[request_id]

    def sent_at(self, request_id):
        return self._sent[request_id]

    def unanswered(self):
        return sorted(self._waiting)
