"""Half an hour of periodic refreshes in under a minute: which tables are rebuilt when, and that the readings change."""

import itertools
import re
import statistics

import pytest

from agents import snmp, wait_until
from oids import BOARD_POWER, MEMORY_TEMPERATURE, OBJECTS
from rebuilds import SUPPLY_REFRESHES, WatchedDaemon, WatchedServer, events, names, periodic_refresh

# {table: its columns with current temperatures or power}
READINGS = {
    "memory": [MEMORY_TEMPERATURE],
    "processors": [f"{OBJECTS}.41.2.1.10"],
    "board power": [BOARD_POWER],
    "board temperatures": [f"{OBJECTS}.9.44.1.{column}" for column in (4, 8, 13, 17, 21)],
}
SPEED = 45
MINUTES = 30
# Time stamps are whole seconds, and a busy machine's delay of a second is 45 s on the daemon's clock. So the shortest
# pause may be this much longer than it should be, and the median pause this much.
SHORTEST_SLACK, MEDIAN_SLACK = SPEED / 2, 2 * SPEED


def readings(address):
    """{table: all its readings}, as served."""
    return {table: [re.sub(r".* = \w+: ", "", line) for column in columns
                    for line in snmp("snmpbulkwalk", address, column, timeout=30)]
            for table, columns in READINGS.items()}


@pytest.fixture(scope="module")
def directory(tmp_path_factory):
    # A short name, because the path of a Unix socket has at most 107 characters.
    return tmp_path_factory.mktemp("r")


@pytest.fixture(scope="module")
def life(directory):
    """The events of 30 minutes, and the readings at the start and after each periodic refresh."""
    server = WatchedServer(directory, drift=1)
    daemon = None
    try:
        daemon = WatchedDaemon(directory, server, SPEED)
        shown = [readings(daemon.address)]
        wait_until(lambda: events(daemon), what="the refresh thread")
        while True:
            def refreshed():
                return names(events(daemon)).count("leds") >= len(shown)
            wait_until(refreshed, what="the next periodic refresh")
            shown.append(readings(daemon.address))
            found = events(daemon)
            if found[-1].time - found[0].time > MINUTES * 60:
                return found, shown
    finally:
        if daemon:
            daemon.stop()
        server.stop()


def passes(found):
    """The events of each pass. A refresh of the LEDs ends it."""
    pass_ = []
    for event in found[1:]:
        pass_.append(event)
        if event.what == "leds":
            yield pass_
            pass_ = []


def test_each_pass_rebuilds_its_tables_in_order(life):
    found, _ = life
    refreshes = list(passes(found))
    for number, refresh in enumerate(refreshes, 1):
        assert names(refresh) == periodic_refresh(number), number
    print(f"{len(refreshes)} periodic refreshes in {found[-1].time - found[0].time:.0f} s")
    assert len(refreshes) > SUPPLY_REFRESHES


def test_pass_comes_100_to_120_s_after_the_last(life):
    found, _ = life
    refreshes = list(passes(found))
    ends = [found[0].time, *(refresh[-1].time for refresh in refreshes)]
    pauses = [refresh[0].time - end for end, refresh in zip(ends, refreshes)]
    print("seconds from the end of a pass to the first table of the next:", *(f"{pause:.0f}" for pause in pauses))
    assert all(99 <= pause for pause in pauses)
    assert min(pauses) <= 121 + SHORTEST_SLACK
    assert statistics.median(pauses) <= 121 + MEDIAN_SLACK
    # How long a pass takes depends on the machine, so there is no upper limit for a single table.
    for what in periodic_refresh(len(refreshes)):
        times = [event.time for event in found if event.what == what]
        assert len(times) == len(refreshes), what
        assert all(99 <= later - earlier for earlier, later in itertools.pairwise(times)), what


def test_fans_board_and_storage_are_left_alone(life):
    found, _ = life
    assert set(names(found)) == {"start", "supplies", *periodic_refresh(1)}


def test_supplies_join_the_first_three_refreshes(life):
    found, _ = life
    assert names(found).count("supplies") == SUPPLY_REFRESHES


def test_readings_change(life):
    _, shown = life
    for table in READINGS:
        values = [sample[table] for sample in shown]
        different = len(set(map(tuple, values)))
        print(f"{table}: {different} different of {len(values)}; first {values[0]}, last {values[-1]}")
        assert all(values), table
        # Some readings stay the same, or return to an earlier value.
        assert different > len(values) / 4, table
    assert shown[0]["memory"] != shown[-1]["memory"]
