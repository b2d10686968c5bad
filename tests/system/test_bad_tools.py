"""Each platform tool hangs, prints without end, leaves a child behind or dies: the tables that need it recover when it
is well again, and the others never notice.

What makes a table recover is its next rebuild, see docs/operations.md: the next periodic refresh for most, the next
storage event for the disks, and a restart of the daemon for what is read only once.

With TAVO_BAD_TOOLS=all every tool goes wrong in every way; otherwise each tool once, and each way once.
"""

import json
import os
import pathlib
import re

import pytest

from agents import BUILD, snmp, wait_until
from delays import Poll
from oids import BASE
from rebuilds import quiet_scenario
from server import ServedDaemon, Server, children_of, tools_that_run

SPEED = 45
TOOL_SECONDS = 0.3  # in which the daemon kills a tool, of this machine's clock; a good one takes a tenth
MODES = ["hangs", "floods", "forks", "killed"]
TABLES = {table["name"]: table for table in json.loads((BUILD / "tables.json").read_text())["tables"]}
OF_QUERIES = ["tavoMemoryUnitEnvStatsTable", "tavoProcessorEnvStatsTable", "tavoComputeRackUnitTable",
              "tavoAdaptorUnitTable", "tavoComputeMbPowerStatsTable", "tavoComputeRackUnitMbTempStatsTable",
              "tavoStorageLocalDiskTable", "tavoEquipmentHealthLedTable"]
# {tool: the tables that need it while the daemon runs}
USERS = {"datactl": OF_QUERIES, "flatkv": OF_QUERIES, "slotutil": ["tavoAdaptorUnitTable"]}
CASES = [("datactl", "hangs"), ("flatkv", "floods"), ("datactl", "forks"), ("slotutil", "killed")]
if os.environ.get("TAVO_BAD_TOOLS") == "all":
    CASES = [(tool, mode) for tool in USERS for mode in MODES]
SUPPLY_REFRESHES = 3  # only so many periodic ones rebuild the supplies, which takes 5 s each time


def column(table, name):
    number = next(column["number"] for column in TABLES[table]["columns"] if column["name"] == name)
    return f"{TABLES[table]['oid']}.1.{number}"


CHANGING = tuple(f".{column(table, 'time_collected')}." for table, description in TABLES.items()
                 if any(column["name"] == "time_collected" for column in description["columns"]))


def values(daemon):
    """Every line of a walk but the times, which change with each rebuild."""
    lines = snmp("snmpbulkwalk", daemon.address, "-Cr50", BASE)
    return [line for line in lines if line.startswith(f".{BASE}.") and not line.startswith(CHANGING)]


def open_descriptors(daemon):
    return sorted(os.readlink(path) for path in pathlib.Path(f"/proc/{daemon.pid}/fd").iterdir())


def killed(tool, log):
    """Whether the log says that the tool was killed, and the rest of the command."""
    return re.search(rf"tool killed after \d+\.\d s[^:]*: .*\b{tool}\b", log)


class Served:
    """A server without faults of its own whose readings stay the same, and a daemon that runs for a while."""

    def __init__(self, directory):
        self.server = Server(directory, scenario=quiet_scenario(directory))
        self.daemon = ServedDaemon(directory, self.server, speed=SPEED, tool_timeout=TOOL_SECONDS)
        self.server.wait_for_listeners()
        for _ in range(SUPPLY_REFRESHES):
            self.wait_for_refresh()
        self.well = values(self.daemon)

    def stop(self):
        self.daemon.stop()
        self.server.stop()

    def _last_refresh(self):
        """When the shell opened the LEDs' dump, the last one of a periodic refresh."""
        return self.server.run("stat", "-c", "%.Y", "/var/LedInv").stdout

    def wait_for_refresh(self):
        """Waits until the next periodic refresh has come to the LEDs."""
        before = self._last_refresh()
        wait_until(lambda: self._last_refresh() != before, 120, "a periodic refresh")

    def ask_for_rebuilds(self, verb):
        """Has all tables rebuilt that use tools, apart from the LEDs. `verb`: raise or clear the faults for that."""
        before = self.daemon.log().count("ADAPTOR refresh requested")
        for index, kind in enumerate(("memory", "processor", "adapter"), 1):
            self.server.ctl("fault", verb, str(index), *([f"class={kind}"] if verb == "raise" else []))
        self.server.ctl("storage-event", "7")
        wait_until(lambda: self.daemon.log().count("ADAPTOR refresh requested") > before, 120, "the last request")

    def cell(self, table):
        """The name of the table's first object."""
        return next(line.partition(" ")[0][1:] for line in self.well if line.startswith(f".{TABLES[table]['oid']}."))


