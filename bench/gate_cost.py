#!/usr/bin/python3
"""gate_cost.py [BENCH]: what the request gate costs when no table is busy, counted in instructions.

callgrind counts what the agent executes from the arrival of a PDU in its handlers to the response, in the same process
and without encoding, sockets or access control, so the share of the gate is larger than in a daemon. The same readings
run once with the gate and once without it; the counts hardly change from run to run. Prints instructions for a varbind.
Exit status 1 when the gate costs more than 3 % in any way of reading, 77 when there is no valgrind.

BENCH is table_walk_bench (default: build/release/table_walk_bench).
"""

import pathlib
import sys

import callgrind

ROOT = pathlib.Path(__file__).resolve().parents[1]
READINGS = {"get": "GET of 20 varbinds", "next": "GETNEXT, whole table", "bulk": "GETBULK of 10, whole table"}
ROWS = 32
LIMIT = 0.03


def instructions(bench, reading, *without_gate):
    """Of the agent, for a varbind."""
    return callgrind.instructions_per_unit("handle_snmp_packet", bench, reading, ROWS, *without_gate)


def main():
    bench = sys.argv[1] if len(sys.argv) > 1 else ROOT / "build/release/table_walk_bench"
    callgrind.require()
    met = True
    print(f"{'':28} {'with gate':>10} {'without':>10} {'cost':>8}")
    for reading, name in READINGS.items():
        guarded, bare = instructions(bench, reading), instructions(bench, reading, "without-gate")
        cost = guarded / bare - 1
        print(f"{name:28} {guarded:10.0f} {bare:10.0f} {cost:8.2%}", flush=True)
        met = met and cost <= LIMIT
    print("within the limit" if met else "beyond the limit")
    sys.exit(not met)


main()
