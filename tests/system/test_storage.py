"""The storage and SD-card tables on the simulated server: what they show, and how they follow the hardware."""

import re
import signal
import subprocess
import time

import pytest

from agents import snmp, snmpget, wait_until
from oids import OBJECTS, PROCESSOR_DN
from server import SD_TRIGGER, Server, ServedDaemon

STORAGE = f"{OBJECTS}.45"
CONTROLLERS = f"{STORAGE}.1.1"
DISKS = f"{STORAGE}.4.1"
VOLUMES = f"{STORAGE}.8.1"
BATTERIES = f"{STORAGE}.11.1"
CARDS = f"{STORAGE}.34.1"
SD_CONTROLLER = f"{STORAGE}.35.1"
PARTITIONS = f"{STORAGE}.36.1"

SNAPSHOT = "/var/stor_info_data"
SOCKET = "/tmp/snmp_velt_sock"
SPEED = 20


def walk(address, column):
    """{index: value} of a column; {} if the table is empty."""
    lines = snmp("snmpbulkwalk", address, column)
    cells = (re.match(r'\.[\d.]+\.(\d+) = (?:[\w-]+: (.*)|"")$', line) for line in lines)
    return {int(cell[1]): cell[2] or "" for cell in cells if cell}


def texts(address, column):
    """walk() without the quotation marks."""
    return {index: value.strip('"') for index, value in walk(address, column).items()}


def tables_in_storage(address):
    """{table: how many rows it has} for the seven tables."""
    return {table: len(walk(address, f"{table}.2"))
            for table in (CONTROLLERS, DISKS, VOLUMES, BATTERIES, CARDS, SD_CONTROLLER, PARTITIONS)}


@pytest.fixture
def server(start):
    return start(Server)


@pytest.fixture
def daemon(start, server):
    return start(ServedDaemon, server, speed=SPEED)


def test_parts_are_named_by_controller_and_slot(daemon):
    assert texts(daemon.address, f"{CONTROLLERS}.2") == {
        1: "sys/rack-unit-1/board/storage-SAS-SAS",
        2: "sys/rack-unit-1/board/storage-SAS-SLOT-4",
    }
    assert texts(daemon.address, f"{BATTERIES}.2") == {1: "sys/rack-unit-1/board/storage-SAS-SLOT-4/raid-battery"}
    disks = texts(daemon.address, f"{DISKS}.2")
    assert disks[1] == "sys/rack-unit-1/board/storage-SAS-SLOT-4/pd-1"
    assert list(disks) == list(range(1, len(disks) + 1))
    # The last volume keeps its number, although the one before it is gone.
    assert [name.split("-1/board/")[1] for name in texts(daemon.address, f"{VOLUMES}.2").values()] == [
        "storage-SAS-SAS/vd-0", "storage-SAS-SLOT-4/vd-0", "storage-SAS-SLOT-4/vd-2"]

    several = [f"{DISKS}.{column}.{slot}" for slot in (3, 1, 2) for column in (3, 6, 14)]
    answers = snmpget(daemon.address, *several)
    assert [answer.split(" = ")[0] for answer in answers] == [f".{name}" for name in several]
    assert not [answer for answer in answers if "No Such" in answer]
    assert [re.findall(r"pd-\d", answer)[0] for answer in answers[::3]] == ["pd-3", "pd-1", "pd-2"]


def test_all_tools_walk_the_same_subtree(daemon):
    walked = snmp("snmpwalk", daemon.address, STORAGE)
    for repetitions in ("1", "10", "50"):
        assert snmp("snmpbulkwalk", daemon.address, f"-Cr{repetitions}", STORAGE) == walked
    tables = [int(re.match(rf"\.{re.escape(STORAGE)}\.(\d+)\.", line)[1]) for line in walked]
    assert sorted(set(tables)) == [1, 4, 8, 11, 34, 35, 36]
    assert tables == sorted(tables)


def test_pulled_disk_becomes_a_placeholder(daemon, server):
    def slot_2():
        return [answer.split(" = ")[1] for answer in
                snmpget(daemon.address, f"{DISKS}.9.2", f"{DISKS}.10.2", f"{DISKS}.14.2")]

    server.wait_for_listeners()
    before = slot_2()
    assert before[2] == 'STRING: "DISK-B"'
    server.ctl("drive", "pull", "4", "2")
    # The module leaves the snapshot alone for a minute, and its refresh thread looks every 20 seconds.
    wait_until(lambda: slot_2() == ["INTEGER: 6", "INTEGER: 11", '""'], what="a placeholder in slot 2")
    server.ctl("drive", "insert", "4", "2")
    wait_until(lambda: slot_2() == before, what="the disk in slot 2")


