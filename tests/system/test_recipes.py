"""The recipes for a table and for a column, followed in a copy of the tree, and served by the daemon.

Commands and code come from docs/recipes.md. While the copy is built it is mounted over the tree, so the objects of the
build under test, which are copied with it, are up to date there: only what the recipes add or change is compiled.
"""

import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import tempfile
import textwrap

import pytest

from agents import BUILD, ROOT, snmp, wait_until
from oids import OBJECTS, PROCESSOR_TABLE
from server import ServedDaemon, Server

RECIPES = (ROOT / "docs/recipes.md").read_text()
LED_TABLE = f"{OBJECTS}.15.116"
LED_STATES = f"{LED_TABLE}.1.6"
SKELETON = ["tavoEquipmentSpareTable", "--group", "equipment", "--oid", "15.117", "--lock", "107", "--header"]
SKELETON_TABLE = f"{OBJECTS}.15.117"
NEW_TABLES = ["tavoEquipmentLedTable", "tavoEquipmentSpareTable"]
SPEED = 45


def code(section, language):
    """The blocks in this language below the heading."""
    text = re.search(rf"^## {section}\n(.*?)(?=^## |\Z)", RECIPES, re.MULTILINE | re.DOTALL)[1]
    blocks = re.findall(rf"^( *)```{language}\n(.*?)^\1```$", text, re.MULTILINE | re.DOTALL)
    assert blocks, f"no {language} below {section}"
    return [textwrap.dedent(block) for _, block in blocks]


def apply_diff(root, diff):
    """Each change begins with @@ and has no line numbers: what stood before must be in the file exactly once."""
    for path, changes in re.findall(r"^--- (\S+)\n(.*?)(?=^--- |\Z)", diff, re.MULTILINE | re.DOTALL):
        text = (root / path).read_text()
        for change in changes.split("@@\n")[1:]:
            lines = change.splitlines(keepends=True)
            before, after = ("".join(line[1:] or "\n" for line in lines if not line.startswith(skipped))
                             for skipped in "+-")
            assert text.count(before) == 1, f"{path} has not one place for this change:\n{change}"
            text = text.replace(before, after)
        (root / path).write_text(text)


class Copy:
    """A copy of the tree, and of what the module's build takes."""

    def __init__(self, root):
        self.root = root
        self.build = root / BUILD.relative_to(ROOT)
        shutil.copytree(ROOT, root, symlinks=True,
                        ignore=lambda place, _: ["build", ".git"] if place == str(ROOT) else [])
        shutil.copytree(BUILD, self.build, symlinks=True,
                        ignore=shutil.ignore_patterns("unit", "unit_tests", "host", "simulator", "test-modules"))

    def run(self, *command, **settings):
        result = subprocess.run([str(word) for word in command], cwd=self.root, capture_output=True, text=True,
                                env={**os.environ, "TAVO_BUILD_DIR": str(self.build)}, check=False, **settings)
        assert result.returncode == 0, result.stdout + result.stderr
        return result.stdout

    def run_in_place(self, *command):
        """Runs the command in a namespace where the copy has the tree's name."""
        mounted = 'mount --bind "$1" "$2" && cd "$2" && shift 2 && exec "$@"'
        as_root = [] if os.geteuid() == 0 else ["--map-root-user"]
        return self.run("unshare", "--mount", *as_root, "sh", "-c", mounted, "sh", self.root, ROOT, *command)

    def add_to_mib(self, table):
        draft = re.sub(r"TODO ?", "A description.", self.run("scripts/draft-mib", table))
        module = self.root / "mibs/TAVO-EQUIPMENT-MIB"
        text = re.sub(r"\nEND\n$", lambda end: f"{draft}{end[0]}", module.read_text())
        [group] = re.findall(r"^-- In MANDATORY-GROUPS:\n-- +(\w+)$", draft, re.MULTILINE)
        module.write_text(re.sub(r"MANDATORY-GROUPS {", rf"\g<0>\n            {group},", text))


