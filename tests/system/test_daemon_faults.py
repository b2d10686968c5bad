"""The history of faults in the daemon's own MIB: each change has a number, and each active fault a row."""

import re

import pytest

from agents import ROOT, Master, Program, snmp, snmpget, wait_until
from datagrams import Collector
from failing_malloc import FailingMalloc
from oids import DAEMON_BASE, FAULT_TABLE
from server import SCENARIO, ServedDaemon, Server

OBJECTS = f"{DAEMON_BASE}.1"
EPOCH, CHANGES, NOTIFIED, OLDEST, ACTIVE, COMPLETE = (f"{OBJECTS}.8.{number}.0" for number in range(1, 7))
FAULTS, LOG = f"{OBJECTS}.9.1", f"{OBJECTS}.10.1"
# NOTIFICATION-LOG-MIB's count.
NOTIFICATIONS_LOGGED = "1.3.6.1.2.1.92.1.2.1.0"
RAISED, UPDATED, CLEARED, VANISHED = 1, 2, 3, 4
TRUE, FALSE = 1, 2
ENDS = ["-Oqvet"]
# The classes and indexes of the scenario's faults.
SCENARIO_FAULTS = {(29, 11), (8, 17), (11, 23), (209, 31)}


def numbers(address, *oids):
    return [int(value) for value in snmpget(address, *oids, options=ENDS)]


def cells(address, column):
    """{index as text: value as text} of a column."""
    lines = snmp("snmpbulkwalk", address, column, options=["-Oqe", "-Cr100"])
    found = (re.fullmatch(rf"\.{re.escape(column)}\.([\d.]+) (.*)", line) for line in lines)
    return {match[1]: match[2].strip('" ') for match in found if match}


def faults(address):
    """{(class, index)} of the faults in the daemon's table."""
    return {tuple(map(int, index.split("."))) for index in cells(address, f"{FAULTS}.3")}


def log(address):
    """[(kind, notified, class, index)] of each change that is kept, oldest first."""
    columns = [cells(address, f"{LOG}.{number}") for number in range(2, 6)]
    assert all(column.keys() == columns[0].keys() for column in columns)
    return [tuple(int(column[number]) for column in columns) for number in sorted(columns[0], key=int)]


def wait_for_changes(address, count):
    wait_until(lambda: numbers(address, CHANGES) == [count], what=f"{count} changes")


@pytest.fixture
def server(start):
    return start(Server)


@pytest.fixture(params=["alone", "agentx"])
def daemon(start, server, request):
    master = start(Master, ROOT / "host/snmpd-master.conf") if request.param == "agentx" else None
    daemon = start(ServedDaemon, server, master=master, speed=20)
    server.wait_for_listeners()
    return daemon


def test_faults_that_share_an_index_are_both_shown(server, daemon):
    server.ctl("fault", "raise", "7", "class=processor", "severity=major", "description=One")
    server.ctl("fault", "raise", "7", "class=memory", "severity=minor", "description=Other")
    wait_for_changes(daemon.address, 6)
    assert faults(daemon.address) == SCENARIO_FAULTS | {(3, 7), (8, 7)}
    assert snmpget(daemon.address, *(f"{FAULTS}.{column}.{row}" for row in ("3.7", "8.7") for column in (3, 5, 7)),
                   options=ENDS) == ["5", "5", '"One"', "6", "4", '"Other"']
    assert len(cells(daemon.address, f"{FAULT_TABLE}.1.5")) == 5, "the server's table shows one of them"
    server.ctl("fault", "clear", "7", "class=processor")
    wait_for_changes(daemon.address, 7)
    assert faults(daemon.address) == SCENARIO_FAULTS | {(8, 7)}
    assert numbers(daemon.address, ACTIVE) == [5]


