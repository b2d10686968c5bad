"""Machines that boot a kernel of their own in QEMU and serve, not only programs that run.

TAVO_MACHINES names them, separated by blanks: amd64, armhf. An armhf machine serves build/armhf.
"""

import os
import re
import subprocess
import time

import pytest

from agents import BUILD, ROOT, wait_until
from emulated_machine import EMULATORS, MACHINE, EmulatedMachine, require
from ipmi_controller import BOARD, DEGREES, FAN, INLET, SUPPLY, TURNS, Sensor, describe, fru, set_reading
from server import SCENARIO
from test_walk import cells, golden

BUILDS = {"amd64": BUILD, "armhf": ROOT / "build/armhf"}


@pytest.fixture(params=EMULATORS)
def arch(request):
    if request.param not in os.environ.get("TAVO_MACHINES", "").split():
        pytest.skip(f"a minute or more: TAVO_MACHINES={request.param} asks for it")
    if not (BUILDS[request.param] / "snmp-subagentd").exists():
        pytest.skip(f"{BUILDS[request.param]} is not built")
    require(request.param)
    return request.param


def test_machine_passes_on_output_and_status(arch):
    run = subprocess.run([MACHINE, "--arch", arch, "--", "sh", "-c", "uname -s; id -u; echo '$1' >&2; exit 7"],
                         capture_output=True, text=True)
    assert (run.stdout, run.returncode) == ("Linux\n0\n$1\n", 7), run.stderr


SENSORS = [
    Sensor(1, "FAN1", FAN, 1, unit=TURNS, factor=100, reading=60, thresholds={"lower_critical": 10, "lower": 20}),
    Sensor(2, "Inlet", INLET, 1, unit=DEGREES, reading=24, thresholds={"upper_critical": 45}),
    Sensor(3, "PS1 Status", SUPPLY, 1, reading=0b01),
]
FRU = fru(board=["Maker", "Board-1", "SERIAL-2", "PART-2", ""],
          product=["Maker", "Server-1", "PART-1", "1", "SERIAL-1", "", ""])


@pytest.mark.parametrize("arch", ["amd64"], indirect=True)
def test_a_machines_parts_change_while_it_runs(arch, start, directory):
    with open(directory / "disk", "wb") as file:
        file.truncate(64 << 20)
    machine = start(EmulatedMachine, ipmi=describe(SENSORS, [(0, BOARD, 1, "Server", FRU)]), config=f"""
        -device virtio-scsi-pci,id=scsi
        -blockdev driver=file,filename={directory}/disk,node-name=disk -device scsi-hd,bus=scsi.0,drive=disk,id=drive
        """)
    sensors = re.findall(r"^(\S.*?) +\| (.*?) +\| ok$", machine.run("ipmitool sdr"), re.MULTILINE)
    assert sensors == [("FAN1", "6000 RPM"), ("Inlet", "24 degrees C"), ("PS1 Status", "0x01")]
    frus = machine.run("ipmitool fru")
    assert re.findall(r"(?:Board|Product) Serial +: (\S+)", frus) == ["SERIAL-2", "SERIAL-1"], frus

    machine.controller(*set_reading(SENSORS[0], 5), *set_reading(SENSORS[2], 0b11))
    wait_until(lambda: "Failure detected" in machine.run("ipmitool sel elist", check=False), what="the supply's event")
    events = machine.run("ipmitool sel elist")
    assert "Fan FAN1 | Lower Critical going low  | Asserted | Reading 500 < Threshold 1000 RPM" in events, events

    assert machine.run("ls /sys/block") == "sda\n"
    machine.monitor("device_del", id="drive")
    wait_until(lambda: machine.run("ls /sys/block") == "", what="the drive is gone")
    machine.monitor("device_add", driver="scsi-hd", bus="scsi.0", drive="disk", id="drive")
    wait_until(lambda: machine.run("ls /sys/block") == "sda\n", what="the drive is back")


def test_walk_on_a_machine_of_its_own(arch):
    still = BUILDS[arch] / "still.yaml"
    still.write_text(re.sub(r"drift: \d+", "drift: 0", SCENARIO.read_text()))
    switched_on = time.monotonic()
    with subprocess.Popen([MACHINE, "--arch", arch, "--", "tests/system/serve_and_walk.sh", BUILDS[arch], still],
                          stdout=subprocess.PIPE, text=True) as machine:
        lines = []
        for line in machine.stdout:
            if line == "the daemon answers\n":
                print(f"{arch}: {time.monotonic() - switched_on:.0f} s from power-on to the first answer")
            lines.append(line.rstrip("\n"))
    assert machine.returncode == 0, "\n".join(lines)
    assert cells(lines) == golden()
