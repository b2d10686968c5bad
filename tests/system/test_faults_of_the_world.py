"""What the world does to the daemon costs what it must and nothing else, and all is as before once it is over.

Each row of the two tables is a fault: how it comes and goes, what the log says, and which tables it costs. Meanwhile the
daemon answers, and notifies each fault once. What comes from tools, masters, managers and the heap has files of its own:
docs/reliability.md lists all.

TAVO_STOPPED_SECONDS is for how long processes are stopped (default: 2).
"""

import os
import re
import signal
import threading
import time
from typing import NamedTuple

import pytest

from agents import ROOT, TEST_MODULES, Daemon, Master, TrapCollector, snmpget, wait_until
from broken_world import SNAPSHOT, World
from oids import FAULT_TABLE, PROCESSOR_DN
from server import UNREFRESHED_CLASS, descendant
from test_daemon_notifications import numbers
from test_walk import GOLDEN, cells

STOPPED = float(os.environ.get("TAVO_STOPPED_SECONDS", "2"))
STORAGE = {"tavoStorageControllerTable", "tavoStorageLocalDiskTable", "tavoStorageLocalLunTable",
           "tavoStorageRaidBatteryTable"}
FROM_DUMPS = {"tavoMemoryUnitEnvStatsTable", "tavoProcessorEnvStatsTable", "tavoComputeRackUnitTable",
              "tavoAdaptorUnitTable", "tavoComputeMbPowerStatsTable", "tavoComputeRackUnitMbTempStatsTable",
              "tavoStorageLocalDiskTable", "tavoEquipmentHealthLedTable"}
NO_SOCKET = "rm -f /tmp/snmp_velt_sock"
NO_SNAPSHOT = f"rm -rf {SNAPSHOT}"
# Files that a tool could overwrite in place need no room on a full disk.
NO_DUMPS = ("rm -f /var/getCPUInventory /var/getNumOfHDD /var/adapterInventory /var/LedInv /var/memoryStatsInventory "
            "/var/processorStatsInventory /var/motherboardStatsInventory")
FILL_VAR = (f"{NO_DUMPS}; mount -o remount,size=$(( $(df -k --output=used /var | tail -1) + 4 ))k /var; "
            "dd if=/dev/zero of=/var/filler bs=4k 2> /dev/null || true")
EMPTY_VAR = "rm -f /var/filler; mount -o remount,size=50% /var"


def read_only(directory):
    """Mounts it over itself: what has a file open there for writing keeps it."""
    return f"mount --rbind {directory} {directory}; mount -o remount,bind,ro {directory}"


class Fault(NamedTuple):
    """`comes` and `goes`: scripts for the server, or functions of the world."""
    name: str
    comes: object
    goes: object
    says: str = ""  # a regular expression
    costs: frozenset = frozenset()  # the tables that show something else
    parts: tuple = World.parts  # see World.ask_for_rebuilds


def set_clock(seconds):
    """The clock is set between two passes; then a processor warms up, which shows that tables are still rebuilt."""
    def comes(world):
        world.wait_for_the_end_of_a_refresh()
        world.set_clock(seconds)
        world.server.ctl("processor", "set", "1", "temperature=71.5")
    return comes


def cool(world):
    world.server.ctl("processor", "set", "1", "temperature=41.6")


def fill_var(world):
    """No tool writes a dump between the removal of the old ones and the moment when there is no room left."""
    with world.stopped_daemon():
        world.wait_for_the_end_of_tools()
        world.shell(FILL_VAR)


def bad_snapshot(name, script, says, goes=""):
    return Fault(f"snapshot-{name}", f"{NO_SNAPSHOT}; {script}", f"{goes}{NO_SNAPSHOT}; bmcsim ctl snapshot ok", says,
                 STORAGE, parts=())


