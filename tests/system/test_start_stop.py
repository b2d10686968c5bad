"""The daemon with the real module, started and stopped again and again: nothing is left behind.

TAVO_CYCLES: how often, by default 5 times.
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
LONGEST_STOP = 8  # seconds of the daemon's clock, as documented
MARGIN = 5  # seconds of ours, for processes to end on a busy machine


def documented_files():
    """The paths that the operators' page names."""
    return set(re.findall(r"`(/(?:var|tmp)/[^`]*)`", (ROOT / "docs/operations.md").read_text()))


def files(server):
    """What stands in the server's own directories. libfaketime, which makes the clock run fast, leaves its share of them."""
    found = server.run("find", "/tmp", "/var", "/dev/shm", "-xdev", "(", "-type", "f", "-o", "-type", "s", ")").stdout
    return {path for path in found.splitlines() if "faketime" not in path}


def ipc():
    """System V shared memory, semaphores and queues: key and id of each."""
    return {(kind, *line.split()[:2]) for kind in ("shm", "sem", "msg")
            for line in pathlib.Path("/proc/sysvipc", kind).read_text().splitlines()[1:]}


def processes(server):
    """The ids of all that runs on the server. An ended one that nobody has waited for does not run any more."""
    def below(pid):
        own = set() if ") Z " in pathlib.Path(f"/proc/{pid}/stat").read_text() else {pid}
        return own.union(*(below(child) for child in children_of(pid)))
    try:
        return below(server.pid)
    except (FileNotFoundError, ProcessLookupError):  # one has just ended
        return processes(server)


def cycle(directory, server, number):
    """Starts and stops the daemon at one of three moments. Its exit status, and how long the stop took on its clock."""
    moment = number % 3
    daemon = ServedDaemon(directory, server, SPEED, ready=moment != 2)
    try:
        if moment == 0:
            assert len(snmp("snmpbulkwalk", daemon.address, BASE, timeout=30)) > 1000
        if moment == 2:
            daemon.wait_for_log("Fault Init done")  # in the middle of the start
        began = time.monotonic()
        daemon.signal(signal.SIGTERM)
        status = daemon.wait()
        return status, time.monotonic() - began
    finally:
        daemon.stop()


def test_start_and_stop_again_and_again(start, directory):
    server = start(Server)
    files_before, processes_before, ipc_before = files(server), processes(server), ipc()
    stops = []
    began = time.monotonic()
    for number in range(CYCLES):
        status, seconds = cycle(directory, server, number)
        assert status == 0, f"cycle {number}"
        stops.append(seconds)
        # A tool that was running may take a moment more.
        wait_until(lambda: processes(server) <= processes_before, what=f"the end of all processes of cycle {number}")
    print(f"{CYCLES} cycles in {time.monotonic() - began:.0f} s; longest stop {max(stops):.2f} s, "
          f"{max(stops) * SPEED:.1f} s on the daemon's clock; the fifth longest {sorted(stops)[-5:][0]:.2f} s")
    assert statistics.median(stops) < LONGEST_STOP / SPEED + MARGIN
    assert max(stops) < 30
    left = files(server) - files_before
    print("left behind:", *sorted(left))
    assert left <= documented_files()
    assert ipc() <= ipc_before
