"""The MIB modules are correct SMIv2, and net-snmp's tools can read them on a machine that has no other modules."""
import json
import os
import re
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
MIBS = ROOT / "mibs"
MODULES = sorted(path for path in MIBS.iterdir() if path.is_file())
BASE = "1.3.6.1.4.1.61453.4.207"


@pytest.fixture(autouse=True)
def persistent_directory(tmp_path, monkeypatch):
    """net-snmp's tools say so when they make one of these, as on a machine where they run for the first time."""
    (tmp_path / "cert_indexes").mkdir()
    monkeypatch.setenv("SNMP_PERSISTENT_DIR", str(tmp_path))


def translate(*arguments):
    command = ["snmptranslate", "-M", f"{MIBS}:{MIBS / 'base'}", "-m", "ALL", *arguments]
    return subprocess.run(command, capture_output=True, text=True, check=False)


def camel_case(field):
    return "".join(word[:1].upper() + word[1:] for word in field.split("_"))


def names_by_oid():
    listing = translate("-Tz")
    assert listing.returncode == 0
    return {oid: name for name, oid in re.findall(r'"([^"]+)"\s+"([\d.]+)"', listing.stdout)}


# What smilint says at its pickiest and nothing can be done about.
ACCEPTED = {
    # Managers need the index of a fault, which the notifications carry.
    "TAVO-FAULT-MIB": {"index-element-accessible"},
    # Textual conventions are for other modules; see test_every_textual_convention_is_used.
    "TAVO-MIB": {"type-unref"},
    "SNMPv2-TC": {"type-unref"},
    # The base types themselves.
    "SNMPv2-SMI": {"identifier-basetype-redefined", "type-without-format"},
}


@pytest.mark.parametrize("module", [*MODULES, *sorted((MIBS / "base").iterdir())], ids=lambda path: path.name)
def test_module_is_correct(module):
    environment = dict(os.environ, SMIPATH=f"{MIBS}:{MIBS / 'base'}")
    lint = subprocess.run(
        ["smilint", "-m", "-l", "6", module], env=environment, capture_output=True, text=True, check=False
    )
    lines = (lint.stdout + lint.stderr).splitlines()
    tags = [re.search(r"{([\w-]+)}|$", line)[1] for line in lines]
    assert [line for line, tag in zip(lines, tags) if tag not in ACCEPTED.get(module.name, set())] == []
    assert lint.returncode == 0


def test_every_textual_convention_is_used():
    texts = {module.name: module.read_text() for module in MODULES}
    defined = {name: module for module, text in texts.items()
               for name in re.findall(r"^(\w+) ::= TEXTUAL-CONVENTION$", text, re.MULTILINE)}
    assert len(defined) > 10
    used = {name for text in texts.values() for name in re.findall(r"^    SYNTAX +(\w+)", text, re.MULTILINE)}
    assert set(defined) - used == set()


@pytest.mark.parametrize("module", MODULES, ids=lambda path: path.name)
def test_draft_is_completed(module):
    assert "TODO" not in module.read_text()


@pytest.mark.parametrize("module", MODULES, ids=lambda path: path.name)
def test_file_is_named_after_its_module(module):
    assert module.read_text().startswith(f"{module.name} DEFINITIONS ::= BEGIN\n")


def test_net_snmp_reads_all_modules_without_complaint():
    tree = translate("-Tp", f".{BASE}")
    assert tree.stderr == ""
    assert "+--tavoServerMib(207)" in tree.stdout


def test_every_name_leads_to_its_oid_and_back():
    names = {oid: name for oid, name in names_by_oid().items() if oid.startswith(BASE + ".")}
    assert len(names) > 20
    assert translate("-On", "-IR", *names.values()).stdout.split() == [f".{oid}" for oid in names]
    assert translate("-Os", *(f".{oid}" for oid in names)).stdout.split() == list(names.values())