LATER = [
    bad_snapshot("is-a-fifo-with-a-silent-writer",
                 f"mkfifo {SNAPSHOT}; sleep 600 3<> {SNAPSHOT} > /dev/null 2>&1 & echo $! > /var/writer",
                 f"Unable to read ctrl_count from {SNAPSHOT}", "kill $(cat /var/writer); rm /var/writer; "),
    bad_snapshot("is-a-directory", f"mkdir {SNAPSHOT}", f"Unable to read ctrl_count from {SNAPSHOT}"),
    bad_snapshot("is-a-loop-of-links", f"ln -s {SNAPSHOT} {SNAPSHOT}", f"Unable to open {SNAPSHOT}"),
    # 2,147,483,647 controllers, and zeros for most of them.
    bad_snapshot("has-10-GB", rf"printf '\377\377\377\177' > {SNAPSHOT}; truncate -s 10G {SNAPSHOT}",
                 "Unable to get memory"),
    Fault("var-is-full", fill_var, EMPTY_VAR, "SNMP:Failed frontTemp", FROM_DUMPS),
    # The dumps stay as they were.
    Fault("var-is-read-only", read_only("/var"), "umount -l /var",
          "cannot create /var/processorStatsInventory: Read-only file system"),
    Fault("clock-is-a-day-ahead", set_clock(86400), cool, costs={"tavoProcessorEnvStatsTable"}),
    Fault("clock-is-set-back-by-two-days", set_clock(-86400), cool, costs={"tavoProcessorEnvStatsTable"}),
]
AT_START = [
    Fault("tmp-is-read-only", f"{NO_SOCKET}; {read_only('/tmp')}", "umount -l /tmp",
          r"velt_thread: bind\(\) failed: Read-only file system"),
    Fault("tmp-is-full",
          f"{NO_SOCKET}; mount -o remount,nr_inodes=$(( $(df --output=iused /tmp | tail -1) + 20 )) /tmp; "
          "number=0; while touch /tmp/filler$number 2> /dev/null; do number=$((number + 1)); done",
          "rm -f /tmp/filler*; mount -o remount,nr_inodes=100000 /tmp",
          r"velt_thread: bind\(\) failed: No space left on device"),
    Fault("var-is-read-only", f"{NO_DUMPS}; {read_only('/var')}", "umount -l /var",
          "cannot create /var/getCPUInventory: Read-only file system", FROM_DUMPS),
    Fault("var-belongs-to-another-user", f"{NO_DUMPS}; chmod go-w /var", "chmod go+w /var",
          "cannot create /var/getCPUInventory: Permission denied", FROM_DUMPS),
]


@pytest.fixture(scope="module")
def module_world(tmp_path_factory):
    # A short name, because the path of a Unix socket has at most 107 characters.
    running = World(tmp_path_factory.mktemp("w"))
    yield running
    running.stop()


@pytest.fixture
def world(module_world):
    yield module_world
    if module_world.daemon.process.poll() is not None:  # the test has ended the daemon, or failed
        module_world.start_daemon()


@pytest.fixture
def users_world(world):
    if world.user is None:
        pytest.skip("needs root, to run the daemon as another user")
    return world


def happen(world, what):
    if callable(what):
        what(world)
    else:
        world.shell(what)


def by_name(faults):
    return {"argvalues": faults, "ids": [fault.name for fault in faults]}


def show_damage(world, fault, logged):
    wait_until(lambda: re.search(fault.says, world.daemon.log()[logged:]), 90, f"the line {fault.says!r}")
    wait_until(lambda: world.tables_that_differ() == fault.costs, 90, f"damage to {set(fault.costs)} and no other")
    world.must_answer()
    world.must_notify()


def test_user_without_rights_serves_every_value(users_world):
    of_faults = f".{FAULT_TABLE}."
    served = [line for line in GOLDEN.read_text().splitlines()
              if not line.startswith(of_faults) and not line.endswith(" = <time>")]
    assert cells(users_world.well) == served


@pytest.mark.parametrize("fault", **by_name(LATER))
def test_fault_costs_only_what_it_must(world, fault):
    logged, pid = len(world.daemon.log()), world.daemon.pid
    happen(world, fault.comes)
    try:
        world.ask_for_rebuilds(fault.parts)
        show_damage(world, fault, logged)
    finally:
        happen(world, fault.goes)
    world.ask_for_rebuilds(fault.parts)
    world.wait_until_well()
    assert world.daemon.pid == pid


@pytest.mark.parametrize("fault", **by_name(AT_START))
def test_fault_at_start_costs_only_what_it_must(users_world, fault):
    world = users_world
    world.daemon.stop()
    happen(world, fault.comes)
    try:
        world.start_daemon()
        show_damage(world, fault, 0)
    finally:
        happen(world, fault.goes)
        world.daemon.stop()
    world.start_daemon()
    world.wait_until_well()


def test_snapshot_replaced_while_read_is_the_old_one(world):
    world.hold_the_next_read()
    world.server.ctl("storage-event", "7")
    world.wait_for_the_held_read()
    world.must_answer()
    world.must_notify()
    world.server.ctl("controller", "add", "7", "location=SLOT-7")  # which replaces the file
    logged = len(world.daemon.log())
    world.let_it_read_on()
    wait_until(lambda: "tavoStorageControllerTable" in world.tables_that_differ(), what="the new controller, later")
    assert "Unable to" not in world.daemon.log()[logged:]
    world.server.ctl("controller", "remove", "7")
    world.wait_until_well()


def test_snapshot_cut_while_read_empties_its_tables(world):
    world.hold_the_next_read()
    world.server.ctl("storage-event", "7")
    world.wait_for_the_held_read()
    world.shell(f"truncate -s 60000 {SNAPSHOT}")
    world.let_it_read_on()
    world.daemon.wait_for_log(f"Unable to read ctrl from {SNAPSHOT} for index 2")
    wait_until(lambda: world.tables_that_differ() == STORAGE, what="empty tables")
    world.must_answer()
    world.must_notify()
    world.server.ctl("snapshot", "ok")
    world.server.ctl("storage-event", "7")
    world.wait_until_well()


