"""The daemon's own MIB: each object shows what has happened, and is answered while the module's tables are not."""

import os
import re
import signal
import subprocess
import time

import pytest

from agents import BUILD, ROOT, TEST_BASE, TEST_MODULES, Daemon, Master, TrapCollector, snmp, snmpget, wait_until
from delays import Poll
from oids import DAEMON_BASE, PROCESSOR_DN
from server import ServedDaemon, Server, descendant
from slow_tables import PROCESSOR_LOCK, hold, start_agent
from udp_manager import GET, UdpManager

MASTER_CONFIGURATION = ROOT / "host/snmpd-master.conf"
MIBS = ROOT / "mibs"
OBJECTS = f"{DAEMON_BASE}.1"
SLOW = f"{PROCESSOR_DN}.7"
# Where the names of TAVO-SUBAGENT-MIB stand, without tavoSubagent.
SCALARS = {
    "Uptime": "1.1", "Threads": "1.2",
    "SessionState": "2.1", "SessionReconnects": "2.2",
    "NotificationsQueued": "3.1", "NotificationsLongestQueue": "3.2", "NotificationsSent": "3.3",
    "NotificationsDropped": "3.4", "NotificationsRefused": "3.5", "NotificationsUndelivered": "3.6",
    "RequestsWaiting": "4.1", "RequestsSetAside": "4.2", "RequestsLongestWait": "4.3",
    "ToolsStarted": "5.1", "ToolsFailed": "5.2", "ToolsKilled": "5.3",
    "PlatformCallsOverdue": "6.1", "PlatformOverdueCall": "6.2", "PlatformOverdueAge": "6.3",
    "FaultsEpoch": "8.1", "FaultsChanges": "8.2", "FaultsNotified": "8.3", "FaultsOldestChange": "8.4",
    "FaultsActive": "8.5", "FaultsComplete": "8.6",
}
COLUMNS = {"Rows": 3, "Rebuilds": 4, "Failures": 5, "LastTime": 6, "LastDuration": 7, "State": 8, "RebuildAge": 9}
STAND_ALONE, CONNECTED = 1, 2
IDLE, REBUILDING = 1, 2


def value_of(line):
    text = line.strip()
    return int(text) if re.fullmatch(r"\d+", text) else text.strip('" ')


class Health:
    """What a daemon says of itself: the value of each object by its name, of the table's columns by table and name."""

    def __init__(self, address):
        self._address = address

    def _get(self, *oids):
        return [value_of(line) for line in snmpget(self._address, *oids, options=["-Oqvt"])]

    def __getitem__(self, name):
        return self._get(f"{OBJECTS}.{SCALARS[name]}.0")[0]

    def tables(self):
        """The names of all tables, in order."""
        return [value_of(line) for line in snmp("snmpwalk", self._address, f"{OBJECTS}.7.1.2", options=["-Oqv"])]

    def table(self, name):
        row = self.tables().index(name) + 1
        return dict(zip(COLUMNS, self._get(*(f"{OBJECTS}.7.1.{column}.{row}" for column in COLUMNS.values()))))


def all_objects(rows):
    """The OIDs of every object and cell."""
    return ([f"{OBJECTS}.{number}.0" for number in SCALARS.values()] +
            [f"{OBJECTS}.7.1.{column}.{row}" for column in range(2, 10) for row in range(1, rows + 1)])


def assert_quick(address, rows, during):
    """Asks for every object again and again while `during` is true; each answer comes at once."""
    poll = Poll(address, all_objects(rows), pause=1)
    wait_until(lambda: not during(), what="the end of what is slow")
    delays = poll.stop()
    print(delays)
    assert not delays.unanswered
    assert not delays.errors
    assert delays.percentile(.9) < 0.1, "a busy machine delays a few"


def served(start, kind, server, **settings):
    master = start(Master, MASTER_CONFIGURATION) if kind == "agentx" else None
    return start(ServedDaemon, server, master=master, **settings)


def translated_walk(address):
    """What snmpwalk prints with all MIB modules."""
    return subprocess.run(["snmpwalk", "-v2c", "-c", "public", "-t", "20", "-M", f"{MIBS}:{MIBS / 'base'}", "-m", "ALL",
                           address, f".{OBJECTS}"], capture_output=True, text=True, check=True)


@pytest.mark.parametrize("kind", ["alone", "agentx"])
def test_every_object_is_served_as_the_mib_has_it(start, kind):
    daemon = served(start, kind, start(Server))
    walk = translated_walk(daemon.address)
    assert walk.stderr == ""
    assert "Wrong Type" not in walk.stdout
    names = set(re.findall(r"(?m)^TAVO-SUBAGENT-MIB::(\w+)\.[\d.]+ = ", walk.stdout))
    group_objects = re.findall(r"OBJECTS {([^}]*)}", (MIBS / "TAVO-SUBAGENT-MIB").read_text())
    assert names == {name for objects in group_objects for name in re.findall(r"\w+", objects)}
    health = Health(daemon.address)
    assert len(health.tables()) == 20
    bulk = [f"-Cr{size}" for size in (1, 10, 100)]
    walks = [snmp("snmpbulkwalk", daemon.address, f"{OBJECTS}.{group}", options=[size]) for size in bulk
             for group in (2, 6)]
    assert walks[:2] == walks[2:4] == walks[4:]
    assert health["SessionState"] == (CONNECTED if kind == "agentx" else STAND_ALONE)
    assert health["ToolsStarted"] > 0
    assert health["ToolsKilled"] == 0
    before = health["Uptime"]
    threads = len(list(os.scandir(f"/proc/{daemon.pid}/task")))
    assert health["Threads"] == threads >= 8
    assert health["Uptime"] > before