@pytest.fixture(scope="module")
def directory():
    path = pathlib.Path(tempfile.mkdtemp(prefix="tavo-"))
    yield path
    shutil.rmtree(path)  # pytest would keep the copies of three runs


@pytest.fixture(scope="module")
def copy(directory):
    """A copy of the tree with a table by the recipe, one that is left a skeleton, and a column by the recipe, built."""
    copy = Copy(directory / "tree")
    [new_table] = code("Adding a table", "sh")
    copy.run(*shlex.split(new_table))
    copy.run("scripts/new-table", *SKELETON)
    [unit] = code("Adding a table", "cpp")
    (copy.root / "tables/equipment/tavoEquipmentLedTable.cpp").write_text(unit)
    for diff in code("Adding a column", "diff"):
        apply_diff(copy.root, diff)
    copy.run_in_place("cmake", "--build", BUILD, "--target", "snmpextmibmodule")
    for table in NEW_TABLES:
        copy.add_to_mib(table)
    return copy


@pytest.fixture(scope="module")
def server(directory):
    server = Server(directory)
    yield server
    server.stop()


@pytest.fixture(scope="module")
def daemon(directory, server, copy):
    daemon = ServedDaemon(directory, server, speed=SPEED, module=copy.build / "libsnmpextmibmodule.so")
    yield daemon
    daemon.stop()
    print(f"--- end of the daemon's log ---\n{daemon.log()[-2000:]}")


def walked(daemon, subtree):
    """{the cell's OID below the subtree: its value}"""
    cells = (re.fullmatch(rf"\.{re.escape(subtree)}\.([\d.]+) = (.*)", line)
             for line in snmp("snmpbulkwalk", daemon.address, subtree, timeout=30))
    return dict(cell.groups() for cell in cells if cell)


def test_table_serves_its_rows(daemon):
    assert walked(daemon, f"{LED_TABLE}.1") == {
        f"{column}.{row}": value for column, values in {
            2: [f'STRING: "sys/rack-unit-1/led-{row}"' for row in range(1, 5)],
            3: [f'STRING: "led-{row}"' for row in range(1, 5)],
            4: [f"Gauge32: {row}" for row in range(1, 5)],
            5: [f'STRING: "LED_{name}"' for name in ("POWER", "HLTH_STATUS", "LOCATE", "FANS")],
            6: [f'STRING: "{state}"' for state in ("ON", "ON", "OFF", "SLOW BLINK")],
        }.items() for row, value in enumerate(values, 1)}


def test_table_is_rebuilt_periodically(daemon, server):
    server.ctl("led", "set", "LED_POWER", "state=FAST BLINK")
    wait_until(lambda: walked(daemon, LED_STATES).get("1") == 'STRING: "FAST BLINK"', what="the LED's new state")
    assert len(walked(daemon, LED_STATES)) == 4


def test_table_has_a_lock_of_its_own(copy):
    tables = json.loads((copy.build / "tables.json").read_text())["tables"]
    locks = [table["lock"] for table in tables]
    for name, lock in zip(NEW_TABLES, ["ev 106", "ev 107"]):
        assert next(table["lock"] for table in tables if table["name"] == name) == lock
        assert locks.count(lock) == 1


def test_skeleton_serves_its_placeholder(daemon):
    assert walked(daemon, f"{SKELETON_TABLE}.1") == {
        "2.1": 'STRING: "sys/rack-unit-1/placeholder-1"', "3.1": 'STRING: "placeholder-1"'}


def test_column_is_served(daemon):
    assert walked(daemon, f"{PROCESSOR_TABLE}.1.23") == {"1": 'STRING: "Enabled"', "2": 'STRING: "Enabled"'}


def test_mib_passes_its_tests(copy):
    touched = [*NEW_TABLES, "tavoProcessorUnitTable", "EQUIPMENT", "PROCESSOR", "complaint"]
    tests = copy.run("/usr/bin/python3", "-m", "pytest", "-q", "-p", "no:cacheprovider", "tests/mibs", "-k",
                     " or ".join(touched))
    assert int(re.search(r"(\d+) passed", tests)[1]) >= len(touched)


