"""The fault table under load, and with records that a sound fault engine would not send.

TAVO_STORM_RECORDS is the number of records in the storm (default: 100,000). One a minute makes 525,600 a year.
"""

import os
import random
import re

import pytest

from agents import snmp, wait_until
from datagrams import Collector, each_varbind, varbinds
from managers import Managers
from oids import FAULT_TABLE, RAISED
from server import ServedDaemon, Server

FAULT_ENTRY = f"{FAULT_TABLE}.1"
STORM_RECORDS = int(os.environ.get("TAVO_STORM_RECORDS", "100000"))


@pytest.fixture
def collector():
    collector = Collector()
    yield collector
    collector.stop()


def column(daemon, number):
    """{index: value as text} of a column."""
    lines = snmp("snmpbulkwalk", daemon.address, "-Cr100", f"{FAULT_ENTRY}.{number}", timeout=30)
    return {int(name.rsplit(".", 1)[1]): value for name, value in (re.split(r" = \w[\w-]*: ", line) for line in lines)}


def storm(server, records):
    """Has the engine send records for 1,000 indexes as fast as the daemon takes them. A record's code is its number."""
    line = server.ctl("fault", "storm", str(records), "1000")
    print(line.strip())
    assert line.startswith(f"{records} records")


def codes(datagrams):
    """The fault code in each notification."""
    return [next(value for name, value in each_varbind(datagram) if name.startswith(f"{FAULT_ENTRY}.9."))
            for datagram in datagrams]


def test_storm_neither_loses_nor_repeats_anything(start, directory, collector):
    records = STORM_RECORDS
    server = start(Server)
    # The storm fills a short queue, which slows the engine down. A long one would hide leaks among what it holds.
    daemon = start(ServedDaemon, server, configuration=f"trap2sink {collector.destination} public\n",
                   options=["--notification-limit", "1000"])
    server.wait_for_listeners()
    managers = Managers(daemon, directory, FAULT_TABLE, last=f"{FAULT_ENTRY}.22")
    try:
        storm(server, records)
        wait_until(lambda: len(collector.datagrams) >= records, 300, "every notification")
        after_one = daemon.resident_kib()
        storm(server, records // 5)
        wait_until(lambda: len(collector.datagrams) >= records + records // 5, 60, "every notification")
        after_two = daemon.resident_kib()
    finally:
        managers.stop()

    print(f"{managers.walks} walks; resident {after_one} KiB, then {after_two} KiB")
    assert codes(collector.datagrams) == [*range(1, records + 1), *range(1, records // 5 + 1)]
    assert managers.failures == []
    assert managers.walks >= Managers.count
    assert after_two < after_one + 2048, "memory must not grow with the number of records"

    engine = {int(index): (severity, code) for index, severity, code in re.findall(
        r"index=(\d+) class=\S+ .*?severity=(\S+) .*?code=(\d+)", server.ctl("fault", "list"))}
    severities = {"info": "1", "condition": "2", "warning": "3", "minor": "4", "major": "5", "critical": "6"}
    shown_severity, shown_code = column(daemon, 17), column(daemon, 9)
    assert shown_code == {index: code for index, (_, code) in engine.items()}
    assert shown_severity == {index: severities[severity] for index, (severity, _) in engine.items()}


def test_out_of_range_records_are_served_and_notified(start, directory, collector):
    server = start(Server)
    daemon = start(ServedDaemon, server, configuration=f"trap2sink {collector.destination} public\n")
    server.wait_for_listeners()
    hostile = {
        101: ["class=256"],
        102: ["class=4294967295"],
        103: ["class=fan", "unit=14"],
        104: ["class=fan", "unit=4294967295"],
        105: ["class=supply", "unit=4"],
        106: ["class=processor", "affected-oid=1.3.6.1", "affected-oid-count=33"],
        107: ["class=processor", "affected-oid=1.3.6.1", "affected-oid-count=4000000000"],
        108: ["class=processor", "affected-oid=9.9.9"],
        109: ["class=processor", "first-time=-1", "last-time=-2147483648"],
        110: ["class=processor", "first-time=2147483647"],
        4294967295: ["class=processor"],
    }
    for number, (index, settings) in enumerate(hostile.items(), 1):
        server.ctl("fault", "send", str(index), *settings)
        wait_until(lambda: len(collector.datagrams) >= number, what=f"the notification for fault {index}")
        sent = varbinds(collector.datagrams[-1])
        assert len(sent) == 14, "sysUpTime and thirteen others"
        assert sent["1.3.6.1.6.3.1.1.4.1.0"] == RAISED
        assert sent[f"{FAULT_ENTRY}.1.{index}"] == index
    assert set(column(daemon, 17)) == {11, 17, 23, 31, *hostile}
    walk = snmp("snmpbulkwalk", daemon.address, FAULT_TABLE, timeout=30)
    assert len(walk) == 21 * (4 + len(hostile))


def test_random_records_do_no_harm(start, directory, collector):
    server = start(Server)
    daemon = start(ServedDaemon, server, configuration=f"trap2sink {collector.destination} public\n")
    server.wait_for_listeners()
    generator = random.Random(207)
    file = directory / "record"
    count = 40
    for _ in range(count):
        file.write_bytes(generator.randbytes(960))
        server.ctl("fault", "send-file", str(file))
    wait_until(lambda: len(collector.datagrams) >= count, what="every notification")
    rows = 4 + count
    walk = snmp("snmpbulkwalk", daemon.address, FAULT_TABLE, timeout=30)
    # A long value continues on lines that do not begin with an OID.
    assert sum(line.startswith(f".{FAULT_ENTRY}.") for line in walk) == 21 * rows