def test_changed_volume_battery_controller_are_shown(daemon, server):
    def cells():
        """The operability of the on-board volume and of the battery, and the third controller's name."""
        return [answer.split(" = ")[1] for answer in
                snmpget(daemon.address, f"{VOLUMES}.9.1", f"{BATTERIES}.9.1", f"{CONTROLLERS}.2.3")]

    server.wait_for_listeners()
    before = cells()
    assert before == ["INTEGER: 1", "INTEGER: 3", "No Such Instance currently exists at this OID"]
    server.ctl("volume", "degrade", "0", "0")
    server.ctl("battery", "fail", "4")
    server.ctl("controller", "add", "7", "location=SLOT-7")
    changed = ["INTEGER: 3", "INTEGER: 1", 'STRING: "sys/rack-unit-1/board/storage-SAS-SLOT-7"']
    wait_until(lambda: cells() == changed, what="the changed cells")
    server.ctl("volume", "rebuild", "0", "0")
    server.ctl("battery", "repair", "4")
    server.ctl("controller", "remove", "7")
    wait_until(lambda: cells() == before, what="the cells as before")


def test_burst_of_events_is_one_rebuild(start, server):
    # The refresh thread looks for events a minute after its start. The clock must be slow enough for the burst to be
    # over by then: later events rightly cause a second rebuild.
    speed = 8
    daemon = start(ServedDaemon, server, speed=speed)
    server.wait_for_listeners()
    # Without a snapshot, each rebuild logs one line.
    server.ctl("snapshot", "missing")
    server.ctl("storage-event", "7", "1000")
    wait_until(lambda: walk(daemon.address, f"{DISKS}.2") == {}, what="a rebuild")
    time.sleep(100 / speed)  # a second rebuild would come within this time
    assert daemon.log().count(f"Unable to open {SNAPSHOT}") == 1


@pytest.mark.parametrize(
    "damage, message",
    [
        ("bmcsim ctl snapshot missing", f"Unable to open {SNAPSHOT}"),
        ("bmcsim ctl snapshot empty", f"Unable to read ctrl_count from {SNAPSHOT}"),
        ("bmcsim ctl snapshot truncate 3", f"Unable to read ctrl_count from {SNAPSHOT}"),
        ("bmcsim ctl snapshot truncate 5000", f"Unable to read ctrl from {SNAPSHOT} for index 1"),
        ("bmcsim ctl snapshot count -1", None),
        ("bmcsim ctl snapshot count 0", None),
        (f"rm {SNAPSHOT} && mkfifo {SNAPSHOT}", f"Unable to read ctrl_count from {SNAPSHOT}"),
        (f"rm {SNAPSHOT} && mkdir {SNAPSHOT}", f"Unable to read ctrl_count from {SNAPSHOT}"),
        (f"rm {SNAPSHOT} && truncate -s 4G {SNAPSHOT}", None),
    ],
    ids=["missing", "empty", "no-count", "no-record", "count-minus-1", "count-0", "fifo", "directory", "sparse"],
)
def test_damaged_snapshot_only_empties_the_tables(start, server, damage, message):
    server.run("sh", "-c", damage)
    daemon = start(ServedDaemon, server, speed=SPEED)
    tables = tables_in_storage(daemon.address)
    assert [tables[table] for table in (CONTROLLERS, DISKS, VOLUMES, BATTERIES)] == [0, 0, 0, 0]
    assert tables[CARDS] == 2
    assert len(walk(daemon.address, PROCESSOR_DN)) == 2
    complaints = re.findall(rf"Unable to .*{SNAPSHOT}.*", daemon.log())
    assert complaints == ([message] if message else [])


def test_huge_controller_count_costs_no_memory(start, server):
    server.ctl("snapshot", "count", "2147483647")
    daemon = start(ServedDaemon, server, speed=SPEED)
    daemon.wait_for_log(f"Unable to read ctrl from {SNAPSHOT} for index 3")
    # At start-up the module shows the controllers that it could read. A later rebuild would empty the tables.
    assert len(walk(daemon.address, f"{CONTROLLERS}.2")) == 2
    assert daemon.resident_kib() < 100_000


def rebuilds(daemon):
    """How often the SD-card tables have been rebuilt."""
    return daemon.log().count(SD_TRIGGER)


