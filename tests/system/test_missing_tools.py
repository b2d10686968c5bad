"""A server without any platform tool: the daemon serves what needs none, and recovers when the tools return."""

import re
import time

from agents import snmp, wait_until
from oids import OBJECTS
from server import ServedDaemon, Server

RACK_UNIT = f"{OBJECTS}.9.35.1"
SPEED = 20
# How many rows each table still has: those that need no tool, and the single rows that are always there.
ROWS = {
    f"{OBJECTS}.30.11": 12,
    f"{OBJECTS}.41.9": 2,
    f"{OBJECTS}.15.12": 15,
    f"{OBJECTS}.15.56": 2,
    f"{OBJECTS}.9.6": 1,
    f"{OBJECTS}.9.14": 1,
    f"{OBJECTS}.9.35": 1,
    f"{OBJECTS}.9.44": 1,
    f"{OBJECTS}.3.85": 0,
    f"{OBJECTS}.15.114": 0,
    f"{OBJECTS}.30.12": 0,
    f"{OBJECTS}.41.2": 0,
    f"{OBJECTS}.45.4": 0,
}
# Seconds that start-up sleeps for memory temperatures, processor temperatures, supplies, enabled cores, memory speed,
# board power and board temperatures: 5 for the supplies, and for each of the others 5 tries of 5 seconds.
START_UP_SLEEPS = 25 + 25 + 5 + 25 + 25 + 25 + 25


def rows(address, table):
    lines = snmp("snmpbulkwalk", address, f"{table}.1.2", timeout=30)
    return sum(line.startswith(f".{table}.1.2.") for line in lines)


def test_tables_that_need_no_tool_are_served(start):
    server = start(Server)
    for tool in ("datactl", "flatkv", "slotutil", "ipmitool"):
        server.ctl("tool", tool, "missing")
    before = time.monotonic()
    daemon = start(ServedDaemon, server, speed=SPEED)
    assert (time.monotonic() - before) * SPEED >= START_UP_SLEEPS
    assert {table: rows(daemon.address, table) for table in ROWS} == ROWS
    cells = dict(re.match(r"\.([\d.]+) = \S+ ?(.*)", line).groups()
                 for line in snmp("snmpwalk", daemon.address, RACK_UNIT, timeout=30)
                 if line.startswith(f".{RACK_UNIT}"))
    assert cells[f"{RACK_UNIT}.2.1"] == '"sys/rack-unit-1"'
    assert cells[f"{RACK_UNIT}.51.1"] == '"Tavolo Systems Inc"'
    assert cells[f"{RACK_UNIT}.35.1"] == "0"
    for key in ("description", "sysProductName", "sysProductID", "fru", "UUID", "pwState", "inputCurrent",
                "iohub2Temp"):
        assert f"SNMP:Failed {key}\n" in daemon.log(), key

    for tool in ("datactl", "flatkv", "slotutil", "ipmitool"):
        server.ctl("tool", tool, "ok")
    wait_until(lambda: rows(daemon.address, f"{OBJECTS}.3.85") == 3, 60, "the adaptors after the tools' return")
