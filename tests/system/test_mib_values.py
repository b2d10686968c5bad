"""Every value that the daemon serves is one that the MIB lists for its object.

Walked are the simulator's scenarios, and servers whose parts are in every state that there is.
"""

import itertools
import json
import pathlib
import re

import pytest

from agents import snmp, wait_until
from mib import MANAGEMENT, definitions
from oids import FAN_OPERABILITY, FAULT_TABLE
from server import SCENARIO, ServedDaemon, Server


def walked(address):
    """[(OID, shape, value)] of everything; texts with one character for each octet."""
    text = "\n".join(snmp("snmpbulkwalk", address, MANAGEMENT, options=["-Ox"]))
    cells = []
    for oid, shape, value in re.findall(r'^\.([\d.]+) = (?:([\w-]+): |"")(.*(?:\n[^.].*)*)', text, re.MULTILINE):
        if not oid.startswith(f"{MANAGEMENT}."):
            continue
        if shape in ("", "Hex-STRING"):
            shape, value = "Hex-STRING", bytes.fromhex(value).decode("latin-1")
        elif shape != "OID":
            value = int(re.search(r"-?\d+", value)[0])  # of "(100) 0:00:01.00", the ticks
        cells.append((oid, shape, value))
    assert len(cells) == len(re.findall(rf"^\.{re.escape(MANAGEMENT)}\.[\d.]+ = (?!No more)", text, re.MULTILINE))
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
            *({"number": n, "name": f"FAN{n}_SPEED", "entity": "fan", "instance": n, "type": "fan",
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


def definition(oid, known):
    """The definition of what the OID is an instance of, or None."""
    place = oid
    while place and place not in known:
        place = place.rpartition(".")[0]
    return known.get(place)


def unlisted(cells, known):
    return [(oid, shape, value) for oid, shape, value in cells
            if not (found := definition(oid, known)) or not found.accepts(shape, value)]


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
    cells, known = walked(address), definitions(directory)
    assert unlisted(cells, known) == []
    seen = {}
    for oid, _, value in cells:
        seen.setdefault(definition(oid, known).name, set()).add(value)
    for column in known.values():
        if column.name in SHOWN_WHOLE:
            assert seen[column.name] == set(column.enumeration) - NEVER_SHOWN.get(column.name, set()), column.name