def test_new_files_are_well_formatted(copy):
    new = [path for path in copy.root.glob("t*/**/tavoEquipment*.*") if not (ROOT / path.relative_to(copy.root)).exists()]
    assert len(new) == 5
    copy.run("clang-format", "--dry-run", "-Werror", *new)


@pytest.mark.parametrize("table", NEW_TABLES)
def test_skeleton_of_the_unit_test_compiles(copy, table):
    test = ROOT / f"tests/unit/tables/equipment/{table}_test.cpp"
    commands = json.loads((copy.build / "compile_commands.json").read_text())
    command = next(shlex.split(entry["command"]) for entry in commands if entry["file"] == str(test))
    # Without the precompiled header, which takes longer than the test.
    options = [word for word in command if re.match(r"-(I|D|W|std)", word) and word != "-Winvalid-pch"]
    copy.run_in_place("c++", *options, "-include", "gmock/gmock.h", "-fsyntax-only", test)


def new_table(copy, *arguments):
    command = [copy.root / "scripts/new-table", *arguments]
    return subprocess.run(command, capture_output=True, text=True, check=False)


NAME, GROUP, OID, LOCK = "tavoEquipmentOtherTable", "equipment", "15.118", "108"


BAD_INPUT = [
    ("EquipmentOtherTable", GROUP, OID, LOCK, "begins with tavo"),
    ("tavoequipmentTable", GROUP, OID, LOCK, "begins with tavo and a capital letter"),
    ("tavoEquipmentOther", GROUP, OID, LOCK, "ends with Table"),
    ("tavoEquipmentFanTable", GROUP, OID, LOCK, "is defined by tavoEquipmentFanTable"),
    ("tavoHealthLedTable", GROUP, OID, LOCK, "HealthLedRow, is defined by tavoEquipmentHealthLedTable"),
    (NAME, "gadgets", OID, LOCK, "tables/gadgets is not a directory"),
    (NAME, GROUP, "15", LOCK, "'15' is not an OID"),
    (NAME, GROUP, "15.0", LOCK, "'15.0' is not an OID"),
    (NAME, GROUP, "15.4294967296", LOCK, "is not an OID"),
    (NAME, GROUP, "15.12", LOCK, "the OID 15.12 belongs to tavoEquipmentFanTable"),
    (NAME, GROUP, "15.117", LOCK, "the OID 15.117 belongs to tavoEquipmentSpareTable"),
    (NAME, GROUP, OID, "0", "'0' is not a class number"),
    (NAME, GROUP, OID, "41", "the ev lock 41 belongs to tavoProcessorUnitTable"),
    (NAME, GROUP, OID, "106", "the ev lock 106 belongs to tavoEquipmentLedTable"),
]


@pytest.mark.parametrize("name, group, oid, lock, complaint", BAD_INPUT, ids=range(len(BAD_INPUT)))
def test_bad_input_is_refused(copy, name, group, oid, lock, complaint):
    lists = [copy.root / "module/start_up.def", copy.root / "module/exports.txt"]
    before = [path.read_text() for path in lists]
    result = new_table(copy, name, "--group", group, "--oid", oid, "--lock", lock)
    assert result.returncode == 1
    assert result.stderr.startswith("new-table: ") and complaint in result.stderr
    assert [path.read_text() for path in lists] == before
    assert not list(copy.root.glob(f"tables/*/{NAME}*"))


def test_existing_file_is_not_overwritten(copy):
    test = copy.root / f"tests/unit/tables/equipment/{NAME}_test.cpp"
    test.write_text("mine")
    result = new_table(copy, NAME, "--group", GROUP, "--oid", OID, "--lock", LOCK)
    assert result.returncode == 1
    assert "exists already" in result.stderr
    assert test.read_text() == "mine"
    assert not list(copy.root.glob(f"tables/*/{NAME}*"))
