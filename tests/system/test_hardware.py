"""Servers that are emulated and serve their own hardware: what the tables show of it, and what happens when it fails.

What they consist of is described twice: for QEMU and ipmi_sim, and as rows of the tables.
"""

import re
import time
import unittest.mock

import pytest

from agents import BUILD, ROOT, wait_until
from debian import need
from emulated_machine import EmulatedMachine, require
from ipmi_controller import BOARD, DEGREES, FAN, INLET, MEMORY, SUPPLY, TURNS, WATTS, Sensor, describe, fru, set_reading
from mib import definitions
from oids import BASE, CLEARED, FAULT_TABLE, RAISED

# A value that is QEMU's own, or the kernel's.
SOME = unittest.mock.ANY

SERVE = ROOT / "tests/system/serve_hardware.sh"
ADDRESS = "127.0.0.1:1161"
MIB = 1 << 20
ARRAY_KIB = 48 << 10
# From the cause to the notification, in seconds: the longest interval of a source, the time for which the condition
# must last or be over, and some for a busy machine.
RAISED_WITHIN = 30 + 3 + 57
CLEARED_WITHIN = 30 + 20 + 60

# Two processors; drives behind three controllers, of which two form an array; a network card and an SD
# card; a management controller.
LARGE = """
-smp 4,sockets=2,cores=2,threads=1
-smbios type=1,manufacturer=Maker,product=Server-1,serial=SERIAL-1,sku=SKU-1,uuid=6f1c9e0a-52d7-4b3e-9a10-5c8d2e7f4b61
-smbios type=2,manufacturer=Maker,product=Board-1,serial=SERIAL-2
-smbios type=4,sock_pfx=CPU,manufacturer=Vendor,version=Model-1,serial=SERIAL-3,max-speed=3000,current-speed=2600
-smbios type=17,loc_pfx=DIMM_A,bank=NODE-0,manufacturer=Maker,serial=SERIAL-4,speed=2933
-device virtio-scsi-pci,id=scsi
-device scsi-hd,bus=scsi.0,drive=disk-1,id=drive-1,product=DISK-1,ver=1.1
-device scsi-hd,bus=scsi.0,drive=disk-2,id=drive-2,product=DISK-2,ver=1.2
-device scsi-hd,bus=scsi.0,drive=disk-3,id=drive-3,product=DISK-3,ver=1.3
-device ide-hd,drive=disk-4,model=DISK-4,ver=1.4
-global ICH9-LPC.acpi-pci-hotplug-with-bridge-support=off
-device pcie-root-port,id=port-1,slot=4
-device nvme,bus=port-1,drive=disk-5,serial=SERIAL-5
-device pcie-root-port,id=port-2,slot=6
-device e1000e,bus=port-2
-device sdhci-pci
-device sd-card,drive=card-1
"""
FAN_1 = Sensor(1, "FAN1", FAN, 1, TURNS, factor=100, reading=60, thresholds={"lower_critical": 10})
INLET_TEMPERATURE = Sensor(3, "Inlet Temp", INLET, 1, DEGREES, reading=24, thresholds={"upper_critical": 45})
PRESENT, PRESENT_AND_FAILED = 0b01, 0b11
SUPPLY_1 = Sensor(7, "PS1 Status", SUPPLY, 1, reading=PRESENT)
UNCORRECTABLE = 0b10
MEMORY_ERRORS = Sensor(9, "DIMM ECC", MEMORY, 1)
SENSORS = [
    FAN_1,
    Sensor(2, "FAN2", FAN, 2, TURNS, factor=100, reading=61, thresholds={"lower_critical": 10}),
    INLET_TEMPERATURE,
    Sensor(4, "Exhaust Temp", BOARD, 1, DEGREES, reading=38),
    Sensor(5, "PCH Temp", BOARD, 1, DEGREES, reading=52),
    Sensor(6, "Power", BOARD, 1, WATTS, factor=2, reading=90),
    SUPPLY_1,
    Sensor(8, "PS2 Status", SUPPLY, 2, reading=PRESENT),
    MEMORY_ERRORS,
]
FRUS = [(1, SUPPLY, 1, "PS1", fru(product=["Power Maker", "Supply-1", "PART-1", "A1", "SERIAL-10", "", ""])),
        (2, SUPPLY, 2, "PS2", fru(product=["Power Maker", "Supply-1", "PART-1", "A1", "SERIAL-11", "", ""]))]
