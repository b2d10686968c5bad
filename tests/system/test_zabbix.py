"""contrib/zabbix/tavo-server.yaml: is it whole, do its OIDs and words exist, and what does Zabbix itself make of it.

TAVO_ZABBIX=run imports it into Debian's Zabbix, which then watches a simulated server. That takes two minutes.
"""

import os
import re
import subprocess
import uuid

import pytest
import yaml

from agents import ROOT, snmpget, wait_until
from debian import unpacked
from mib import MIBS, definitions
from rebuilds import quiet_scenario
from server import ServedDaemon, Server
from zabbix import PACKAGES, Database, Frontend, ZabbixServer

HERE = ROOT / "contrib/zabbix"
EXPORT = yaml.safe_load((HERE / "tavo-server.yaml").read_text())["zabbix_export"]
[TEMPLATE] = EXPORT["templates"]


def parts_of(node):
    """All mappings in the export."""
    if isinstance(node, dict):
        yield node
    for child in node.values() if isinstance(node, dict) else node if isinstance(node, list) else []:
        yield from parts_of(child)


ITEMS = [part for part in parts_of(EXPORT) if "key" in part]
TRIGGERS = [part for part in parts_of(EXPORT) if "expression" in part and "priority" in part]
RULES = TEMPLATE["discovery_rules"]


def oids():
    """The OIDs of all items, without the index, and of the columns that discovery reads."""
    for item in ITEMS:
        if item["type"] == "SNMP_AGENT":
            oid = item["snmp_oid"]
            columns = re.findall(r"[\d.]{9,}", oid)
            yield from columns if oid.startswith("discovery[") else [oid.rpartition(".")[0]]


def test_template_is_up_to_date(directory):
    subprocess.run(["/usr/bin/python3", HERE / "generate", directory], check=True)
    assert (directory / "tavo-server.yaml").read_text() == (HERE / "tavo-server.yaml").read_text()


def test_uuids_are_unique():
    uuids = [part["uuid"] for part in parts_of(EXPORT) if "uuid" in part]
    assert len(uuids) > 100 and len(set(uuids)) == len(uuids)
    for text in uuids:
        assert uuid.UUID(text).version == 4 and uuid.UUID(text).hex == text
    for part in [*ITEMS, *TRIGGERS, *TEMPLATE["valuemaps"]]:
        assert "uuid" in part, part


def test_oids_are_in_the_mib(directory):
    known = definitions(directory)
    assert len(set(oids())) > 40
    assert {oid for oid in oids() if oid not in known} == set()


def test_words_are_those_of_the_mib(directory):
    known = definitions(directory)
    maps = {entry["name"]: {int(mapping["value"]): mapping["newvalue"] for mapping in entry["mappings"]}
            for entry in TEMPLATE["valuemaps"]}
    used = {}
    for item in ITEMS:
        if "valuemap" in item:
            column = known[item["snmp_oid"].rpartition(".")[0]]
            assert maps[item["valuemap"]["name"]] == column.enumeration, column.name
            used[item["valuemap"]["name"]] = True
    assert set(used) == set(maps)


def test_triggers_name_items_that_exist():
    keys = {item["key"] for item in ITEMS}
    macros = {macro["macro"] for macro in TEMPLATE["macros"]}
    assert len(TRIGGERS) > 30
    for trigger in TRIGGERS:
        named = re.findall(rf"\(/{re.escape(TEMPLATE['name'])}/((?:[\w.]+)(?:\[[^]]*\])?)", trigger["expression"])
        assert named and set(named) <= keys, trigger["expression"]
        assert set(re.findall(r"{\$[\w.]+}", trigger["expression"])) <= macros
        for other in trigger.get("dependencies", []):
            assert any(other.items() <= candidate.items() for candidate in TRIGGERS), other


def test_names_are_unique():
    for names in ([item["key"] for item in ITEMS], [trigger["name"] + trigger["expression"] for trigger in TRIGGERS]):
        assert len(set(names)) == len(names)


def test_discovered_macros_are_the_rules_own():
    for rule in RULES:
        given = {*re.findall(r"{#\w+}", rule["snmp_oid"]), "{#SNMPINDEX}"}
        assert set(re.findall(r"{#\w+}", yaml.dump(rule))) <= given, rule["name"]


def test_every_alert_of_prometheus_has_a_trigger():
    rules = yaml.safe_load((ROOT / "contrib/prometheus/rules.yml").read_text())["groups"]
    alerts = {rule["alert"]: rule["labels"]["severity"] for group in rules for rule in group["rules"]
              if "alert" in rule}
    priorities = {"critical": "HIGH", "warning": "WARNING", "info": "INFO"}
    tagged = {(tag["value"], trigger["priority"]) for trigger in TRIGGERS for tag in trigger["tags"]}
    assert tagged == {(alert, priorities[severity]) for alert, severity in alerts.items()}


