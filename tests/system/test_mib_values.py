"""Every value that the module serves is one that its column's MIB definition lists.

Walked are the simulator's scenarios, and servers whose parts are in every state that there is.
"""

import itertools
import json
import pathlib
import re
import subprocess

import pytest

from agents import ROOT, environment, snmp, wait_until
from oids import BASE, FAN_OPERABILITY, FAULT_TABLE, OBJECTS
from server import SCENARIO, ServedDaemon, Server

MIBS = ROOT / "mibs"
# What a value of each SYNTAX looks like in a walk.
SHAPES = {"INTEGER": "INTEGER", "Integer32": "INTEGER", "Gauge32": "Gauge32", "Unsigned32": "Gauge32",
          "Counter32": "Counter32", "Counter64": "Counter64", "OCTET STRING": "Hex-STRING", "OBJECT IDENTIFIER": "OID"}


class Column:
    """A column's definition, as snmptranslate -Td prints it."""

    def __init__(self, text):
        self.name = text.split()[0]
        syntax = re.search(r"SYNTAX\t(\w+(?: STRING| IDENTIFIER)?)(.*)", text)
        self.shape = SHAPES[syntax[1]]
        self.enumeration = {int(value): label for label, value in re.findall(r"(\w+)\((-?\d+)\)", syntax[2])}
        self.bounds = [] if self.enumeration else [
            (int(low), int(high or low)) for low, high in re.findall(r"(\d+)(?:\.\.(\d+))?", syntax[2])]
        always = re.search(r'DESCRIPTION\s+"Constant: always (?:the word )?(.*?)\.[ "]', re.sub(r"\s+", " ", text))
        self.constant = always and re.sub(r"^\w+\((\d+)\)$", r"\1", always[1])

    def accepts(self, shape, value):
        if shape != self.shape:
            return False
        size = len(value) if isinstance(value, str) else value
        if self.bounds and shape != "OID" and not any(low <= size <= high for low, high in self.bounds):
            return False
        if self.enumeration and value not in self.enumeration:
            return False
        return self.constant is None or str(value) == ("" if self.constant == "empty" else self.constant)


def definitions(directory):
    """{a column's OID: its definition}"""
    command = ["snmptranslate", "-M", f"{MIBS}:{MIBS / 'base'}", "-m", "ALL"]

    def run(*arguments):
        return subprocess.run([*command, *arguments], capture_output=True, text=True, check=True,
                              env=environment(directory)).stdout

    oids = re.findall(rf'"({re.escape(OBJECTS)}\.\d+\.\d+\.1\.\d+)"', run("-Tz"))
    texts = re.split(r"^TAVO-[A-Z]+-MIB::", run("-Td", *oids), flags=re.MULTILINE)[1:]
    assert len(texts) == len(oids) > 400
    return {oid: Column(text.split("\n", 1)[1]) for oid, text in zip(oids, texts)}


def walked(address):
    """[(a column's OID, a row's index, shape, value)] of everything; texts with one character for each octet."""
    text = "\n".join(snmp("snmpbulkwalk", address, BASE, options=["-Ox"]))
    cells = []
    for oid, shape, value in re.findall(r'^\.([\d.]+) = (?:([\w-]+): |"")(.*(?:\n[^.].*)*)', text, re.MULTILINE):
        if not oid.startswith(f"{OBJECTS}."):
            continue
        if shape in ("", "Hex-STRING"):
            shape, value = "Hex-STRING", bytes.fromhex(value).decode("latin-1")
        elif shape != "OID":
            value = int(value)
        column, _, index = oid.rpartition(".")
        cells.append((column, index, shape, value))
    return cells


def states_of_drives():
    """17 drives in the states 0 to 16, and an empty slot."""
    return [{"slot": state + 1, "name": f"DISK-{state}", "state": state, "connection": state % 5, "media": state % 4}
            for state in range(17)]


def health_led(n):
    """One of many names of the health LED: the case of the letters does not matter."""
    name = "LED_HLTH_STATUS"
    place = [place for place, character in enumerate(name) if character.isalpha()][n]
    return name[:place] + name[place].lower() + name[place + 1:]