def test_master_keeps_no_log_of_its_own(start, server):
    collector = Collector()
    try:
        master = start(Master, ROOT / "host/snmpd-master.conf", trap_destination=collector.destination)
        start(ServedDaemon, server, master=master, speed=20)
        server.wait_for_listeners()
        server.ctl("fault", "raise", "7", "class=processor")
        wait_until(lambda: any(b"Fault 7" in datagram for datagram in collector.datagrams), what="the notification")
        assert numbers(master.address, NOTIFICATIONS_LOGGED) == [0]
    finally:
        collector.stop()


def test_each_change_has_a_number_and_a_row(server, daemon):
    assert numbers(daemon.address, CHANGES, NOTIFIED, OLDEST, COMPLETE) == [4, 0, 1, TRUE]
    server.ctl("fault", "raise", "7", "class=processor", "code=12", "cause=13", "first-time=1700000000")
    server.ctl("fault", "update", "7", "severity=critical")
    server.ctl("fault", "clear", "7")
    server.ctl("fault", "send", "9", "class=processor", "severity=cleared")
    wait_for_changes(daemon.address, 8)
    assert log(daemon.address)[4:] == [(kind, TRUE, 3, index) for kind, index in
                                       ((RAISED, 7), (UPDATED, 7), (CLEARED, 7), (CLEARED, 9))]
    assert {entry[:2] for entry in log(daemon.address)[:4]} == {(RAISED, FALSE)}
    assert numbers(daemon.address, NOTIFIED) == [4]
    assert snmpget(daemon.address, *(f"{LOG}.{column}.6" for column in (7, 10, 11, 12)), options=ENDS) == [
        "6", "12", "13", "1"]
    assert snmpget(daemon.address, f"{LOG}.13.6", options=ENDS)[0].startswith('"07 E7 0B 0E 16 0D 14 00')


def test_a_reload_shows_what_has_vanished(start, server, daemon, directory):
    # The same server, but only two of its faults are left, and one is new.
    text = SCENARIO.read_text()
    head, listed = text.split("\nfaults:\n")
    _, tail = listed.split("\n\n", 1)
    others = directory / "other-faults.yaml"
    kept = "  - {index: 17, class: memory, unit: 19, severity: critical}\n  - {index: 31, class: 209}\n"
    others.write_text(f"{head}\nfaults:\n{kept}  - {{index: 90, class: fan, unit: 2}}\n\n{tail}")
    epoch = numbers(daemon.address, EPOCH)
    server.kill_services()
    start(Program, "services", server.services(others))
    wait_for_changes(daemon.address, 9)
    assert log(daemon.address)[4:] == [(UPDATED, TRUE, 8, 17), (UPDATED, TRUE, 209, 31), (RAISED, TRUE, 29, 90),
                                       (VANISHED, FALSE, 11, 23), (VANISHED, FALSE, 29, 11)]
    assert faults(daemon.address) == {(8, 17), (209, 31), (29, 90)}
    assert numbers(daemon.address, EPOCH, COMPLETE) == [*epoch, TRUE]


def test_the_log_keeps_as_many_changes_as_it_may(start, server):
    daemon = start(ServedDaemon, server, speed=20, options=["--change-limit", "3"])
    server.wait_for_listeners()
    assert numbers(daemon.address, CHANGES, OLDEST) == [4, 2]
    server.ctl("fault", "raise", "7", "class=processor")
    wait_for_changes(daemon.address, 5)
    assert [(entry[2], entry[3]) for entry in log(daemon.address)] == [(11, 23), (209, 31), (3, 7)]
    assert numbers(daemon.address, OLDEST, ACTIVE) == [3, 5]


def test_each_start_has_an_epoch_of_its_own(start, server):
    epochs = set()
    for _ in range(2):
        daemon = start(ServedDaemon, server, speed=20)
        epochs.add(numbers(daemon.address, EPOCH)[0])
        daemon.stop()
    assert len(epochs) == 2


def test_faults_are_incomplete_until_they_are_loaded(start):
    server = start(Server, cold=True)
    daemon = start(ServedDaemon, server, speed=20)
    assert numbers(daemon.address, COMPLETE, CHANGES) == [FALSE, 0]
    server.wait_for_listeners()
    assert numbers(daemon.address, COMPLETE, CHANGES, NOTIFIED) == [TRUE, 4, 4]


