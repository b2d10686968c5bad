"""Changes the simulated server without a process for each change, so that their times can be measured."""

import socket
import struct


def cbor(value):
    """Encodes the few kinds of CBOR that a request to the simulator uses."""
    def head(major, count):
        return bytes([major << 5 | count]) if count < 24 else bytes([major << 5 | 24, count])

    if isinstance(value, str):
        return head(3, len(value)) + value.encode()
    if isinstance(value, list):
        return head(4, len(value)) + b"".join(map(cbor, value))
    return head(5, len(value)) + b"".join(cbor(key) + cbor(entry) for key, entry in value.items())


class Engine:
    """An open connection to the simulator at this socket: a change starts no process.

    The socket's path is in BMCSIM_SOCKET when the server starts, in a directory that it shares.
    """

    def __init__(self, path):
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.connect(path)

    def tell(self, *words):
        frame = cbor({"call": "control", "words": list(words)})
        self._socket.sendall(struct.pack("<I", len(frame)) + frame)

    def wait_for_reply(self):
        length, = struct.unpack("<I", self._socket.recv(4, socket.MSG_WAITALL))
        self._socket.recv(length, socket.MSG_WAITALL)