LARGE_DISKS = {"disk-1": 64, "disk-2": 64, "disk-3": 32, "disk-4": 48, "disk-5": 80, "card-1": 64}
# What the tables show of it: {table: its rows, without the columns that are not compared}.
LARGE_SHOWN = {
    "tavoComputeRackUnit": [{
        "ProductName": "Server-1", "ProductId": "SKU-1", "Serial": "SERIAL-1", "Description": "Maker",
        "Uuid": "6f1c9e0a-52d7-4b3e-9a10-5c8d2e7f4b61", "Cores": "4", "CoresEnabled": "4", "Threads": "4",
        "Processors": "2", "TotalMemory": "1024", "EffectiveMemory": "1024", "MemorySpeed": "2933"}],
    "tavoComputeBoard": [{"Vendor": "Maker", "Model": "Board-1", "Serial": "SERIAL-2"}],
    "tavoProcessorUnit": [
        {"Socket": f"CPU {number}", "Id": str(number), "Vendor": "Vendor", "Model": "Model-1", "Serial": "SERIAL-3",
         "Speed": "2600", "Cores": "2", "CoresEnabled": "2", "Threads": "2", "Presence": "present"}
        for number in (0, 1)],
    "tavoMemoryUnit": [{"Location": "NODE-0", "Capacity": "1024", "Clock": "2933", "Speed": "2933",
                        "Serial": "SERIAL-4", "Presence": "present", "Operability": "operable"}],
    "tavoStorageController": [
        {"Location": "0000:00:1f.2", "Type": "SATA", "Vendor": "Intel Corporation"},
        {"Location": "0000:00:03.0", "Type": "SCSI", "Vendor": "Red Hat, Inc."},
        {"Location": "SLOT-4", "Type": "NVMe", "Vendor": "Red Hat, Inc."},
        {"Location": "SYSTEM", "Type": "unknown", "Vendor": "unknown"}],
    "tavoStorageLocalDisk": [
        {"Model": f"DISK-{number}", "Revision": f"1.{number}", "Media": "HDD", "Capacity": str(size * MIB),
         "Blocks": str(size * MIB // 512), "State": "good", "Operability": "operable", "Presence": "present"}
        for number, size in ((1, 64), (2, 64), (3, 32), (4, 48))] + [
        {"Model": "QEMU NVMe Ctrl", "Revision": SOME, "Media": "SSD", "Capacity": str(80 * MIB),
         "Blocks": str(80 * MIB // 512), "State": "good", "Operability": "operable", "Presence": "present"}],
    "tavoStorageLocalLun": [{"Operability": "optimal", "Presence": "present", "Capacity": str(ARRAY_KIB * 1024),
                             "Blocks": str(ARRAY_KIB * 2)}],
    "tavoAdaptorUnit": [
        {"Slot": "6", "SlotText": "6", "ProductId": "82574L Gigabit Network Connection", "FirmwareVersion": SOME,
         "Overtemperature": "noneReported", "Operability": "operable"}],
    "tavoStorageVeltroCard": [
        {"Column7": "Write enabled", "Column13": "64 MB", "Column21": "QEMU!", "Column4": "0", "Column12": ""}],
    "tavoEquipmentFan": [
        {"Sensor": f"FAN{number}_TACH1", "Module": str(number), "Id": "1", "Presence": "present",
         "Operability": "operable"} for number in (1, 2)],
    "tavoEquipmentPsu": [
        {"Id": str(number), "Model": "Supply-1", "FirmwareVersion": "A1", "Serial": f"SERIAL-{9 + number}",
         "Presence": "present", "Operability": "operable"} for number in (1, 2)],
    "tavoComputeRackUnitMbTempStats": [{"Ambient": "24", "Front": "24", "Rear": "38", "Iohub1": "52", "Iohub2": "0"}],
    "tavoComputeMbPowerStats": [{"ConsumedPower": "180"}],
}

# One processor; an NVMe drive that reports that it is failing.
SMALL = """
-smbios type=1,manufacturer=Builder,product=Server-2,serial=SERIAL-6
-smbios type=4,sock_pfx=P,manufacturer=Foundry,version=Model-2,serial=SERIAL-7,max-speed=1800,current-speed=1500
-smbios type=17,loc_pfx=B,bank=BANK,manufacturer=Maker,serial=SERIAL-8,speed=3200
-device nvme,drive=disk-6,serial=SERIAL-9,smart_critical_warning=4
"""
SMALL_DISKS = {"disk-6": 24}
SMALL_SHOWN = {
    "tavoComputeRackUnit": [{
        "ProductName": "Server-2", "ProductId": "Server-2", "Serial": "SERIAL-6", "Description": "Builder",
        "Uuid": "", "Cores": "1", "CoresEnabled": "1", "Threads": "1", "Processors": "1", "TotalMemory": "640",
        "EffectiveMemory": "640", "MemorySpeed": "3200"}],
    "tavoComputeBoard": [{"Vendor": "", "Model": "", "Serial": ""}],
    "tavoProcessorUnit": [
        {"Socket": "P 0", "Id": "0", "Vendor": "Foundry", "Model": "Model-2", "Serial": "SERIAL-7", "Speed": "1500",
         "Cores": "1", "CoresEnabled": "1", "Threads": "1", "Presence": "present"}],
    "tavoMemoryUnit": [{"Location": "BANK", "Capacity": "640", "Clock": "3200", "Speed": "3200",
                        "Serial": "SERIAL-8", "Presence": "present", "Operability": "operable"}],
    "tavoStorageController": [
        {"Location": "0000:00:03.0", "Type": "NVMe", "Vendor": "Red Hat, Inc."},
        {"Location": "0000:00:1f.2", "Type": "SATA", "Vendor": "Intel Corporation"},
        {"Location": "SYSTEM", "Type": "unknown", "Vendor": "unknown"}],
    "tavoStorageLocalDisk": [
        {"Model": "QEMU NVMe Ctrl", "Revision": SOME, "Media": "SSD", "Capacity": str(24 * MIB),
         "Blocks": str(24 * MIB // 512), "State": "failed", "Operability": "inoperable", "Presence": "present"}],
}


@pytest.fixture
def serve(start, directory):
    """serve(config, disks, prepare, ...) boots a machine, and returns it once it serves its hardware.

    `disks` are the sizes in MiB of what `config` calls drives. Before the service starts, prepare(machine) is called.
    """
    require("amd64", "ipmi_sim")
    smartctl = need("smartctl", "smartmontools")

    def boot(config="", disks=None, prepare=lambda machine: None, **settings):
        for name, size in (disks or {}).items():
            with open(directory / name, "wb") as file:
                file.truncate(size * MIB)
            config += f"-blockdev driver=file,filename={directory / name},node-name={name}\n"
        switched_on = time.monotonic()
        machine = start(EmulatedMachine, [SERVE, BUILD, smartctl], config=config, **settings)
        prepare(machine)
        machine.run("touch /run/prepared")
        machine.wait_for_log("the daemon answers", timeout=240)
        print(f"{time.monotonic() - switched_on:.0f} s from power-on to the first answer")
        return machine
    return boot


class Tables:
    """What a machine serves, by the names of the MIB modules."""

    def __init__(self, machine, directory):
        self._machine = machine
        self._columns = definitions(directory)

    def cells(self):
        """[(column's definition, row, value)], with the words of enumerations."""
        lines = self._machine.run(f"snmpbulkwalk -v2c -c public -t 20 -Cr50 -OnQ -Ir {ADDRESS} {BASE}")
        cells = []
        for oid, row, value in re.findall(r'^\.(\S+)\.(\d+) = "?(.*?)"?$', lines, re.MULTILINE):
            column = self._columns[oid]
            cells.append((column, row, column.enumeration.get(int(value), value) if column.enumeration else value))
        return cells

    def faults(self):
        lines = self._machine.run(f"snmpbulkwalk -v2c -c public -t 20 -OvQ {ADDRESS} {FAULT_TABLE}.1.11")
        return re.findall(r'^"(.*)"$', lines, re.MULTILINE)


def rows(cells, table, columns):
    """The rows of a table, as far as these columns go."""
    found = {}
    for column, row, value in cells:
        if column.name.startswith(table) and column.name.removeprefix(table) in columns:
            found.setdefault(row, {})[column.name.removeprefix(table)] = value
    return list(found.values())


def differences(cells, shown):
    """{table: (rows that are described and not served, rows that are served and not described)}"""
    found = {}
    for table, described in shown.items():
        served = rows(cells, table, described[0].keys())
        missing = []
        for row in described:
            if row in served:
                served.remove(row)
            else:
                missing.append(row)
        if missing or served:
            found[table] = (missing, served)
    return found


def await_shown(tables, shown):
    """Waits until the tables show this.

    The module rebuilds tables for the first time a minute after its start, and drives and arrays another minute later.
    """
    deadline = time.monotonic() + 200
    while (found := differences(tables.cells(), shown)) and time.monotonic() < deadline:
        time.sleep(3)  # a walk takes the emulated machine a second
    assert found == {}


def print_filled(tables):
    """How many columns have a value that says something in one row at least."""
    silent = {"", "0", "unknown", "notMonitored", "noneReported"}
    filled = {column.name: column for column, _, value in tables.cells() if value not in silent}
    varying = [column for column in filled.values() if column.constant is None]
    print(f"{len(filled)} columns with a value, {len(varying)} of them not constant")


def notified(machine, trap, description):
    """Whether a notification of this kind with this description has arrived."""
    return any(f" OID: .{trap}\t" in line and re.search(description, line) for line in machine.log().splitlines())


def wait_for_notifications(machine, trap, since, within):
    """Waits for one for each description in `since`, which says when its cause was. Prints how long it took."""
    what = "raised" if trap == RAISED else "cleared"
    pending = dict(since)

    def all_have_arrived():
        for description, when in list(pending.items()):
            if notified(machine, trap, description):
                print(f"{what} after {time.monotonic() - when:.1f} s: {description}")
                del pending[description]
        return not pending
    wait_until(all_have_arrived, within, f"{what}: {pending.keys()}")


def name_of_drive(machine, model):
    return machine.run(f"grep -l {model} /sys/block/*/device/model").split("/")[3]


def make_array(machine):
    """Makes a mirror, md0, of DISK-1 and DISK-2."""
    steps = ["set -e", "echo md0 >/sys/module/md_mod/parameters/new_array", "cd /sys/block/md0/md", "echo raid1 >level",
             "echo 2 >raid_disks", "echo none >metadata_version", f"echo {ARRAY_KIB} >component_size"]
    for slot, model in enumerate(("DISK-1", "DISK-2")):
        disk = name_of_drive(machine, model)
        steps += [f"cat /sys/block/{disk}/dev >new_dev", f"echo {slot} >dev-{disk}/slot"]
    machine.run("; ".join([*steps, "echo active >array_state"]))


def test_a_large_server(serve, directory):
    machine = serve(LARGE, LARGE_DISKS, make_array, ipmi=describe(SENSORS, FRUS))
    tables = Tables(machine, directory)
    await_shown(tables, LARGE_SHOWN)
    print_filled(tables)

    second = name_of_drive(machine, "DISK-2")
    since = {}

    def at_once(description, change, *arguments, **settings):
        since[description] = time.monotonic()
        change(*arguments, **settings)

    at_once("Array md0 is degraded", machine.run, f"echo faulty >/sys/block/md0/md/dev-{second}/state")
    at_once(r"Drive \w+ \(DISK-3\) in slot \d is missing", machine.monitor, "device_del", id="drive-3")
    at_once("Fan 1 .*has failed", machine.controller, *set_reading(FAN_1, 5))
    at_once("Inlet Temp is at its critical temperature", machine.controller, *set_reading(INLET_TEMPERATURE, 46))
    at_once("Power supply 1 has failed", machine.controller, *set_reading(SUPPLY_1, PRESENT_AND_FAILED))
    at_once("DIMM ECC: memory has had an error that cannot be corrected", machine.controller,
            *set_reading(MEMORY_ERRORS, UNCORRECTABLE))
    failed_member = r"Drive \w+ \(DISK-2\) in slot \d has failed in array md0"
    since[failed_member] = since["Array md0 is degraded"]
    wait_for_notifications(machine, RAISED, since, RAISED_WITHIN)
    faults = tables.faults()
    assert len(faults) == len(since) and all(re.search(fault, "\n".join(faults)) for fault in since), faults
    await_shown(tables, {"tavoStorageLocalLun": [LARGE_SHOWN["tavoStorageLocalLun"][0] | {"Operability": "degraded"}]})
    drives = rows(tables.cells(), "tavoStorageLocalDisk", {"Model", "State"})
    assert {"Model": "DISK-2", "State": "failed"} in drives
    assert "DISK-3" not in [drive["Model"] for drive in drives]

    array, missing, fan, inlet, supply, memory, failed_member = since
    at_once(array, machine.run, f"cd /sys/block/md0/md; echo remove >dev-{second}/state;"
                                f" cat /sys/block/{second}/dev >new_dev; echo recover >sync_action")
    since[failed_member] = since[array]
    at_once(missing, machine.monitor, "device_add", driver="scsi-hd", bus="scsi.0", drive="disk-3", id="drive-3",
            product="DISK-3", ver="1.3")
    at_once(fan, machine.controller, *set_reading(FAN_1, FAN_1.reading))
    at_once(inlet, machine.controller, *set_reading(INLET_TEMPERATURE, INLET_TEMPERATURE.reading))
    at_once(supply, machine.controller, *set_reading(SUPPLY_1, PRESENT))
    at_once(memory, machine.controller, *set_reading(MEMORY_ERRORS, 0))
    wait_for_notifications(machine, CLEARED, since, CLEARED_WITHIN)
    assert tables.faults() == []


def test_a_small_server_with_a_failing_drive(serve, directory):
    machine = serve(SMALL, SMALL_DISKS, memory=640)
    tables = Tables(machine, directory)
    await_shown(tables, SMALL_SHOWN)
    wait_until(lambda: tables.faults(), what="the fault")
    assert tables.faults() == ["Drive nvme0n1 (QEMU NVMe Ctrl) in slot 1 reports that it is failing"]


def test_a_server_that_tells_nothing(serve, directory):
    machine = serve(prepare=lambda machine: machine.run("mount -t tmpfs nothing /sys/firmware/dmi/tables"))
    printed = machine.run(f"scripts/print-tables --community public {ADDRESS}")
    tables = dict(re.findall(r"^(tavo\w+Table) +(\d+) rows?$", printed, re.MULTILINE))
    print(tables)
    assert len(tables) == 20
    assert {"SMBIOS", "hwmon", "EDAC"} <= set(re.findall(r"not read: (\w+): ", machine.run("cat /run/bmcsim.log")))