def test_sd_card_changes_are_shown_at_once(daemon, server):
    server.wait_for_sd_listener(daemon)
    before = rebuilds(daemon)
    assert texts(daemon.address, f"{CARDS}.3") == {1: "pd-SLOT-1", 2: "pd-SLOT-2"}
    server.ctl("sd-card", "pull", "1")
    wait_until(lambda: texts(daemon.address, f"{CARDS}.3") == {1: "pd-SLOT-2"}, what="one card")
    server.ctl("sd-card", "insert", "1")
    wait_until(lambda: len(walk(daemon.address, f"{CARDS}.3")) == 2, what="two cards")

    # The kind of partition 1 depends on the mode. There is no partition 3, and so no row 3.
    assert walk(daemon.address, f"{PARTITIONS}.8") == {1: "3", 2: "1", 4: "4"}
    server.ctl("sd-mode", "1")
    wait_until(lambda: walk(daemon.address, f"{PARTITIONS}.8")[1] == "0", what="the other mode")
    assert walk(daemon.address, f"{SD_CONTROLLER}.45") == {1: "2"}
    server.ctl("sd-partition", "set", "2", "column-24=7")
    wait_until(lambda: walk(daemon.address, f"{PARTITIONS}.24")[2] == "15", what="the changed partition")
    assert rebuilds(daemon) == before + 4


def test_each_connection_rebuilds_the_sd_card_tables(daemon, server):
    server.wait_for_sd_listener(daemon)
    before = rebuilds(daemon)
    expected = snmp("snmpbulkwalk", daemon.address, "-Cr50", STORAGE)
    clients = [subprocess.Popen([str(word) for word in server.entered("bmcsim", "ctl", "sd-trigger", "500", *text)],
                                stdout=subprocess.PIPE, text=True)
               for text in ([], ["changed"])]
    walks = 0
    while any(client.poll() is None for client in clients):
        assert snmp("snmpbulkwalk", daemon.address, "-Cr50", STORAGE) == expected
        walks += 1
    for client in clients:
        assert client.communicate()[0].startswith("500 of 500 connections")
    daemon.wait_for_log(SD_TRIGGER, count=before + 1000)
    print(f"{walks} walks meanwhile")
    assert walks > 0
    assert rebuilds(daemon) == before + 1000
    assert daemon.log().count("velt_thread: changed\n") == 500
    assert daemon.log().count("velt_thread:recv() failed: Success\n") == before + 500


def test_long_message_is_logged_up_to_1024_octets(daemon, server):
    server.wait_for_sd_listener(daemon)
    before = rebuilds(daemon)
    server.ctl("sd-trigger", "1", "a" * 1024 + "b" * 976)
    daemon.wait_for_log(SD_TRIGGER, count=before + 1)
    assert "velt_thread: " + "a" * 1024 + "\n" in daemon.log()
    assert "b" * 10 not in daemon.log()


def test_silent_sd_client_keeps_nobody_waiting(daemon, server):
    server.wait_for_sd_listener(daemon)
    before = rebuilds(daemon)
    peer = subprocess.Popen([str(word) for word in server.entered(
        "python3", "-c",
        f"import socket, sys; s = socket.socket(socket.AF_UNIX); s.connect('{SOCKET}'); "
        "print('connected', flush=True); sys.stdin.read()")], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
    assert peer.stdout.readline() == "connected\n"
    # It is silent until we close its input. If requests waited for it, they would not be answered now.
    for _ in range(8):
        assert tables_in_storage(daemon.address)[CARDS] == 2
        assert rebuilds(daemon) == before
    peer.stdin.close()
    assert peer.wait(60) == 0
    daemon.wait_for_log(SD_TRIGGER, count=before + 1)
    assert rebuilds(daemon) == before + 1


def test_stale_file_in_the_sockets_place_is_replaced(start, server):
    server.run("sh", "-c", f"echo stale > {SOCKET}")
    daemon = start(ServedDaemon, server, speed=SPEED)
    server.wait_for_sd_listener(daemon)
    server.ctl("sd-trigger", "1", "hello")
    daemon.wait_for_log("velt_thread: hello")


def test_directory_in_the_sockets_place_is_moved_aside(start, server):
    server.run("mkdir", SOCKET)
    daemon = start(ServedDaemon, server, speed=SPEED)
    daemon.wait_for_log(rf"velt_thread: a directory stood at {SOCKET} and is now {SOCKET}\.[0-9a-f]+")
    server.wait_for_sd_listener(daemon)
    assert tables_in_storage(daemon.address)[CARDS] == 2


def test_daemon_stops_while_storage_threads_wait(start, server):
    # A slow clock: the daemon's loop gets seconds to handle the signal before a watcher thread ends the process.
    daemon = start(ServedDaemon, server, speed=2)
    daemon.signal(signal.SIGTERM)
    assert daemon.wait() == 0
    assert "Stopping StorageThread" in daemon.log()
    assert "Stopping Velt Thread" in daemon.log()
