"""Managers walk a table that is rebuilt without pause: every walk is complete and every value right.

TAVO_STRESS_SECONDS is how long they walk (default: 5).
"""

import os
import re
import threading
import time

from agents import BUILD, TEST_MODULES, Daemon, snmp
from oids import PROCESSOR_TABLE as TABLE

PROCESSORS = 32
MANAGERS = 8
SECONDS = float(os.environ.get("TAVO_STRESS_SECONDS", "5"))


def column(number, row):
    """The value of a cell, from what modules/real_module.h says of its processors."""
    return {
        2: f'STRING: "sys/rack-unit-1/board/cpu-{row}"',
        3: f'STRING: "cpu-{row}"',
        4: "INTEGER: 179",
        5: f"Gauge32: {3000 + row}",
        6: f"Gauge32: {3000 + row}",
        7: f"Gauge32: {row - 1}",
        8: f'STRING: "model-{row}"',
        9: "INTEGER: 1",
        10: "INTEGER: 1",
        11: "INTEGER: 1",
        12: "INTEGER: 0",
        13: "INTEGER: 10",
        14: 'STRING: "unknown"',
        15: f'STRING: "serial-{row}"',
        16: f'STRING: "socket-{row}"',
        17: f"INTEGER: {2000 + row}",
        18: "Gauge32: 0",
        19: "INTEGER: 0",
        20: f"Gauge32: {1000 + row}",
        21: f'STRING: "vendor-{row}"',
        22: "INTEGER: 0",
    }[number]


def test_walks_are_whole_while_table_is_rebuilt(start):
    wanted = [f".{TABLE}.1.{number}.{row} = {column(number, row)}"
              for number in range(2, 23) for row in range(1, PROCESSORS + 1)]
    daemon = start(Daemon, module=TEST_MODULES / "rebuilder.so", REAL_MODULE=str(BUILD / "libsnmpextmibmodule.so"))
    deadline = time.monotonic() + SECONDS
    walks = [0] * MANAGERS
    wrong = []

    def walk(manager):
        while walks[manager] == 0 or time.monotonic() < deadline and not wrong:
            try:
                lines = snmp("snmpbulkwalk", daemon.address, TABLE)
            except AssertionError as failure:
                wrong.append(str(failure))
                return
            got = [line for line in lines if "No more variables left in this MIB View" not in line]
            if got != wanted:
                wrong.append(sorted(set(got) ^ set(wanted)) or "the cells are in the wrong order")
            walks[manager] += 1

    managers = [threading.Thread(target=walk, args=(manager,)) for manager in range(MANAGERS)]
    for manager in managers:
        manager.start()
    for manager in managers:
        manager.join()
    assert daemon.stop() == 0
    rebuilds, failed = map(int, re.search(r"(\d+) rebuilds, (\d+) failed", daemon.log()).groups())
    print(f"{sum(walks)} walks of {len(wanted)} cells in {SECONDS:g} s, {rebuilds} rebuilds")
    assert wrong == []
    assert min(walks) > 0
    assert failed == 0
    assert rebuilds > sum(walks)
    assert not re.search("Sanitizer|runtime error", daemon.log())
