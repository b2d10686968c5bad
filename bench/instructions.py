#!/usr/bin/python3
"""instructions.py [--record] [BUILD]: what a varbind and a fault record cost, in instructions, beside recorded figures.

A varbind: what the agent executes from the arrival of a PDU in its handlers to the response, as in gate_cost.py, divided
by the varbinds. A fault record: what the module executes to apply it, until the notification is handed over, with 1,000
faults of one class. bench/recorded/instructions.json holds the recorded figures; --record writes them anew. Exit status
1 when one has grown by more than 5 %, 77 when there is no valgrind or the machine is not the recorded one. BUILD is the
build tree (default: build/release).
"""

import argparse
import json
import pathlib
import platform
import sys

import callgrind

ROOT = pathlib.Path(__file__).resolve().parents[1]
RECORD = ROOT / "bench/recorded/instructions.json"
MACHINE = "x86_64"
LIMIT = 0.05
ROWS = 32
READINGS = {"get": "varbind of a GET of 20", "next": "varbind of a GETNEXT", "bulk": "varbind of a GETBULK of 10"}
RECORDS = {"raise": "fault record, raise", "update": "fault record, update", "clear": "fault record, clear"}


def measure(build):
    """(name, instructions), one after the other."""
    for word, name in READINGS.items():
        yield name, callgrind.instructions_per_unit("handle_snmp_packet", build / "table_walk_bench", word, ROWS)
    for word, name in RECORDS.items():
        yield name, callgrind.instructions_per_unit("apply_counted", build / "fault_record_bench", word)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--record", action="store_true", help="write the figures to bench/recorded/instructions.json")
    parser.add_argument("build", metavar="BUILD", nargs="?", type=pathlib.Path, default=ROOT / "build/release")
    arguments = parser.parse_args()
    callgrind.require()
    if platform.machine() != MACHINE:
        print(f"skipped: the figures are for {MACHINE}")
        sys.exit(77)
    recorded = json.loads(RECORD.read_text()) if RECORD.exists() else {}
    now = {}
    grown = []
    print(f"{'instructions for a':28} {'recorded':>9} {'now':>9} {'change':>8}")
    for name, count in measure(arguments.build):
        now[name] = round(count)
        before = recorded.get(name, now[name])
        change = now[name] / before - 1
        print(f"{name:28} {before:9} {now[name]:9} {change:+8.1%}", flush=True)
        if change > LIMIT:
            grown.append(name)
    if arguments.record:
        RECORD.parent.mkdir(exist_ok=True)
        RECORD.write_text(json.dumps(now, indent=2) + "\n")
    elif grown:
        print(f"grown by more than {LIMIT:.0%}: {', '.join(grown)}. If that must be, bench/instructions.py --record "
              "writes the figures anew.")
        sys.exit(1)


main()
