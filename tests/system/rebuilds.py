"""The rebuilds that a daemon has made, read from its log, with the simulated time of each.

Most tables leave a trace for each row that they make. Where a table says nothing, something beside it speaks: a platform
library in front of the simulator's (modules/rebuild_witness.cpp) for the fan and board tables, and for the rack unit a
tool that never finds the server's description, which the module complains about once a rebuild.
"""

import datetime
import itertools
import re
from typing import NamedTuple

from agents import TEST_MODULES
from server import SCENARIO, ServedDaemon, Server

# What a pass rebuilds when it is time, in this order; the supplies take part in the first three only.
PERIODIC = ["memory", "memory temperatures", "processors", "processor temperatures", "rack unit", "board power",
            "board temperatures", "adaptors"]
BOARD_STATISTICS = ["board power", "board temperatures"]
STORAGE = ["controllers", "disks", "volumes", "batteries"]
SUPPLY_REFRESHES = 3

# Log line -> what it tells, and how many such lines one rebuild leaves on the server of `quiet_scenario`.
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
    """(seconds of the daemon's clock, text) of every line, without the token of a trace. The daemon's zone is UTC.

    A trace is written in two steps, token and text. Another thread, or a tool, may write between them, and what comes
    last then stands on a line of its own, without token and perhaps without a time stamp: it has that of the line before.
    """
    time = None
    for line in log.splitlines():
        stamp, text = re.match(r"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d )?(?:snmp-subagentd: )*(.*)$", line).groups()
        if stamp:
            time = datetime.datetime.fromisoformat(f"{stamp.strip()}+00:00").timestamp()
        if time:
            yield time, text


def events(daemon):
    """Rebuilds and requests since the refresh thread has started, in order. A rebuild's time is that of its last row."""
    told = [(time, *LINES[text]) for time, text in timed_lines(daemon.log()) if text in LINES]
    found = []
    for (what, lines), run in itertools.groupby(told, key=lambda line: line[1:]):
        times = [time for time, *_ in run]
        # The log may end within a rebuild; that one is not counted.
        found += [Event(time, what) for time in times[lines - 1::lines]]
    start = next((at for at, event in enumerate(found) if event.what == "start"), len(found))
    return found[start:]


def names(found):
    return [event.what for event in found]


def periodic_refresh(number, without=()):
    """What the periodic refresh of this number (from 1) rebuilds in a pass that has rebuilt `without` already."""
    supplies = ["supplies"] if number <= SUPPLY_REFRESHES else []
    return [what for what in [*PERIODIC, *supplies, "leds"] if what not in without]


def quiet_scenario(directory, drift=0):
    """A server without faults: nothing asks for a refresh unless a test does."""
    text = SCENARIO.read_text()
    text = re.sub(r"(?ms)^faults:\n.*?(?=^\S)", "", text)
    text = re.sub(r"drift: \d+", f"drift: {drift}", text)
    file = directory / "quiet.yaml"
    file.write_text(text)
    return file


class WatchedServer(Server):
    """A quiet server whose tool does not find the server's description."""

    def __init__(self, directory, drift=0):
        super().__init__(directory, scenario=quiet_scenario(directory, drift))
        script = directory / "datactl"
        script.write_text('#!/bin/sh\n[ "$1" = get=description ] && exit 1\nexec /var/front-ends/datactl "$@"\n')
        script.chmod(0o755)
        self.run("sh", "-c", "mkdir /var/front-ends && mv /usr/local/bin/datactl /var/front-ends/ && "
                             f"cp {script} /usr/local/bin/datactl")


class WatchedDaemon(ServedDaemon):
    """A daemon whose log tells every rebuild, with time stamps of its own clock."""

    def __init__(self, directory, server, speed, configuration="", **settings):
        super().__init__(directory, server, speed=speed, options=["-D", "snmp-subagentd"],
                         configuration=f"[snmp] logTimestamp yes\n{configuration}",
                         platforms=[TEST_MODULES / "rebuild_witness.so"], TZ="UTC", **settings)