def test_daemon_fronts_each_platform_function():
    declared = {name for header in (ROOT / "platform").glob("*.h")
                for name in re.findall(r"(?m)^(?:int|void) \*?(\w+)\(", header.read_text())}
    waits_for_events = {"listen_to_fe_broadcaster", "se_get_next_storage_event"}
    symbols = subprocess.run(["nm", "-D", "--defined-only", BUILD / "snmp-subagentd"], capture_output=True, text=True,
                             check=True).stdout
    assert len(declared) > 15
    assert declared - {line.split()[2] for line in symbols.splitlines()} == waits_for_events
    listed = re.findall(r'(?m)^ +"(\w+)",$', (ROOT / "host/platform_calls.cpp").read_text())
    assert sorted(listed) == sorted(declared - waits_for_events)


def test_unknown_objects_are_refused(start):
    daemon = start(Daemon, module=TEST_MODULES / "notifier.so")
    answers = snmp("snmpget", daemon.address, *(f"{OBJECTS}.{oid}" for oid in (
        "1.3.0", "1.0.0", "1.1", "1.1.1", "11.1.0", "8.7.0", "9.1.3.1.1", "10.1.2.1", "7.1.1.1", "7.1.2.1", "7.1.10.1")))
    assert all("No Such" in answer for answer in answers), answers
    assert snmp("snmpset", daemon.address, f"{OBJECTS}.1.2.0", "u", "1", check=False) == []


@pytest.mark.parametrize("kind", ["alone", "agentx"])
def test_rebuilds_and_their_failures_are_counted(start, kind):
    server = start(Server)
    daemon = served(start, kind, server, speed=20)
    health, name = Health(daemon.address), "tavoProcessorUnitTable"
    first = health.table(name)
    assert (first["Rebuilds"], first["Failures"], first["Rows"], first["State"]) == (1, 0, 2, IDLE)
    fault_table = health.table("tavoFaultTable")
    assert (fault_table["Rebuilds"], fault_table["LastTime"]) == (0, "00 00 00 00 00 00 00 00")
    wait_until(lambda: health.table("tavoFaultTable")["Rows"] > 0, what="the faults")
    wait_until(lambda: health.table(name)["Rebuilds"] == 2, what="a periodic refresh")
    second = health.table(name)
    assert (second["Failures"], second["Rows"]) == (0, 2)
    assert second["LastTime"] != first["LastTime"]
    assert health.table("tavoEquipmentPsuTable")["LastDuration"] >= 4000, "five seconds of pauses"
    server.kill_services()
    wait_until(lambda: health.table(name)["Failures"] > 0, what="a failed rebuild")
    third = health.table(name)
    assert third["Rebuilds"] > second["Rebuilds"]
    assert third["Rows"] == 0


@pytest.mark.parametrize("kind", ["alone", "agentx"])
def test_a_hanging_tool_shows_and_delays_nothing(start, kind):
    server = start(Server)
    daemon = served(start, kind, server, speed=20, options=["--tool-timeout", "100"])
    health = Health(daemon.address)
    server.ctl("tool", "datactl", "slow", "600")

    def rebuilding():
        return [name for name in health.tables() if health.table(name)["State"] == REBUILDING]
    wait_until(lambda: any(health.table(name)["RebuildAge"] > 10_000 for name in rebuilding()), what="the hanging tool")
    name = rebuilding()[0]
    failed, rebuilds = health["ToolsFailed"], health.table(name)["Rebuilds"]
    assert_quick(daemon.address, 20, lambda: health["ToolsKilled"] == 0)
    assert health["ToolsFailed"] > failed
    wait_until(lambda: health.table(name)["Rebuilds"] > rebuilds, what="the end of the rebuild")
    assert health.table(name)["LastDuration"] > 90_000, "on the daemon's clock"


