"""The daemon with the real module is started and stopped again and again: it stops in time and leaves nothing behind.

TAVO_CYCLES is the number of cycles (default: 5).
"""

import os
import pathlib
import re
import signal
import statistics
import time

from agents import ROOT, snmp, wait_until
from oids import BASE
from server import ServedDaemon, Server, children_of

CYCLES = int(os.environ.get("TAVO_CYCLES", "5"))
SPEED = 60
LONGEST_STOP = 8  # seconds on the daemon's clock, as documented
MARGIN = 5  # seconds on the machine's clock, which may be busy


def documented_files():
    """The paths that docs/operations.md names."""
    return set(re.findall(r"`(/(?:var|tmp)/[^`]*)`", (ROOT / "docs/operations.md").read_text()))


def files(server):
    """Files and sockets in the server's own directories, without those of libfaketime, which speeds the clock up."""
    found = server.run("find", "/tmp", "/var", "/dev/shm", "-xdev", "(", "-type", "f", "-o", "-type", "s", ")").stdout
    return {path for path in found.splitlines() if "faketime" not in path}


def ipc():
    """(kind, key, id) of each System V shared memory segment, semaphore set and message queue."""
    return {(kind, *line.split()[:2]) for kind in ("shm", "sem", "msg")
            for line in pathlib.Path("/proc/sysvipc", kind).read_text().splitlines()[1:]}


def processes(server):
    """The ids of all processes on the server, except for zombies."""
    def below(pid):
        own = set() if ") Z " in pathlib.Path(f"/proc/{pid}/stat").read_text() else {pid}
        return own.union(*(below(child) for child in children_of(pid)))
    try:
        return below(server.pid)
    except (FileNotFoundError, ProcessLookupError):  # a process has just ended
        return processes(server)


def cycle(directory, server, number):
    """Starts the daemon, and stops it at one of three moments. Returns its exit status and the seconds that it took."""
    moment = number % 3
    daemon = ServedDaemon(directory, server, SPEED, ready=moment != 2)
    try:
        if moment == 0:
            assert len(snmp("snmpbulkwalk", daemon.address, BASE, timeout=30)) > 1000
        if moment == 2:
            daemon.wait_for_log("Fault Init done")  # halfway through the start
        began = time.monotonic()
        daemon.signal(signal.SIGTERM)
        status = daemon.wait()
        return status, time.monotonic() - began
    finally:
        daemon.stop()


def test_repeated_start_and_stop_leave_nothing_behind(start, directory):
    server = start(Server)
    files_before, processes_before, ipc_before = files(server), processes(server), ipc()
    stops = []
    began = time.monotonic()
    for number in range(CYCLES):
        status, seconds = cycle(directory, server, number)
        assert status == 0, f"cycle {number}"
        stops.append(seconds)
        # A tool that was running may take a moment longer to end.
        wait_until(lambda: processes(server) <= processes_before, what=f"the end of all processes of cycle {number}")
    print(f"{CYCLES} cycles in {time.monotonic() - began:.0f} s; longest stop {max(stops):.2f} s, "
          f"{max(stops) * SPEED:.1f} s on the daemon's clock; the fifth longest {sorted(stops)[-5:][0]:.2f} s")
    assert statistics.median(stops) < LONGEST_STOP / SPEED + MARGIN
    assert max(stops) < 30
    left = files(server) - files_before
    print("left behind:", *sorted(left))
    assert left <= documented_files()
    assert ipc() <= ipc_before
