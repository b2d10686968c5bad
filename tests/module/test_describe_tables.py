"""describe_tables describes tables without mistakes, and refuses each mistake, naming the table and what to do."""

import json
import os
import subprocess

import pytest


def describe(flaw, path):
    return subprocess.run(
        [os.environ["FLAWED_TABLES"], path], env={**os.environ, "FLAW": flaw}, capture_output=True, text=True, check=False
    )


def test_tables_without_a_flaw_are_described(tmp_path):
    path = tmp_path / "tables.json"
    run = describe("none", path)
    assert (run.returncode, run.stderr) == (0, "")
    first, second = json.loads(path.read_text())["tables"]
    assert first == {
        "name": "firstTable",
        "oid": "1.3.6.1.4.1.61453.4.207.1.200.1",
        "lock": "ev 201",
        "source": "own",
        "builds_at_start": False,
        "refresh": [],
        "columns": [
            {"number": 2, "name": "number", "codec": "Integer", "capacity": 1},
            {"number": 3, "name": "name", "codec": "Text", "capacity": 8},
        ],
    }
    assert second["name"] == "secondTable"


@pytest.mark.parametrize(
    "flaw, table, complaint",
    [
        ("one OID", "secondTable", "has the OID of firstTable"),
        ("one ev lock", "secondTable", "has the ev lock of firstTable"),
        ("first table undefined", "tavoFaultTable", "no unit defines it"),
        ("second table unlisted", "secondTable", "no line in module/start_up.def"),
        ("name without columns", "thirdTable", "TAVO_COLUMNS names another table"),
        ("columns of another count", "secondTable", "the description has other columns"),
        ("shared source, ev lock", "secondTable", "storage_lock has to guard it"),
        ("shared source, fault list's lock", "secondTable", "storage_lock has to guard it"),
        ("shared source, no builder", "secondTable", "needs a builder"),
        ("shared source, refresh rule", "secondTable", "can have no refresh rule"),
        ("refresh rule, no builder", "secondTable", "refresh rule but no builder"),
        ("refresh rule, subagent lock, no builder", "secondTable", "refresh rule but no builder"),
        ("refresh rule without a place", "secondTable", "place is below 1"),
        ("refresh rule for storage", "secondTable", "name the storage snapshot as its source"),
    ],
)
def test_a_flaw_is_refused(tmp_path, flaw, table, complaint):
    path = tmp_path / "tables.json"
    run = describe(flaw, path)
    assert run.returncode == 1
    assert run.stderr.startswith(f"describe_tables: {table}: ")
    assert complaint in run.stderr
    assert not path.exists()


def test_an_unwritable_file_is_refused(tmp_path):
    run = describe("none", tmp_path / "missing" / "tables.json")
    assert run.returncode == 1
    assert "cannot be written" in run.stderr


def test_a_missing_argument_is_refused():
    run = subprocess.run([os.environ["FLAWED_TABLES"]], capture_output=True, text=True, check=False)
    assert run.returncode == 2
    assert "usage" in run.stderr
