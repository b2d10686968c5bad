"""module/check-exports compares a list of exports with what an object file offers, and names each difference."""

import os
import pathlib
import subprocess

import pytest

CHECK_EXPORTS = pathlib.Path(__file__).resolve().parents[2] / "module" / "check-exports"
SOURCE = """
#pragma GCC visibility push(hidden)
#pragma GCC visibility push(default)
extern "C" int counter;
int counter = 1;
extern "C" void reset() { counter = 0; }
extern "C" void imported();
extern "C" void import() { imported(); }
#pragma GCC visibility pop
extern "C" void internal() {}
#pragma GCC visibility pop
"""
OFFERED = ["D counter", "F import", "F reset"]


@pytest.fixture(name="check", scope="module")
def fixture_check(tmp_path_factory):
    """Runs the check of a list against an object that offers OFFERED."""
    directory = tmp_path_factory.mktemp("exports")
    source = directory / "sample.cpp"
    source.write_text(SOURCE)
    subprocess.run([os.environ["CXX"], "-c", source, "-o", directory / "sample.o"], check=True)
    listed = directory / "exports.txt"

    def run(lines):
        listed.write_text("".join(f"{line}\n" for line in lines))
        command = [CHECK_EXPORTS, listed, directory / "sample.o"]
        return subprocess.run(command, capture_output=True, text=True, check=False)

    return run


def test_an_exact_list_passes(check):
    run = check(OFFERED)
    assert (run.returncode, run.stderr) == (0, "")


def test_a_missing_name_is_named(check):
    run = check(["D counter", "F import"])
    assert run.returncode == 1
    assert run.stderr.splitlines()[1:] == ["F reset"]
    assert "lacks" in run.stderr


def test_a_stale_name_is_named(check):
    run = check([*OFFERED, "F retired"])
    assert run.returncode == 1
    assert run.stderr.splitlines()[1:] == ["F retired"]
    assert "no source defines" in run.stderr


@pytest.mark.parametrize("name", ["internal", "imported"])
def test_a_name_not_offered_is_stale(check, name):
    run = check([*OFFERED, f"F {name}"])
    assert run.returncode == 1
    assert run.stderr.splitlines()[1:] == [f"F {name}"]


def test_a_name_of_the_wrong_kind_is_named_twice(check):
    run = check(["F counter", "F import", "F reset"])
    assert run.returncode == 1
    assert "D counter" in run.stderr.splitlines()
    assert "F counter" in run.stderr.splitlines()
