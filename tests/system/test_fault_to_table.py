"""From a hardware fault to its row: the notification that is sent, the tables that are rebuilt, the new values."""

import re

import pytest

from agents import TrapCollector, snmpget, wait_until
from oids import DISK_PRESENCE, FAN_OPERABILITY, FAULT_TABLE, MEMORY_STATUS, OBJECTS, RAISED
from server import STORAGE_CLASS
from rebuilds import (BOARD_STATISTICS, STORAGE, WatchedDaemon, WatchedServer, events, names, periodic_refresh,
                      timed_lines)

FAULT_INDEX = f"{FAULT_TABLE}.1.1"
SUPPLY_OPERABILITY = f"{OBJECTS}.15.56.1.7"
MEMORY_OPERABILITY = f"{OBJECTS}.30.11.1.14"
PROCESSOR_STATE = f"{OBJECTS}.41.9.1.9"
ADAPTOR_STATE = f"{OBJECTS}.3.85.1.12"
DISK_NAME = f"{OBJECTS}.45.4.1.14"
SPEED = 45
STORAGE_WAIT = 60  # seconds after an event, in which the storage agent writes its snapshot


class Watch:
    """A watched server, its daemon and a collector of notifications. `faults` are raised before the daemon starts."""

    def __init__(self, start, faults=()):
        self._start = start
        self.server = start(WatchedServer)
        for fault in faults:
            self.server.ctl("fault", "raise", *fault.split())
        self.collector = start(TrapCollector)
        self.start_daemon()

    def start_daemon(self):
        self.daemon = self._start(WatchedDaemon, self.server, SPEED,
                                  configuration=f"trap2sink {self.collector.destination} public\n")
        self.server.wait_for_listeners()

    def first_pass_finds(self, count):
        """Whether `count` faults were in the table before the first pass, a minute after the refresh thread's start."""
        loaded = next(time for time, text in timed_lines(self.daemon.log()) if text.endswith(f"entries:{count}"))
        return loaded - events(self.daemon)[0].time < 59

    def has_received(self, fault):
        return any(RAISED in line and f"{FAULT_INDEX}.{fault} " in line for line in self.collector.received())

    def wait_for_notification(self, fault):
        wait_until(lambda: self.has_received(fault), what=f"the notification for fault {fault}")

    def rebuilds_around(self, mark):
        """The events of the refresh period that has the first `mark`, and the number of the refresh that ends it."""
        def refreshed_since():
            found = names(events(self.daemon))
            return mark in found and "leds" in found[found.index(mark):]
        wait_until(refreshed_since, what=f"{mark}, and a periodic refresh after it")
        found = events(self.daemon)[1:]
        refreshes = [at for at, event in enumerate(found) if event.what == "leds"]
        marked = names(found).index(mark)
        number = sum(at < marked for at in refreshes) + 1
        first = refreshes[number - 2] + 1 if number > 1 else 0
        return found[first:refreshes[number - 1] + 1], number

    def assert_rebuilt(self, rebuilt):
        """The request rebuilt these tables and no others, in a pass of its own or together with a periodic refresh."""
        found, number = self.rebuilds_around(rebuilt[0])
        assert names(found) in [rebuilt + periodic_refresh(number),
                                rebuilt + periodic_refresh(number, without=rebuilt)]

    def get(self, *oids):
        """The values, as text."""
        return [re.sub(r'.* = (?:\w+: )?"?([^"]*)"?$', r"\1", line)
                for line in snmpget(self.daemon.address, *oids)]


@pytest.fixture
def watch(start):
    return Watch(start)


MEMORY = ["MEM request", "memory", "memory temperatures", "rack unit", *BOARD_STATISTICS]
PROCESSORS = ["CPU request", "processors", "processor temperatures", "rack unit", *BOARD_STATISTICS]
FANS = ["FAN request", "fans", *BOARD_STATISTICS]
SUPPLIES = ["PSU request", "supplies", *BOARD_STATISTICS, "fans"]
ADAPTORS = ["ADAPTOR request", "adaptors"]


@pytest.mark.parametrize(
    "command, fault, rebuilt, row, healthy, shown",
    [
        ("fan fail FAN2_TACH1", 29002, FANS, [f"{FAN_OPERABILITY}.3"], ["1"], ["3"]),
        ("supply fail 1", 10001, SUPPLIES, [f"{SUPPLY_OPERABILITY}.1", f"{FAN_OPERABILITY}.14"], ["1", "1"],
         ["5", "3"]),
        ("dimm fail DIMM_A1", 8001, MEMORY, [f"{MEMORY_OPERABILITY}.1", f"{MEMORY_STATUS}.1"], ["1", "Operable"],
         ["0", "Inoperable"]),
        ("processor disable 2", 3002, PROCESSORS, [f"{PROCESSOR_STATE}.2"], ["1"], ["2"]),
    ],
    ids=["fan", "supply", "memory", "processor"],
)
def test_failed_part_is_notified_and_shown(watch, command, fault, rebuilt, row, healthy, shown):
    assert watch.get(*row) == healthy
    watch.server.ctl(*command.split())
    watch.wait_for_notification(fault)
    watch.assert_rebuilt(rebuilt)
    assert watch.get(*row) == shown


def test_hot_adaptor_is_notified_and_shown(watch):
    assert watch.get(f"{ADAPTOR_STATE}.2") == ["1"]
    watch.server.ctl("adapter", "set", "2", "over-temperature=yes")
    watch.server.ctl("fault", "raise", "11002", "class=adapter", "unit=2", "severity=warning")
    watch.wait_for_notification(11002)
    watch.assert_rebuilt(ADAPTORS)
    assert watch.get(f"{ADAPTOR_STATE}.2") == ["8"]


def test_pulled_disk_is_shown_after_a_minute(watch):
    row = [f"{DISK_PRESENCE}.2", f"{DISK_NAME}.2"]
    assert watch.get(*row) == ["10", "DISK-B"]
    watch.server.ctl("drive", "pull", "4", "2")
    watch.assert_rebuilt(STORAGE)
    started, *found = events(watch.daemon)
    rebuilt = found[names(found).index(STORAGE[0])]
    # The first pass can see the event. It comes a minute after the start.
    assert rebuilt.time - started.time >= 60 + STORAGE_WAIT - 1
    assert watch.get(*row) == ["11", ""]


@pytest.mark.parametrize(
    "faults, rebuilt",
    [
        (["1 class=fan", "2 class=supply"], [*FANS, "PSU request", "supplies"]),
        (["1 class=memory", "2 class=processor"], [*MEMORY, "CPU request", "processors", "processor temperatures"]),
        (["1 class=adapter", f"2 class={STORAGE_CLASS}", "3 class=processor", "4 class=memory", "5 class=supply",
          "6 class=fan"],
         [*FANS, "PSU request", "supplies", "MEM request", "memory", "memory temperatures", "rack unit", "CPU request",
          "processors", "processor temperatures", *STORAGE, *ADAPTORS]),
    ],
    ids=["fan-and-supply", "memory-and-processor", "all"],
)
def test_faults_seen_in_one_pass_share_rebuilds(start, faults, rebuilt):
    # Raised before the daemon starts, so that the first pass finds all of them; it comes about a second later. A slow
    # start is tried again.
    watch = Watch(start, faults)
    while not watch.first_pass_finds(len(faults)):
        watch.daemon.stop()
        watch.start_daemon()
    watch.assert_rebuilt(rebuilt)
