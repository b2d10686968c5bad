"""What other programs make of the MIB modules: they read them without a complaint, and know every column.

A program that is not installed is not tested; pytest -rs says which.
"""
import json
import os
import random
import re
import shutil
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
MIBS = ROOT / "mibs"
NAMES = sorted(path.name for path in MIBS.iterdir() if path.is_file())
BUILD = Path(os.environ["TAVO_BUILD_DIR"])
TABLES = json.loads((BUILD / "tables.json").read_text())["tables"]
NET_SNMP_FOR_NODE = "net-snmp@3.29.2"


def run(*command, **settings):
    done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False, **settings)
    assert done.returncode == 0, done.stdout
    return done.stdout


def need(program, package):
    if shutil.which(program) is None:
        pytest.skip(f"{program} is missing (Debian package {package})")


@pytest.fixture(scope="module")
def node_modules():
    """A directory with the npm package net-snmp, fetched once per build tree."""
    need("node", "nodejs")
    place = BUILD / "npm"
    if not (place / "node_modules/net-snmp/index.js").exists():
        need("npm", "npm")
        place.mkdir(exist_ok=True)
        install = subprocess.run(["npm", "install", "--no-audit", "--no-fund", "--prefix", place, NET_SNMP_FOR_NODE],
                                 capture_output=True, text=True, check=False)
        if install.returncode != 0:
            pytest.skip(f"npm cannot fetch {NET_SNMP_FOR_NODE}: {install.stderr.strip().splitlines()[-1:]}")
    return place / "node_modules"


@pytest.mark.parametrize("form", ["json", "pysnmp"])
def test_pysmi_compiles_all_modules(form, tmp_path):
    need("mibdump", "python3-pysmi")
    # A borrower of its own, empty: it would ask a server for modules that it cannot compile.
    output = run("mibdump", f"--mib-source=file://{MIBS}", f"--mib-source=file://{MIBS / 'base'}",
                 "--generate-mib-texts", f"--mib-borrower=file://{tmp_path}/none", f"--destination-format={form}",
                 f"--destination-directory={tmp_path}", *NAMES)
    made = re.search(r"^Created/updated MIBs: (.*)$", output, re.MULTILINE)[1]
    assert sorted(made.split(", ")) == NAMES
    for trouble in ("Missing source", "Ignored", "Failed"):
        assert re.search(rf"^{trouble} MIBs: *$", output, re.MULTILINE), output
    assert "WARNING" not in output.upper()


READ_WITH_NODE = """
const snmp = require('net-snmp');
const [mibs, ...names] = process.argv.slice(1);
const store = snmp.createModuleStore();
for (const name of names) store.loadFromFile(`${mibs}/${name}`);
const tables = {};
for (const name of names) {
  for (const table of store.getProvidersForModule(name)) {
    if (table.tableName) tables[table.tableName] = table.tableColumns.filter(column => column.type).length;
  }
}
require('fs').writeFileSync(1, JSON.stringify(tables));
"""


@pytest.mark.parametrize("order", ["in order", "reversed", "shuffled"])
def test_net_snmp_for_node_reads_all_modules(order, node_modules):
    """In any order but one: as the package asks, what others import from comes first."""
    others = [name for name in NAMES if name != "TAVO-MIB"]
    if order == "reversed":
        others.reverse()
    elif order == "shuffled":
        random.shuffle(others)
    environment = {**os.environ, "NODE_PATH": str(node_modules)}
    # It complains on its standard output, which would then not be JSON.
    output = run("node", "-e", READ_WITH_NODE, MIBS, "TAVO-MIB", *others, env=environment)
    assert output.startswith("{"), (others, output)
    columns = json.loads(output)
    for table in TABLES:
        assert columns[table["name"]] == 1 + len(table["columns"]), table["name"]


def test_generator_of_the_snmp_exporter_knows_all(tmp_path):
    generator = "prometheus-snmp-generator"
    need(generator, "prometheus-snmp-exporter")
    environment = {**os.environ, "MIBDIRS": f"{MIBS}:{MIBS / 'base'}", "SNMP_PERSISTENT_DIR": str(tmp_path)}
    (tmp_path / "cert_indexes").mkdir()
    (tmp_path / "generator.yml").write_text("modules: {all: {walk: [tavoServerMib, system]}}\n")
    check = run(generator, "--fail-on-parse-errors", "parse_errors", cwd=tmp_path, env=environment)
    generated = run(generator, "--fail-on-parse-errors", "generate", cwd=tmp_path, env=environment)
    for output in (check, generated):
        assert re.findall(r".*level=(?!info).*|.*not found.*|.*cannot.*", output, re.IGNORECASE) == []
    metrics = re.findall(r"^  - name: (\w+)$", (tmp_path / "snmp.yml").read_text(), re.MULTILINE)
    columns = {table["name"].removesuffix("Table") + "".join(word.capitalize() for word in column["name"].split("_"))
               for table in TABLES for column in table["columns"] if column["codec"] != "ObjectIdentifier"}
    assert columns - set(metrics) == set()
    assert {"sysDescr", "sysUpTime", "sysName"} <= set(metrics)


def test_the_start_of_a_notification_has_names():
    for name, oid in {"SNMPv2-MIB::sysUpTime.0": ".1.3.6.1.2.1.1.3.0",
                      "SNMPv2-MIB::snmpTrapOID.0": ".1.3.6.1.6.3.1.1.4.1.0",
                      "SNMPv2-MIB::snmpTrapEnterprise.0": ".1.3.6.1.6.3.1.1.4.3.0",
                      "SNMPv2-MIB::warmStart": ".1.3.6.1.6.3.1.1.5.2",
                      "SNMPv2-MIB::sysObjectID.0": ".1.3.6.1.2.1.1.2.0"}.items():
        assert run("snmptranslate", "-M", f"{MIBS}:{MIBS / 'base'}", "-m", "ALL", oid).strip() == name
