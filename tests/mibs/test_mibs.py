"""The MIB modules are correct SMIv2, and net-snmp's tools can read them on a machine that has no other modules."""
import os
import re
import subprocess
from pathlib import Path

import pytest

MIBS = Path(__file__).resolve().parents[2] / "mibs"
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


def names_by_oid():
    listing = translate("-Tz")
    assert listing.returncode == 0
    return {oid: name for name, oid in re.findall(r'"([^"]+)"\s+"([\d.]+)"', listing.stdout)}


@pytest.mark.parametrize("module", [*MODULES, *sorted((MIBS / "base").iterdir())], ids=lambda path: path.name)
def test_module_is_correct(module):
    environment = dict(os.environ, SMIPATH=f"{MIBS}:{MIBS / 'base'}")
    lint = subprocess.run(
        ["smilint", "-s", "-l", "3", module], env=environment, capture_output=True, text=True, check=False
    )
    assert lint.stdout + lint.stderr == ""
    assert lint.returncode == 0


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


def test_columns_are_numbered_without_gaps_after_an_index_that_is_not_served():
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


CODEC_SYNTAX = {
    "text": "OCTET STRING",
    "counted_text": "OCTET STRING",
    "octet": "OCTET STRING",
    "integer": "Integer32|INTEGER",
    "gauge": "Gauge32",
    "counter": "Counter32",
    "counter64": "Counter64",
    "counter64_of_four_octets": "Counter64",
    "object_identifier": "OBJECT IDENTIFIER",
}
UNITS = sorted((MIBS.parent / "tables").glob("tavo*Table.cpp"))


@pytest.mark.parametrize("unit", UNITS, ids=lambda path: path.stem)
def test_mib_names_and_types_the_columns_as_the_table_does(unit):
    source = unit.read_text()
    root = re.search(r"> root = \{([\d, ]+)\}", source)[1].replace(", ", ".")
    columns = re.findall(
        r"\.number = (\d+),\s*\.codec = Codec::(\w+),\s*\.field = field<decltype\(Row::(\w+)\)>", source)
    assert columns
    names = names_by_oid()
    assert names.get(root) == unit.stem, "the MIB does not have this table; scripts/draft-mib drafts it"
    served = {f"{root}.1.{number}": unit.stem.removesuffix("Table") + field.title().replace("_", "")
              for number, _, field in columns}
    assert {oid: name for oid, name in names.items() if re.fullmatch(rf"{root}\.1\.\d+", oid)} == {
        f"{root}.1.1": unit.stem.removesuffix("Table") + "Index", **served}
    for number, codec, _ in columns:
        definition = translate("-Td", f".{root}.1.{number}").stdout
        syntax = re.search(r"SYNTAX\s+(.*)", definition)[1]
        assert re.match(CODEC_SYNTAX[codec], syntax), f"column {number} is {codec}, not {syntax}"
