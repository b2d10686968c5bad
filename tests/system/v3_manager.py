"""An SNMPv3 manager (SHA-1, no privacy) that does not wait for one answer before it sends the next request."""

import hashlib
import hmac
import time

from datagrams import element, elements
from udp_manager import GET, UdpManager, encoded, integer, pdu

OCTETS, SEQUENCE = 0x04, 0x30
AUTHENTICATED, REPORTABLE = 0x01, 0x04
CODE_SIZE = 12  # octets of the authentication code


def localized_key(password, engine):
    repeated = (password.encode() * (2**20 // len(password) + 1))[:2**20]
    key = hashlib.sha1(repeated).digest()
    return hashlib.sha1(key + engine + key).digest()


class V3Manager(UdpManager):
    """Its messages and the agent's responses are authenticated. Each message has an id of its own."""

    def __init__(self, address, user, password):
        super().__init__(address)
        self._user = user.encode()
        self._message_id = 0
        self._engine, self._boots, self._time = b"", 0, 0
        self._find_engine()
        self._started = time.monotonic()
        self._key = localized_key(password, self._engine)

    def _find_engine(self):
        """An empty engine id makes the agent report its own, with its boots and time."""
        for _ in range(50):
            self._socket.send(self._message(pdu(GET, 0, []), b"", REPORTABLE, b""))
            self._socket.settimeout(0.5)
            try:
                report = self._socket.recv(65536)
                break
            except (TimeoutError, ConnectionRefusedError):
                continue
        else:
            raise AssertionError("no report from the agent")
        self._socket.settimeout(None)
        _, content, _ = element(report)
        _, security, _ = element(list(elements(content))[2][1])
        (_, self._engine), (_, boots), (_, seconds), *_ = elements(security)
        self._boots, self._time = int.from_bytes(boots, "big"), int.from_bytes(seconds, "big")

    def _message(self, content, user, flags, code):
        self._message_id += 1
        header = encoded(SEQUENCE, integer(self._message_id) + integer(65507) + encoded(OCTETS, bytes([flags])) +
                         integer(3))
        security = encoded(SEQUENCE, encoded(OCTETS, self._engine) + integer(self._boots) + integer(self._time) +
                           encoded(OCTETS, user) + encoded(OCTETS, code) + encoded(OCTETS, b""))
        scoped = encoded(SEQUENCE, encoded(OCTETS, self._engine) + encoded(OCTETS, b"") + content)
        return encoded(SEQUENCE, integer(3) + header + encoded(OCTETS, security) + scoped)

    def _code(self, blank):
        """The authentication code of a message whose own code is zeros."""
        return hmac.new(self._key, blank, hashlib.sha1).digest()[:CODE_SIZE]

    def _wrapped(self, content):
        now = time.monotonic()
        self._time, self._started = self._time + int(now - self._started), now - (now - self._started) % 1
        blank = self._message(content, self._user, AUTHENTICATED | REPORTABLE, bytes(CODE_SIZE))
        return blank.replace(encoded(OCTETS, bytes(CODE_SIZE)), encoded(OCTETS, self._code(blank)), 1)

    def _unwrapped(self, datagram):
        _, content, _ = element(datagram)
        _, _, (_, security), (_, scoped) = elements(content)
        code = list(elements(element(security)[1]))[4][1]
        assert code == self._code(datagram.replace(code, bytes(CODE_SIZE), 1)), "a wrong authentication code"
        return list(elements(scoped))[2][1]