def test_changes_without_memory_begin_a_new_epoch(start, server, directory):
    memory = FailingMalloc(directory / "orders", own_only=True)
    daemon = start(ServedDaemon, server, speed=20, preloads=[memory.library],
                   before=["env", f"FAILING_MALLOC={memory.file}"])
    server.wait_for_listeners()
    epoch = numbers(daemon.address, EPOCH)
    memory.fail_one_in(2)
    for index in range(100, 120):
        server.ctl("fault", "raise", str(index), "class=4")
    daemon.wait_for_log("Added an entry, Total Fault entries:24\n")
    memory.fail_one_in(0)
    assert memory.failed > 10
    assert numbers(daemon.address, EPOCH) != epoch
    assert numbers(daemon.address, COMPLETE) == [FALSE]
    assert faults(daemon.address) != SCENARIO_FAULTS | {(4, index) for index in range(100, 120)}
    server.ctl("broadcaster", "close")
    wait_until(lambda: numbers(daemon.address, COMPLETE) == [TRUE], what="all faults")
    assert faults(daemon.address) == SCENARIO_FAULTS | {(4, index) for index in range(100, 120)}


def test_walks_of_any_size_find_the_same(server, daemon):
    for class_code, index in ((0, 0), (0, 4294967295), (4294967295, 0), (4294967295, 4294967295)):
        server.ctl("fault", "send", str(index), f"class={class_code}")
    wait_for_changes(daemon.address, 8)
    walks = [[line for line in snmp("snmpbulkwalk", daemon.address, f"{OBJECTS}.{group}", options=[f"-Cr{size}"])
              if "No more variables" not in line] for size in (1, 7, 100) for group in (8, 9, 10)]
    assert [len(walk) for walk in walks[:3]] == [6, 10 * 8, 13 * 8]
    assert walks[:3] == walks[3:6] == walks[6:]
    names = [line.split(" = ")[0] for line in walks[1]]
    assert snmpget(daemon.address, *names) == walks[1]


# {what a GETNEXT in the table of faults begins with: the cell that follows}
FOLLOWING = {"3": "3.8.17", "3.8": "3.8.17", "3.8.16": "3.8.17", "3.8.17": "3.11.23", "3.8.17.0": "3.11.23",
             "3.7.4294967295": "3.8.17", "3.209.31": "4.8.17", "3.4294967295.4294967295": "4.8.17", "2.8": "3.8.17"}
UNKNOWN = ["9.1.3.8", "9.1.3.8.18", "9.1.3.8.17.0", "9.1.13.8.17", "9.1.2.8.17", "10.1.2.0", "10.1.2.5", "10.1.2.1.1",
           "10.1.1.1", "10.1.15.1"]


def test_names_lead_to_the_cells_that_they_mean(daemon):
    after = snmp("snmpgetnext", daemon.address, *(f"{FAULTS}.{name}" for name in FOLLOWING))
    assert [line.split(" = ")[0] for line in after] == [f".{FAULTS}.{cell}" for cell in FOLLOWING.values()]
    unknown = snmpget(daemon.address, *(f"{OBJECTS}.{name}" for name in UNKNOWN))
    assert all("No Such" in line for line in unknown), unknown


def test_a_notified_change_can_be_read_at_once(start, server):
    collector = Collector()
    try:
        daemon = start(ServedDaemon, server, speed=20,
                       configuration=f"trap2sink {collector.destination} public\n")
        server.wait_for_listeners()
        for count in range(1, 21):
            server.ctl("fault", "raise", str(100 + count), "class=processor")
            wait_until(lambda: len(collector.datagrams) >= count, what="the notification")
            assert numbers(daemon.address, CHANGES, NOTIFIED) == [4 + count, count]
    finally:
        collector.stop()