@pytest.mark.parametrize("kind", ["alone", "agentx"])
def test_a_slow_platform_call_is_named(start, kind):
    server = start(Server)
    daemon = served(start, kind, server, options=["--tool-timeout", "3"])
    health = Health(daemon.address)
    server.wait_for_sd_listener(daemon)
    name = "tavoStorageVeltroCardTable"
    wait_until(lambda: health.table(name)["State"] == IDLE, what="the end of the first rebuild")
    rebuilds = health.table(name)["Rebuilds"]
    assert (health["PlatformCallsOverdue"], health["PlatformOverdueCall"], health["PlatformOverdueAge"]) == (0, "", 0)
    services = descendant(server.pid, "bmcsim")
    os.kill(services, signal.SIGSTOP)
    try:
        server.run("/usr/bin/python3", "-c",
                   "import socket; socket.socket(socket.AF_UNIX).connect('/tmp/snmp_velt_sock')")
        daemon.wait_for_log(r"platform call not back after 3\.\d s: veltutil_mgnt\n")
        assert (health["PlatformCallsOverdue"], health["PlatformOverdueCall"]) == (1, "veltutil_mgnt")
        assert 3000 <= health["PlatformOverdueAge"] < 20_000
        table = health.table(name)
        assert (table["State"], table["Rebuilds"]) == (REBUILDING, rebuilds)
        assert table["RebuildAge"] >= 3000
        until = time.monotonic() + 3
        assert_quick(daemon.address, 20, lambda: time.monotonic() < until)
    finally:
        os.kill(services, signal.SIGCONT)
    daemon.wait_for_log(r"platform call back after \d+\.\d s: veltutil_mgnt\n")
    wait_until(lambda: health.table(name)["State"] == IDLE, what="the end of the rebuild")
    assert (health["PlatformCallsOverdue"], health["PlatformOverdueCall"], health["PlatformOverdueAge"]) == (1, "", 0)
    assert health.table(name)["Rebuilds"] == rebuilds + 1
    assert health.table(name)["LastDuration"] >= 3000


@pytest.mark.parametrize("kind", ["alone", "agentx"])
def test_requests_set_aside_are_counted_and_timed(start, kind):
    agent = start_agent(start, kind)
    health = Health(agent.address)
    assert [health[name] for name in ("RequestsWaiting", "RequestsSetAside", "RequestsLongestWait")] == [0, 0, 0]
    manager = UdpManager(agent.address)
    hold(agent, PROCESSOR_LOCK, 5)
    waiting = [manager.send(GET, SLOW), manager.send(GET, f"{SLOW}.1", SLOW)]
    wait_until(lambda: health["RequestsWaiting"] == 2, what="both requests")
    assert_quick(agent.address, 3, lambda: "releasing ev 41" not in agent.log())
    wait_until(lambda: manager.receive(0.1) is not None and not manager.unanswered(), what="both answers")
    assert all(manager.responses[request].error == 0 for request in waiting)
    assert health["RequestsWaiting"] == 0
    assert health["RequestsSetAside"] == 2
    assert health["RequestsLongestWait"] > 3000


def test_notifications_and_sessions_are_counted(start):
    collector = start(TrapCollector)
    master = start(Master, MASTER_CONFIGURATION, trap_destination=collector.destination)
    daemon = start(Daemon, module=TEST_MODULES / "notifier.so", master=master, options=["--notification-limit", "100"])
    health = Health(daemon.address)
    daemon.order("send 1 20 10")
    wait_until(lambda: health["NotificationsSent"] == 20, what="20 notifications")
    assert health["NotificationsLongestQueue"] <= 20
    assert (health["SessionState"], health["SessionReconnects"]) == (CONNECTED, 0)
    master.kill()
    daemon.wait_for_log("AgentX master disconnected us")
    daemon.order("send 21 150 10")
    daemon.wait_for_log("sent number 170\n")
    start(Master, MASTER_CONFIGURATION, udp_port=master.port, trap_destination=collector.destination)
    wait_until(lambda: any("INTEGER" in line for line in snmpget(daemon.address, f"{TEST_BASE}.1.0")),
               what="the daemon's return")
    wait_until(lambda: health["NotificationsSent"] == 120, what="what was left of 150 notifications")
    assert (health["SessionState"], health["SessionReconnects"]) == (CONNECTED, 1)
    assert health["NotificationsDropped"] == 50
    assert health["NotificationsLongestQueue"] == 100
    assert (health["NotificationsQueued"], health["NotificationsRefused"]) == (0, 0)


def test_notifications_are_counted_stand_alone(start):
    collector = start(TrapCollector)
    daemon = start(Daemon, module=TEST_MODULES / "notifier.so",
                   configuration=f"trap2sink {collector.destination} public\n")
    daemon.order("send 1 30 10")
    health = Health(daemon.address)
    wait_until(lambda: health["NotificationsSent"] == 30, what="30 notifications")
    assert health["NotificationsQueued"] == 0


def test_a_queue_shows_while_it_waits(start):
    daemon = start(Daemon, module=TEST_MODULES / "notifier.so")
    daemon.order("send 1 5000 960")
    daemon.wait_for_log("sent number 5000\n")
    health = Health(daemon.address)
    wait_until(lambda: health["NotificationsSent"] == 5000, what="5,000 notifications")
    assert 1 <= health["NotificationsLongestQueue"] <= 5000


def test_snmpd_with_the_module_has_no_such_objects(start):
    agent = start_agent(start, "dlmod")
    assert "No Such Object" in snmpget(agent.address, f"{OBJECTS}.1.1.0")[0]
    hold(agent, PROCESSOR_LOCK, 0.5)
    assert UdpManager(agent.address).ask(GET, SLOW).error == 0
