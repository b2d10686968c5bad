"""A start with the real module, one allocation of which fails, says why it ends, or serves everything in the end.

The daemon's clock is fast, because tables that lacked memory are built again in their own time. TAVO_MALLOC_STEP: every
so many-th allocation is tried, times thirty (default 40).
"""

import collections
import os
import pathlib
import re
import tempfile
import time

import pytest

from agents import snmp, wait_until
from failing_malloc import FailingMalloc
from oids import BASE, OBJECTS
from server import SCENARIO, ServedDaemon, Server
from test_daemon_memory import has_ended, is_good
from test_walk import cells

STEP = 30 * int(os.environ.get("TAVO_MALLOC_STEP", 40))
SPEED = 20
PATIENCE = 15  # seconds: five minutes of the daemon's clock
FANS = f"{OBJECTS}.15.12"
# The allocation was the platform library's, which then has no answer for a sensor. That ends the list of fans, until the
# next fault of one.
LACKS_FANS = "lacks fans that the platform had no memory to read"


@pytest.fixture
def server(start, directory):
    """A server that stays as it is and has no faults, which would change rows whenever these are built again."""
    still = directory / "still.yaml"
    still.write_text(re.sub(r"drift: \d+", "drift: 0", re.sub(r"(?ms)^faults:\n.*?(?=^\S|\Z)", "",
                                                              SCENARIO.read_text())))
    return start(Server, scenario=still)


def walk(daemon):
    return cells(snmp("snmpwalk", daemon.address, BASE, timeout=30, check=False))


class Start:
    """A start of the daemon whose allocation of this number fails; 0: none does."""

    def __init__(self, server, directory, number):
        directory = pathlib.Path(tempfile.mkdtemp(dir=directory))
        self.memory = FailingMalloc(directory / "orders", own_only=True)
        self.memory.fail(number)
        self.daemon = ServedDaemon(directory, server, speed=SPEED, ready=False,
                                   before=["env", f"FAILING_MALLOC={self.memory.file}"],
                                   preloads=[self.memory.library])

    def __enter__(self):
        wait_until(lambda: "READY=1" in self.daemon.states or has_ended(self.daemon), what="READY or an end")
        return self

    def __exit__(self, *_):
        self.daemon.stop()

    def outcome(self, everything):
        if self.daemon.process.poll() is not None:
            status = self.daemon.process.returncode
            says_why = re.search("^snmp-subagentd: .", self.daemon.log(), re.MULTILINE)
            return f"status {status}, {'says why' if says_why else 'silent'}"
        deadline = time.monotonic() + PATIENCE
        while missing := set(everything) ^ set(walk(self.daemon)):
            if time.monotonic() > deadline:
                return LACKS_FANS if all(line.startswith(f".{FANS}.") for line in missing) else "serves less"
            time.sleep(0.2)
        return "serves"


def test_a_start_ends_or_serves_everything(server, directory):
    with Start(server, directory, 0) as undisturbed:
        everything = walk(undisturbed.daemon)
        allocations = undisturbed.memory.count
    found = collections.defaultdict(list)
    for number in range(1, allocations + 1, STEP):
        with Start(server, directory, number) as disturbed:
            found[disturbed.outcome(everything)].append(number)
    print(f"{allocations} allocations until {len(everything)} values are served")
    for outcome, where in sorted(found.items()):
        print(f"{len(where):5} {outcome}: {where[:10]}")
    assert {outcome for outcome in found if not is_good(outcome)} <= {LACKS_FANS}
    assert found["serves"]
