"""Reads from a daemon's log which tables it has rebuilt, and when on its own clock.

Most tables trace each row that they create. The fan and board tables do not: a platform library in front of the
simulator's (modules/rebuild_witness.cpp) logs a call that each makes once per rebuild. Nor does the rack unit: here a
tool never finds the server's description, so the module logs a failure once per rebuild.
"""

import datetime
import itertools
import re
from typing import NamedTuple

from agents import TEST_MODULES
from server import SCENARIO, ServedDaemon, Server

# A periodic refresh rebuilds these tables in this order, then the supplies (only the first three times) and the LEDs.
PERIODIC = ["memory", "memory temperatures", "processors", "processor temperatures", "rack unit", "board power",
            "board temperatures", "adaptors"]
BOARD_STATISTICS = ["board power", "board temperatures"]
STORAGE = ["controllers", "disks", "volumes", "batteries"]
SUPPLY_REFRESHES = 3

# {log line: (its event, how many such lines one rebuild leaves on the server of quiet_scenario())}
LINES = {
    "witness: the last sensor is read": ("fans", 1),
    "witness: the board area is read": ("board", 1),
    "SNMP:Failed description": ("rack unit", 1),
    **{f"tavo{table}Table_createEntry": (name, rows) for table, name, rows in [
        ("EquipmentPsu", "supplies", 2),
        ("MemoryUnit", "memory", 12),
        ("MemoryUnitEnvStats", "memory temperatures", 12),
        ("ProcessorUnit", "processors", 2),
        ("ProcessorEnvStats", "processor temperatures", 2),
        ("ComputeMbPowerStats", "board power", 1),
        ("ComputeRackUnitMbTempStats", "board temperatures", 1),
        ("AdaptorUnit", "adaptors", 3),
        ("StorageController", "controllers", 2),
        ("StorageLocalDisk", "disks", 16),
        ("StorageLocalLun", "volumes", 3),
        ("StorageRaidBattery", "batteries", 1),
        ("EquipmentHealthLed", "leds", 1),
    ]},
    **{f"{kind} refresh requested": (f"{kind} request", 1) for kind in ("FAN", "PSU", "MEM", "CPU", "ADAPTOR")},
    "InventoryThread initiated": ("start", 1),
}


class Event(NamedTuple):
    time: float  # seconds of the daemon's clock
    what: str


def timed_lines(log):
    """(seconds on the daemon's clock, text without a trace's token) of each line. The daemon must run in UTC.

    net-snmp writes a trace in two steps, token and text. Another thread or a tool may write in between. The text then
    has a line of its own, perhaps without a time stamp: it gets that of the line before.
    """
    time = None
    for line in log.splitlines():
        stamp, text = re.match(r"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d )?(?:snmp-subagentd: )*(.*)$", line).groups()
        if stamp:
            time = datetime.datetime.fromisoformat(f"{stamp.strip()}+00:00").timestamp()
        if time:
            yield time, text


def events(daemon):
    """Requests and rebuilds in order since the refresh thread started. A rebuild's time is that of its last row."""
    traced = [(time, *LINES[text]) for time, text in timed_lines(daemon.log()) if text in LINES]
    found = []
    for (what, lines), run in itertools.groupby(traced, key=lambda line: line[1:]):
        times = [time for time, *_ in run]
        # A rebuild that is not finished at the end of the log does not count.
        found += [Event(time, what) for time in times[lines - 1::lines]]
    start = next((at for at, event in enumerate(found) if event.what == "start"), len(found))
    return found[start:]


def names(found):
    return [event.what for event in found]


def periodic_refresh(number, without=()):
    """What periodic refresh `number` (from 1) rebuilds, apart from the tables in `without`."""
    supplies = ["supplies"] if number <= SUPPLY_REFRESHES else []
    return [what for what in [*PERIODIC, *supplies, "leds"] if what not in without]


def quiet_scenario(directory, drift=0):
    """Writes the scenario of a server without faults, so that only a test's own actions request refreshes."""
    text = SCENARIO.read_text()
    text = re.sub(r"(?ms)^faults:\n.*?(?=^\S)", "", text)
    text = re.sub(r"drift: \d+", f"drift: {drift}", text)
    file = directory / "quiet.yaml"
    file.write_text(text)
    return file


class WatchedServer(Server):
    """A quiet server on which datactl does not find the server's description."""

    def __init__(self, directory, drift=0):
        super().__init__(directory, scenario=quiet_scenario(directory, drift))
        script = directory / "datactl"
        script.write_text('#!/bin/sh\n[ "$1" = get=description ] && exit 1\nexec /var/front-ends/datactl "$@"\n')
        script.chmod(0o755)
        self.run("sh", "-c", "mkdir /var/front-ends && mv /usr/local/bin/datactl /var/front-ends/ && "
                             f"cp {script} /usr/local/bin/datactl")


class WatchedDaemon(ServedDaemon):
    """A daemon that logs every rebuild, with time stamps of its own clock."""

    def __init__(self, directory, server, speed, configuration="", **settings):
        super().__init__(directory, server, speed=speed, options=["-D", "snmp-subagentd"],
                         configuration=f"[snmp] logTimestamp yes\n{configuration}",
                         platforms=[TEST_MODULES / "rebuild_witness.so"], TZ="UTC", **settings)
