"""An AgentX master that does what a test tells it, and notes what its subagent sends."""

import collections
import contextlib
import pathlib
import socket
import struct
import threading
import time

OPEN, CLOSE, REGISTER, NOTIFY, PING, RESPONSE = 1, 2, 3, 12, 13, 18
NETWORK_ORDER = 0x10
CUT_OFF = "cut off"
UPTIME_OCTETS = 28  # of the first varbind of a NOTIFY: sysUpTime.0


class FakeMaster:
    """Listens on a Unix socket in the test's directory, whose address is `agentx`.

    `answer(kind, count)` decides on the count-th PDU of this kind: an error code (0: none), None for silence, or CUT_OFF.
    By default all is well.
    """

    def __init__(self, directory, answer=lambda kind, count: 0):
        path = pathlib.Path(directory) / "agentx"
        path.unlink(missing_ok=True)
        self.agentx = f"unix:{path}"
        self.address = None  # managers cannot ask it
        self.answer = answer
        self.log_file = path  # nothing is logged
        self.received = collections.Counter()  # by kind
        self.payloads = []  # of NOTIFY, in order, without the uptime: the same if one is sent again
        self.times = collections.defaultdict(list)  # of arrival, by kind
        self.sessions = 0
        self._connections = []
        self._listener = socket.socket(socket.AF_UNIX)
        self._listener.bind(str(path))
        self._listener.listen(100)
        threading.Thread(target=self._accept, daemon=True).start()

    def _accept(self):
        with contextlib.suppress(OSError):
            while True:
                connection, _ = self._listener.accept()
                self.sessions += 1
                self._connections.append(connection)
                threading.Thread(target=self._serve, args=[connection], daemon=True).start()

    def _serve(self, connection):
        with contextlib.suppress(OSError, EOFError), connection:
            stream = connection.makefile("rb")
            while header := self._exactly(stream, 20):
                order = ">" if header[2] & NETWORK_ORDER else "<"
                kind = header[1]
                session, transaction, packet, size = struct.unpack(f"{order}4I", header[4:])
                payload = self._exactly(stream, size) if size else b""
                self.received[kind] += 1
                self.times[kind].append(time.monotonic())
                if kind == NOTIFY:
                    self.payloads.append(payload[UPTIME_OCTETS:])
                decision = self.answer(kind, self.received[kind])
                if decision == CUT_OFF:
                    connection.shutdown(socket.SHUT_RDWR)
                    return
                if decision is not None and kind != RESPONSE:
                    session = session or 1
                    connection.sendall(header[:1] + bytes([RESPONSE, header[2], 0]) +
                                       struct.pack(f"{order}5I2H", session, transaction, packet, 8, 0, decision, 0))

    @staticmethod
    def _exactly(stream, size):
        octets = stream.read(size)
        if len(octets) < size:
            raise EOFError
        return octets

    def cut_off(self):
        """Ends all sessions."""
        for connection in self._connections:
            with contextlib.suppress(OSError):
                connection.shutdown(socket.SHUT_RDWR)
        self._connections.clear()

    def stop(self):
        with contextlib.suppress(OSError):
            self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()
        self.cut_off()
