"""Every cell of every table on the simulated server, against a golden list, in each way that a manager can ask.

The list is golden/rack-server.txt, one cell a line as snmpwalk -On prints it, with <time> for what the clock makes.
Set TAVO_WRITE_GOLDEN=1 to write it anew, and read the difference.
"""

import os
import pathlib
import re

import pytest

from agents import ROOT, Master, snmp, wait_until
from oids import BASE, FAULT_TABLE
from server import SCENARIO, ServedDaemon, Server

GOLDEN = pathlib.Path(__file__).parent / "golden/rack-server.txt"
# When a fault came and when a sample was taken, by table and column.
CLOCK = re.compile(rf"(\.{re.escape(BASE)}\.1\.(?:1\.1\.1\.10|1\.1\.1\.14|30\.12\.1\.11|41\.2\.1\.15|9\.14\.1\.19|9\.44\.1\.27)\.\d+) = .*")


def cells(lines):
    """The cells that were printed, one a line, in order; a text of several lines is one cell."""
    joined = re.sub(r"\n(?!\.)", " ", "\n".join(lines))
    return [CLOCK.sub(r"\1 = <time>", line.strip()) for line in joined.split("\n")
            if line.startswith(f".{BASE}.") and "No more variables left" not in line]


def golden():
    return GOLDEN.read_text().splitlines()


@pytest.fixture
def server(start, directory):
    still = directory / "still.yaml"
    still.write_text(re.sub(r"drift: \d+", "drift: 0", SCENARIO.read_text()))
    return start(Server, scenario=still)


def all_served(address):
    """The walk, once the fault event thread has filled its table."""
    wait_until(lambda: len(cells(snmp("snmpwalk", address, f"{FAULT_TABLE}.1.2"))) == 4, what="the faults")
    return cells(snmp("snmpwalk", address, BASE, timeout=30))


def test_every_cell_by_walk_bulk_walk_and_get(start, server):
    daemon = start(ServedDaemon, server)
    address = daemon.address
    walked = all_served(address)
    if os.environ.get("TAVO_WRITE_GOLDEN"):
        GOLDEN.write_text("\n".join(walked) + "\n")
    assert walked == golden()
    for repetitions in (1, 10, 50):
        assert cells(snmp("snmpbulkwalk", address, BASE, timeout=30, options=[f"-Cr{repetitions}"])) == golden(), repetitions
    names = [line.split(" = ")[0] for line in golden()]
    got = []
    for first in range(0, len(names), 20):
        got += cells(snmp("snmpget", address, *names[first:first + 20], timeout=30))
    assert got == golden()
    # Asked when the module was loaded, not with every request.
    assert daemon.log().count("bad size for counter 64") == 1


def test_every_cell_through_an_agentx_master(start, server):
    master = start(Master, ROOT / "host/snmpd-master.conf")
    start(ServedDaemon, server, master=master)
    wait_until(lambda: cells(snmp("snmpwalk", master.address, f"{BASE}.1.41.9", timeout=30)), 30, "the subagent")
    assert all_served(master.address) == golden()