def test_daemon_without_free_descriptors_recovers(users_world):
    world = users_world
    world.take_descriptors()
    try:
        world.ask_for_rebuilds()
        world.daemon.wait_for_log("no file descriptor is free: tables that are built now may be incomplete")
        # The first of them still gets the descriptor that the waiting call has reserved.
        world.server.ctl("sd-trigger", "2")
        world.daemon.wait_for_log("velt_thread: no file descriptor is free for a connection, which has to wait")
        world.must_notify(ask=False)  # net-snmp opens a file to see who may ask
    finally:
        world.limit("nofile", 1024)
    world.daemon.wait_for_log("file descriptors are free again: rebuilding the tables")
    world.wait_until_well()


def test_daemon_without_processes_recovers(users_world):
    """Neither a process nor a thread can be created."""
    world = users_world
    world.limit("nproc", 1)
    try:
        world.ask_for_rebuilds()
        world.daemon.wait_for_log("SNMP:Failed description")
        world.daemon.signal(signal.SIGHUP)
        world.daemon.wait_for_state("READY=1", count=2)
        world.must_answer()
        world.must_notify()
    finally:
        world.limit("nproc", 10_000)
    world.ask_for_rebuilds()
    world.wait_until_well()


def test_daemon_without_threads_stops(users_world):
    world = users_world
    world.limit("nproc", 1)
    world.daemon.signal(signal.SIGTERM)
    assert world.daemon.wait(10) == 0
    assert "cannot create the thread that joins the module's: " in world.daemon.log()


def test_stopped_daemon_loses_nothing(world):
    world.wait_for_silence()
    before = len(world.collector.datagrams)
    indexes = [str(index) for index in range(1, 11)]
    answer = []
    manager = threading.Thread(target=lambda: answer.extend(
        snmpget(world.daemon.address, f"{PROCESSOR_DN}.1", timeout=STOPPED + 30)))
    with world.stopped_daemon():
        manager.start()
        for index in indexes:
            world.server.ctl("fault", "raise", index, f"class={UNREFRESHED_CLASS}")
        time.sleep(STOPPED)
        assert len(world.collector.datagrams) == before
    manager.join()
    assert answer and answer[0] in world.well
    wait_until(lambda: len(world.collector.datagrams) >= before + len(indexes), what="every notification")
    for index in indexes:
        world.server.ctl("fault", "clear", index)
    world.must_notify()
    assert len(world.collector.datagrams) == before + 2 * len(indexes) + 2, "each once"
    world.wait_until_well()


def test_stopped_services_delay_only_their_tables(world):
    services = descendant(world.server.pid, "bmcsim")
    world.ask_for_rebuilds()
    os.kill(services, signal.SIGSTOP)
    try:
        until = time.monotonic() + STOPPED
        while time.monotonic() < until:
            snmpget(world.daemon.address, f"{FAULT_TABLE}.1.2.1", timeout=5)
            time.sleep(0.1)
    finally:
        os.kill(services, signal.SIGCONT)
    world.ask_for_rebuilds((*World.parts, "supply", "fan"))
    world.wait_until_well()
    world.must_notify()


def test_stopped_tool_delays_only_its_tables(world):
    world.server.ctl("tool", "datactl", "slow", "1")
    world.ask_for_rebuilds()
    tool = wait_until(lambda: descendant(world.daemon.pid, "datactl"), what="a tool that runs")
    os.kill(tool, signal.SIGSTOP)
    world.server.ctl("tool", "datactl", "ok")
    until = time.monotonic() + STOPPED
    while time.monotonic() < until:
        world.must_notify()
    if descendant(world.daemon.pid, "datactl") == tool:
        os.kill(tool, signal.SIGCONT)
    world.ask_for_rebuilds()
    world.wait_until_well()


def test_stopped_master_loses_nothing(start):
    collector = start(TrapCollector)
    master = start(Master, ROOT / "host/snmpd-master.conf", trap_destination=collector.destination)
    daemon = start(Daemon, module=TEST_MODULES / "notifier.so", master=master)
    master.signal(signal.SIGSTOP)
    try:
        daemon.order("send 1 2000 960")
        daemon.wait_for_log("sent number 2000\n")
        time.sleep(STOPPED)
    finally:
        master.signal(signal.SIGCONT)
    wait_until(lambda: 2000 in numbers(collector), what="the last notification")
    seen = numbers(collector)
    print(f"{len(seen) - len(set(seen))} of {len(seen)} arrived twice")
    assert list(dict.fromkeys(seen)) == list(range(1, 2001))
    # After a minute those that are not acknowledged are sent again.
    assert len(seen) - len(set(seen)) <= (50 if STOPPED > 50 else 0)