def every_state(sd_mode, power):
    """A scenario whose parts are in every state, so far as one server can show them."""
    return {
        "server": {"description": "one server", "product-name": "Server", "product-id": "MODEL-A",
                   "serial": "SERIAL-0001", "uuid": "6f1c9e0a-52d7-4b3e-9a10-5c8d2e7f4b61", "power": power,
                   "drive-slots": 18, "low-voltage-memory": 1 + sd_mode},
        "processors": [{"socket": f"CPU{n}", "architecture": architecture, "status": status}
                       for n, (architecture, status) in enumerate([("Xeon", "Enabled"), ("Pentium_4", "Disabled"),
                                                                   ("Other", "Enabled")])],
        "dimms": [{"name": f"DIMM_{n}", "number": n, "status": status, "visible": visible} for n, (status, visible) in
                  enumerate([("Operable", "Yes"), ("Failed", "No"), ("Operable", "Some")], 1)],
        "sensors": [
            {"number": 0, "name": "FOREIGN_FAN", "entity": 0x20, "instance": 1, "type": "fan"},
            *({"number": n, "name": f"FAN{n}_SPEED", "entity": "fan", "instance": n, "type": "fan", "fault-unit": n,
               "presence": presence} for n, presence in enumerate(["present", "absent", "unknown", "present"], 1)),
            *({"number": 4 + n, "name": f"FAN{n}_PRES", "entity": "fan", "instance": n, "type": "presence",
               "presence": presence} for n, presence in enumerate(["present", "absent", "unknown", "present"], 1)),
        ],
        "supplies": [{"status": 0}, {"status": 1}, {"present": "no"}],
        "adapters": [{"slot": n, "over-temperature": hot, "running-version": "1.0"}
                     for n, hot in enumerate(["no", "yes"], 1)],
        "leds": [{"name": "LED_FIRST"},
                 *({"name": health_led(n), "state": state, "color": color} for n, (state, color) in enumerate(
                     itertools.product(["ON", "OFF", "SLOW BLINK"], ["GREEN", "AMBER", "RED", "BLUE"])))],
        "faults": [{"index": n, "class": "fan", "unit": 4 if n == 3 else 13, "severity": n, "previous-severity": n - 1}
                   for n in range(1, 7)],
        "raid-controllers": [
            *({"id": kind, "mode": 1, "faulty": faulty, "location": f"SLOT-{kind}", "battery-type": kind,
               "battery-present": "yes", "battery-state": kind % 2}
              for kind, faulty in enumerate(["no", "yes"] * 5)),
            {"id": 10, "drives": states_of_drives(),
             "volumes": [{"state": n, "type": n % 6} for n in range(1, 12)]},
        ],
        "sd-cards": {
            "controller": {"mode": sd_mode, "column-6": 1, "column-30": 2, "column-43": sd_mode},
            "cards": [{"slot": n, "column-28": n} for n in (1, 2)],
            "partitions": [{"number": n, "name": name, "column-7": 4 * (n % 2), "column-21": n % 2, "column-22": n - 1,
                            "column-24": n + 4 * sd_mode, "column-25": n}
                           for n, name in enumerate(["Main", "SCU", "huu", "Drivers", "Last"], 1)],
        },
    }


def served(start, scenario, speed=None):
    """The address of a daemon on this server, when it shows all faults."""
    server = start(Server, scenario=scenario)
    daemon = start(ServedDaemon, server, speed=speed)
    faults = server.ctl("fault", "list").count("fault: ")
    wait_until(lambda: len(snmp("snmpbulkwalk", daemon.address, f"{FAULT_TABLE}.1.2", options=["-Ox"])) >= faults,
               what="the faults")
    return daemon.address


def unlisted(cells, columns):
    return [(columns[oid].name if oid in columns else oid, index, shape, value) for oid, index, shape, value in cells
            if oid not in columns or not columns[oid].accepts(shape, value)]


@pytest.mark.parametrize("scenario", sorted(SCENARIO.parent.glob("*.yaml")), ids=lambda path: path.stem)
def test_scenario_shows_only_listed_values(start, directory, scenario):
    cells = walked(served(start, scenario))
    assert len(cells) > 100
    assert unlisted(cells, definitions(directory)) == []


# Columns that show all the values of their enumerations.
SHOWN_WHOLE = ["tavoFaultSeverity", "tavoFaultPreviousSeverity",
               "tavoEquipmentFanOperState", "tavoEquipmentFanPresence",
               "tavoEquipmentPsuOperability", "tavoEquipmentPsuOperState", "tavoEquipmentPsuPower",
               "tavoEquipmentHealthLedColor", "tavoEquipmentHealthLedColorCode", "tavoMemoryUnitOperability",
               "tavoMemoryUnitVisibility", "tavoProcessorUnitArch", "tavoProcessorUnitPower",
               "tavoStorageRaidBatteryOperability", "tavoStorageLocalDiskOperability", "tavoStorageLocalDiskState",
               "tavoStorageLocalDiskColumn15", "tavoStorageLocalLunOperability", "tavoStorageVeltroDriveKind"]
# No server shows these values of theirs.
NEVER_SHOWN = {"tavoFaultSeverity": {0}, "tavoFaultPreviousSeverity": {6}}


@pytest.mark.parametrize("sd_mode, power", [(0, "off"), (1, 2)])
def test_every_state_is_a_listed_value(start, directory, sd_mode, power):
    scenario = pathlib.Path(directory) / "every-state.yaml"
    scenario.write_text(json.dumps(every_state(sd_mode, power)))
    address = served(start, scenario, speed=20)
    wait_until(lambda: any(line.endswith("INTEGER: 3") for line in snmp("snmpbulkwalk", address, FAN_OPERABILITY)),
               what="the faulty fan")
    cells, columns = walked(address), definitions(directory)
    assert unlisted(cells, columns) == []
    seen = {}
    for oid, _, _, value in cells:
        seen.setdefault(columns[oid].name, set()).add(value)
    for column in columns.values():
        if column.name in SHOWN_WHOLE:
            assert seen[column.name] == set(column.enumeration) - NEVER_SHOWN.get(column.name, set()), column.name