def test_columns_follow_the_index_without_gaps():
    names = names_by_oid()
    tables = [oid for oid, name in names.items() if name.endswith("Table") and oid.startswith(f"{BASE}.1.")]
    assert tables
    for table in tables:
        columns = sorted(int(oid.split(".")[-1]) for oid in names if re.fullmatch(rf"{re.escape(table)}\.1\.\d+", oid))
        assert columns == list(range(1, len(columns) + 1)), names[table]
        index = translate("-Td", f".{table}.1.1").stdout
        assert re.search(r"MAX-ACCESS\s+(not-accessible|accessible-for-notify)", index), names[table]


@pytest.mark.parametrize(
    "name, oid",
    [
        ("TAVO-MIB::tavoServerMib", BASE),
        ("TAVO-MIB::tavoServerController", "1.3.6.1.4.1.61453.1.3301"),
        ("TAVO-FAULT-MIB::tavoFaultRaised", BASE + ".0.1"),
        ("TAVO-FAULT-MIB::tavoFaultCleared", BASE + ".0.2"),
        ("TAVO-FAULT-MIB::tavoFaultTable", BASE + ".1.1.1"),
        ("TAVO-PROCESSOR-MIB::tavoProcessorUnitTable", BASE + ".1.41.9"),
        ("TAVO-PROCESSOR-MIB::tavoProcessorUnitDn.1", BASE + ".1.41.9.1.2.1"),
        ("TAVO-PROCESSOR-MIB::tavoProcessorUnitVoltage.4294967295", BASE + ".1.41.9.1.22.4294967295"),
    ],
)
def test_known_places(name, oid):
    assert translate("-On", name).stdout.strip() == f".{oid}"


SYNTAX = {
    "Integer": "Integer32|INTEGER",
    "Gauge32": "Gauge32",
    "Counter32": "Counter32",
    "Counter64": "Counter64",
    "CounterWords": "Counter64",
    "FourOctetCounter64": "Counter64",
    "Text": "OCTET STRING",
    "CountedText": "OCTET STRING",
    "Octet": "OCTET STRING",
    "ObjectIdentifier": "OBJECT IDENTIFIER",
}
TABLES = json.loads((Path(os.environ["TAVO_BUILD_DIR"]) / "tables.json").read_text())["tables"]


@pytest.mark.parametrize("table", TABLES, ids=lambda table: table["name"])
def test_mib_has_the_columns_of_the_table(table):
    names, root = names_by_oid(), table["oid"]
    assert names.get(root) == table["name"], f"the MIB lacks this table: run scripts/draft-mib {table['name']}"
    prefix = table["name"].removesuffix("Table")
    wanted = {f"{root}.1.{column['number']}": prefix + camel_case(column["name"]) for column in table["columns"]}
    assert {oid: name for oid, name in names.items() if re.fullmatch(rf"{root}\.1\.\d+", oid)} == {
        f"{root}.1.1": prefix + "Index", **wanted}, f"scripts/draft-mib {table['name']} COLUMN drafts a column"
    for column in table["columns"]:
        definition = translate("-Td", f".{root}.1.{column['number']}").stdout
        syntax = re.search(r"SYNTAX\s+(.*)", definition)[1]
        assert re.match(SYNTAX[column["codec"]], syntax), column


def test_notifications_list_what_they_carry():
    unit = (ROOT / "tables/faults/tavoFaultTable_traps.cpp").read_text()
    fields = re.findall(r"offsetof\(Row, (\w+)\)", re.search(r"notified_fields = .*?;", unit, re.DOTALL)[0])
    assert fields
    lists = re.findall(r"NOTIFICATION-TYPE\s+OBJECTS\s+{([^}]*)}", (MIBS / "TAVO-FAULT-MIB").read_text())
    assert [re.split(r",\s*", objects.strip()) for objects in lists] == 2 * [
        [f"tavoFault{camel_case(field)}" for field in fields]]
