"""The simulated server tells the truth: what its faults name is what the module's tables show."""

import re

import pytest

from agents import snmp, snmpget, wait_until
from oids import FAN_OPERABILITY, FAULT_TABLE
from server import Server, ServedDaemon

SPEED = 45
AFFECTED_OID = f"{FAULT_TABLE}.1.4"
AFFECTED_DN = f"{FAULT_TABLE}.1.5"
FAULTY = "3"
# Every kind of part, and of fan name.
FAILURES = ["processor disable 2", "dimm fail DIMM_A1", "dimm fail DIMM_D1", "dimm fail DIMM_H1", "supply fail 2",
            "adapter remove 2", "dimm remove DIMM_F1"]
FANS = ["FAN1_TACH2", "FAN2_TACH1", "FAN_TRAY5_SPEED", "FANA_MOD6_SPEED", "FANB_MOD6_SPEED", "FAN7_SPEED",
        "Q410_FAN7_TACH2", "PSU1_FAN_SPEED"]


@pytest.fixture
def server(start):
    return start(Server)


@pytest.fixture
def daemon(start, server):
    daemon = start(ServedDaemon, server, speed=SPEED)
    server.wait_for_listeners()
    return daemon


def text_of(line):
    return re.sub(r'.* = \w+: "?([^"]*)"?$', r"\1", line)


def faults(daemon):
    """{fault index: (affected object's identifier, its name)}, as the table shows them."""
    identifiers, names = ({int(line.split(" = ")[0].rsplit(".", 1)[1]): text_of(line).lstrip(".")
                           for line in snmp("snmpwalk", daemon.address, column)}
                          for column in (AFFECTED_OID, AFFECTED_DN))
    return {index: (identifiers[index], names[index]) for index in identifiers}


def new_fault(daemon, before):
    return wait_until(lambda: [fault for index, fault in faults(daemon).items() if index not in before],
                      what="the fault")[0]


def test_faults_of_the_scenario_name_rows_of_tables(daemon):
    found = faults(daemon)
    assert len(found) == 4
    for identifier, name in found.values():
        assert text_of(snmpget(daemon.address, identifier)[0]) == name


@pytest.mark.parametrize("command", FAILURES, ids=lambda command: command.replace(" ", "-"))
def test_fault_of_hardware_names_its_row(daemon, server, command):
    before = faults(daemon)
    server.ctl(*command.split())
    identifier, name = new_fault(daemon, before)
    shown = text_of(snmpget(daemon.address, identifier)[0])
    if "remove" in command:  # its row is about to go; the identifier is that of what it was in
        assert name.startswith(f"{shown}/")
    else:
        assert name == shown


def operability(daemon):
    """{row's identifier: operability} of the fans."""
    return {line.split(" = ")[0].rsplit(".", 1)[1]: text_of(line)
            for line in snmp("snmpwalk", daemon.address, FAN_OPERABILITY)}


def test_fault_of_each_fan_hits_the_row_that_it_names(daemon, server):
    # The fan of the scenario's own fault. The table is built before the faults are loaded, and again for them.
    wait_until(lambda: operability(daemon)["5"] == FAULTY, what="the scenario's faulty fan")
    healthy = operability(daemon)
    for fan in FANS:
        before = faults(daemon)
        server.ctl("fan", "fail", fan)
        identifier, name = new_fault(daemon, before)
        assert text_of(snmpget(daemon.address, identifier)[0]) == name
        expected = {**healthy, identifier.rsplit(".", 1)[1]: FAULTY}
        wait_until(lambda: operability(daemon) == expected, what=f"{fan} and no other fan as faulty")
        server.ctl("fan", "repair", fan)
        wait_until(lambda: operability(daemon) == healthy, what=f"{fan} as healthy")
