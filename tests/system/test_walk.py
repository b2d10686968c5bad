"""Every cell of every table on the simulated server, by each kind of request, compared with a golden list.

The list, golden/rack-server.txt, has one cell per line as snmpwalk -On prints it, with <time> for values that depend on
the clock. TAVO_WRITE_GOLDEN=1 writes it anew; review the difference.
"""

import os
import pathlib
import re

import pytest

from agents import ROOT, Master, snmp, wait_until
from oids import BASE, FAULT_TABLE, OBJECTS, PROCESSOR_TABLE
from server import SCENARIO, ServedDaemon, Server

GOLDEN = pathlib.Path(__file__).parent / "golden/rack-server.txt"
# The columns that say when a fault came and when a sample was taken.
TIMES = ["1.1.1.10", "1.1.1.14", "30.12.1.11", "41.2.1.15", "9.14.1.19", "9.44.1.27"]
CLOCK = re.compile(rf"(\.{re.escape(OBJECTS)}\.(?:{'|'.join(map(re.escape, TIMES))})\.\d+) = .*")


def cells(lines):
    """The cells in this output, each on one line, even if its text has several."""
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
    """A walk of everything, once the event thread has filled the fault table."""
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
        walked = cells(snmp("snmpbulkwalk", address, BASE, timeout=30, options=[f"-Cr{repetitions}"]))
        assert walked == golden(), repetitions
    names = [line.split(" = ")[0] for line in golden()]
    got = []
    for first in range(0, len(names), 20):
        got += cells(snmp("snmpget", address, *names[first:first + 20], timeout=30))
    assert got == golden()
    # net-snmp logs it when the module is loaded, and must not with every request.
    assert daemon.log().count("bad size for counter 64") == 1


def test_every_cell_through_an_agentx_master(start, server):
    master = start(Master, ROOT / "host/snmpd-master.conf")
    start(ServedDaemon, server, master=master)
    wait_until(lambda: cells(snmp("snmpwalk", master.address, PROCESSOR_TABLE, timeout=30)), 30, "the subagent")
    assert all_served(master.address) == golden()