@pytest.fixture(scope="module")
def served(tmp_path_factory):
    # A short name, because the path of a Unix socket has at most 107 characters.
    running = Served(tmp_path_factory.mktemp("b"))
    yield running
    running.stop()


@pytest.mark.parametrize("tool, mode", CASES)
def test_tables_recover_and_others_never_notice(served, tool, mode):
    daemon, server = served.daemon, served.server
    wait_until(lambda: children_of(daemon.pid) == [], what="the end of a refresh")
    descriptors = open_descriptors(daemon)
    logged = len(daemon.log())
    slow_locks = {TABLES[table]["lock"] for table in USERS[tool]}
    # The fault table has no rows yet.
    others = [table for table in TABLES if TABLES[table]["lock"] not in slow_locks and table != "tavoFaultTable"]

    server.ctl("tool", tool, mode)
    poll = Poll(daemon.address, [served.cell(table) for table in others])
    try:
        served.ask_for_rebuilds("raise")
        served.wait_for_refresh()
        ill = values(daemon)
    finally:
        server.ctl("tool", tool, "ok")
    served.ask_for_rebuilds("clear")
    wait_until(lambda: values(daemon) == served.well, 120, "the recovery of all tables")
    delays = poll.stop()
    print(f"{tool} {mode}: {len(set(served.well) - set(ill))} of {len(served.well)} values were wrong or missing; "
          f"{len(others)} other tables: {delays}")

    assert set(ill) - set(served.well) or set(served.well) - set(ill), "the tables need the tool"
    assert not delays.unanswered and not delays.errors
    assert delays.percentile(.9) < TOOL_SECONDS / 2
    # One that dies by itself is not killed by the daemon.
    assert bool(killed(tool, daemon.log()[logged:])) == (mode != "killed")
    wait_until(lambda: not tools_that_run(daemon) and children_of(daemon.pid) == [], what="the end of all tools")
    wait_until(lambda: open_descriptors(daemon) == descriptors, what="no further descriptors")


@pytest.fixture(scope="module")
def healthy(tmp_path_factory):
    """The values when every tool works, of a daemon that has just started."""
    directory = tmp_path_factory.mktemp("h")
    server = Server(directory, scenario=quiet_scenario(directory))
    daemon = ServedDaemon(directory, server, speed=SPEED, tool_timeout=5)
    try:
        return values(daemon)
    finally:
        daemon.stop()
        server.stop()


@pytest.mark.parametrize("mode", MODES)
def test_value_read_once_returns_with_a_restart(start, directory, healthy, mode):
    """ipmitool supplies the server's serial number, which is read at the start."""
    serial = f".{column('tavoComputeRackUnitTable', 'serial')}.1 "
    server = start(Server, scenario=quiet_scenario(directory))
    server.ctl("tool", "ipmitool", mode)
    daemon = start(ServedDaemon, server, speed=SPEED, tool_timeout=1)
    changed = set(values(daemon)) ^ set(healthy)
    assert changed and all(line.startswith(serial) for line in changed)
    assert bool(killed("ipmitool", daemon.log())) == (mode != "killed")
    wait_until(lambda: not tools_that_run(daemon), what="the end of all tools")
    server.ctl("tool", "ipmitool", "ok")
    daemon.stop()
    daemon = start(ServedDaemon, server, speed=SPEED, tool_timeout=5)
    assert values(daemon) == healthy
