#!/usr/bin/python3
"""module_size.py [--record] [BUILD]: what fills the stripped module, in octets, and what has grown since it was recorded.

By section, and by the object that the linker took it from. bench/recorded/module_size.json holds the recorded figures
of each kind of machine; --record writes those of this build anew. Exit status 1 when the module is beyond its budget,
77 when the build is for a kind of machine that has no budget. BUILD is the build tree (default: build/release).
"""

import argparse
import collections
import dataclasses
import json
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[1]
RECORD = ROOT / "bench/recorded/module_size.json"


@dataclasses.dataclass(frozen=True)
class Machine:
    name: str  # as Debian calls it
    budget: int  # octets, of the file
    prefix: str  # of its binutils


# {machine, as the module's ELF header names it}
MACHINES = {
    "Advanced Micro Devices X86-64": Machine("amd64", 124 * 1024, "x86_64-linux-gnu-"),
    "ARM": Machine("armhf", 95 * 1024, "arm-linux-gnueabihf-"),
}

# A line of the linker's map: an input section, its address, its size and its object. A long name has a line of its own.
INPUT = re.compile(r"^ (\.\S+)\s+0x[0-9a-f]+\s+0x([0-9a-f]+) (\S+)$", re.MULTILINE)
# The same in the map of lld: two addresses, size, alignment, object and section.
INPUT_OF_LLD = re.compile(r"^ +[0-9a-f]+ +[0-9a-f]+ +([0-9a-f]+) +\d+ {9}(\S+):\((\.[^)]+)\)$", re.MULTILINE)
OBJECT = re.compile(r"module_objects\.dir/(.*)\.cpp\.o$")
LOADED = re.compile(r"\.(text|rodata|data|eh_frame|gcc_except_table|ARM\.ex|init_array)")
SECTION = re.compile(r"^ *\[ *\d+\] (\.\S+) +(\S+) +[0-9a-f]+ [0-9a-f]+ ([0-9a-f]+) \S+ +(\w*)", re.MULTILINE)


def readelf(binary, option):
    return subprocess.run(["readelf", "--wide", option, binary], capture_output=True, text=True, check=True).stdout


def machine_of(binary):
    """The Machine that the binary is for. None if there is no budget for it."""
    return MACHINES.get(re.search(r"^ *Machine: +(.*)$", readelf(binary, "--file-header"), re.MULTILINE)[1])


def sections(binary):
    """{section: octets in the file}"""
    text = readelf(binary, "--sections")
    return {name: int(size, 16) for name, kind, size, flags in SECTION.findall(text) if kind != "NOBITS"}


def objects(link_map):
    """{object, as core/table: octets}. Texts that several objects share are the linker's, and have their own line."""
    text = link_map.read_text()
    _, _, placed = text.partition("Linker script and memory map")
    inputs = INPUT.findall(re.sub(r"^( \.\S+)\n", r"\1", placed, flags=re.MULTILINE))
    inputs += [(section, size, source) for size, source, section in INPUT_OF_LLD.findall(text)]
    sizes = collections.Counter()
    for section, size, source in inputs:
        found = OBJECT.search(source)
        if not LOADED.match(section):
            continue
        if found and ".str" in section or source == "<internal>" and section == ".rodata":
            sizes["texts"] += int(size, 16)
        elif found:
            sizes[found[1]] += int(size, 16)
    return dict(sizes)


def measure(build, machine):
    with tempfile.TemporaryDirectory() as directory:
        stripped = pathlib.Path(directory) / "module.so"
        subprocess.run([f"{machine.prefix}strip", "-o", stripped, build / "libsnmpextmibmodule.so"], check=True)
        return {"file": {"stripped module": stripped.stat().st_size}, "sections": sections(stripped),
                "objects": objects(build / "module.link-map")}


def print_table(kind, now, recorded):
    print(f"{kind:42} {'octets':>8} {'grown':>8}")
    for name, size in sorted(now.items(), key=lambda entry: -entry[1]):
        grown = size - recorded.get(name, 0)
        print(f"{name:42} {size:8} {f'{grown:+}' if grown else '':>8}")
    print()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--record", action="store_true", help="write the figures to bench/recorded/module_size.json")
    parser.add_argument("build", metavar="BUILD", nargs="?", type=pathlib.Path, default=ROOT / "build/release")
    arguments = parser.parse_args()
    machine = machine_of(arguments.build / "libsnmpextmibmodule.so")
    if machine is None:
        print(f"skipped: there are budgets for {', '.join(known.name for known in MACHINES.values())} only")
        sys.exit(77)
    now = measure(arguments.build, machine)
    recorded = json.loads(RECORD.read_text())
    for kind, sizes in now.items():
        print_table(kind, sizes, recorded.get(machine.name, {}).get(kind, {}))
    if arguments.record:
        RECORD.write_text(json.dumps({**recorded, machine.name: now}, indent=2, sort_keys=True) + "\n")
    size = now["file"]["stripped module"]
    print(f"{machine.name}: {size} of {machine.budget} octets: "
          f"{'within' if size <= machine.budget else 'beyond'} the budget")
    if size > machine.budget:
        print("Make it smaller where it has grown, or move the budget in bench/module_size.py and say why. --record "
              "writes the figures anew.")
        if ".relr.dyn" not in now["sections"]:
            print("Its relocations are not packed: this build has no linker that can. lld can, from version 16 on.")
    sys.exit(size > machine.budget)


main()
