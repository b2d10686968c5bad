"""Makes the allocations of a program fail, by the library programs/failing_malloc.cpp."""

import mmap
import struct

from agents import BUILD

_COUNT, _FIRST, _FAILING, _ONE_IN, _FAILED, _OWN_ONLY = range(6)


class FailingMalloc:
    """The orders for one program, which is to be started by `command()`."""

    def __init__(self, file, own_only=False):
        """`own_only`: only what the program's own C++ code allocates counts and fails."""
        file.write_bytes(bytes(8 * 6))
        with open(file, "r+b") as opened:
            self._numbers = mmap.mmap(opened.fileno(), 0)
        self._set(_OWN_ONLY, own_only)
        self.file = file
        self.library = BUILD / "test-programs/failing_malloc.so"

    def command(self, program):
        """The words that start the program with the library."""
        return ["env", f"LD_PRELOAD={self.library}", f"FAILING_MALLOC={self.file}", program]

    def _get(self, which):
        return struct.unpack_from("<Q", self._numbers, 8 * which)[0]

    def _set(self, which, number):
        struct.pack_into("<Q", self._numbers, 8 * which, int(number))

    @property
    def count(self):
        """Allocations so far."""
        return self._get(_COUNT)

    @property
    def failed(self):
        return self._get(_FAILED)

    def fail(self, first, count=1):
        """Lets `count` allocations fail, from number `first` on (from 1)."""
        self._set(_FAILING, count)
        self._set(_FIRST, first)

    def fail_one_in(self, number):
        """Lets one allocation in `number` fail at random from now on, or none if it is 0."""
        self._set(_ONE_IN, number)