def test_simulated_server_answers_all(start):
    server = start(Server)
    daemon = start(ServedDaemon, server, speed=20)
    server.wait_for_listeners()
    single = [item["snmp_oid"] for item in TEMPLATE["items"] if item["type"] == "SNMP_AGENT"]
    for line in snmpget(daemon.address, *single):
        assert "No Such" not in line
    columns = sorted(set(oids()) - {oid.rpartition(".")[0] for oid in single})
    lines = subprocess.run(["snmpgetnext", "-v2c", "-c", "public", "-On", "-m", "", daemon.address, *columns],
                           capture_output=True, text=True, check=True).stdout
    for column in columns:
        assert f".{column}." in lines, column


class Zabbix:
    """A Zabbix that has the template, and watches the agent at this address."""

    def __init__(self, start, address):
        place = unpacked(*PACKAGES)
        database = start(Database, place / "usr/share/zabbix-server-pgsql")
        start(ZabbixServer, place, database)
        self._frontend = start(Frontend, place, database)
        both = {"createMissing": True, "updateExisting": True}
        kinds = ["groups", "templates", "valueMaps", "items", "triggers", "discoveryRules"]
        assert self._call("configuration.import", format="yaml", source=(HERE / "tavo-server.yaml").read_text(),
                          rules=dict.fromkeys(kinds, both))
        [template] = self._call("template.get", filter={"host": [TEMPLATE["name"]]})
        interface = {"type": 2, "main": 1, "useip": 1, "ip": "127.0.0.1", "dns": "", "port": address.partition(":")[2],
                     "details": {"version": 2, "bulk": 1, "community": "public"}}
        [self._host] = self._call(
            "host.create", host="server-1", groups=[{"groupid": self._call("hostgroup.get", limit=1)[0]["groupid"]}],
            templates=[{"templateid": template["templateid"]}], interfaces=[interface], inventory_mode=1)["hostids"]

    def _call(self, method, **parameters):
        return self._frontend.call(method, **parameters)

    def _get(self, what, **parameters):
        return self._call(f"{what}.get", hostids=self._host, **parameters)

    def poll(self):
        """Has everything asked for now: what there is to discover, and all items."""
        identifiers = [entry["itemid"] for what in ("discoveryrule", "item") for entry in self._get(what)]
        tasks = [{"type": 6, "request": {"itemid": identifier}} for identifier in identifiers]
        self._frontend.call_with("task.create", tasks)

    def items(self):
        return {item["key_"]: item for item in self._get("item")}

    def complaints(self):
        """What Zabbix says of items, rules and triggers that it cannot use."""
        return [entry["error"] for what in ("item", "discoveryrule", "trigger") for entry in self._get(what)
                if entry["error"]]

    def problems(self):
        """{name: severity}"""
        return {problem["name"]: int(problem["severity"]) for problem in self._get("problem")}

    def serial(self):
        return self._get("host", selectInventory=["serialno_a"])[0]["inventory"]["serialno_a"]


@pytest.mark.skipif(os.environ.get("TAVO_ZABBIX") != "run", reason="TAVO_ZABBIX is not set to run")
def test_zabbix_imports_discovers_and_alerts(start, directory):
    server = start(Server, scenario=quiet_scenario(directory))
    daemon = start(ServedDaemon, server, speed=20)
    server.wait_for_listeners()
    zabbix = Zabbix(start, daemon.address)

    def becomes(condition, what):
        def poll():
            zabbix.poll()
            return condition()
        wait_until(poll, timeout=240, what=what)
    becomes(lambda: len(zabbix.items()) > 150, "the discovery")
    becomes(lambda: all(item["lastclock"] != "0" for item in zabbix.items().values()), "a value of each item")
    print(f"{len(zabbix.items())} items")
    becomes(lambda: zabbix.complaints() == [], "enough data for all triggers")
    assert zabbix.serial() == "SERIAL-0001"
    broken = "RAID controller sys/rack-unit-1/board/storage-SAS-SLOT-4 does not work"
    becomes(lambda: zabbix.problems().get(broken) == 4, broken)
    fan = "sys/rack-unit-1/fan-module-1-2/fan-1"
    server.ctl("fan", "fail", "FAN2_TACH1")
    becomes(lambda: {f"Fan {fan} does not work", f"{fan}: "} <= {re.sub(": .*", ": ", name)
                                                                 for name in zabbix.problems()}, "the fan's problems")
    server.ctl("fan", "repair", "FAN2_TACH1")
    becomes(lambda: not any(fan in name for name in zabbix.problems()), "their ends")
    assert zabbix.complaints() == []
    assert zabbix.problems().get(broken) == 4
