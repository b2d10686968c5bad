"""The recipes of docs/testing-a-manager.md, run as they stand: with another port, and in a directory of their own."""

import re
import subprocess

import pytest

from agents import ROOT, free_port
from documents import recipe, titles

DOCUMENT = "testing-a-manager.md"
FRAME = ["start", "functions", "stop"]
# These boot servers of their own.
ALONE = ["one command", "another engine", "an empty server"]


class Job:
    """A job that has run.sh and mibs/ in its directory."""

    def __init__(self, directory):
        self._directory = directory
        self._port = str(free_port())
        (directory / "run.sh").symlink_to(ROOT / "run.sh")
        (directory / "mibs").symlink_to(ROOT / "mibs")

    def run(self, text):
        script = text.replace("20161", self._port).replace("./run.sh", str(ROOT / "run.sh"))
        return subprocess.run(["bash", "-e", "-c", script], cwd=self._directory, capture_output=True, text=True,
                              timeout=120, check=False)

    def must_run(self, text):
        done = self.run(text)
        assert done.returncode == 0, done.stdout + done.stderr


@pytest.fixture(scope="module")
def served(tmp_path_factory):
    job = Job(tmp_path_factory.mktemp("m"))
    job.must_run(recipe(DOCUMENT, "start"))
    yield job
    job.must_run(recipe(DOCUMENT, "stop"))


@pytest.mark.parametrize("title", [title for title in titles(DOCUMENT) if title not in FRAME + ALONE])
def test_recipe_works(served, title):
    served.must_run("\n".join([recipe(DOCUMENT, "functions"), "set -x", recipe(DOCUMENT, title)]))


@pytest.mark.parametrize("title", ALONE)
def test_recipe_with_its_own_server_works(tmp_path, title):
    Job(tmp_path).must_run(f"set -x\n{recipe(DOCUMENT, title)}")


def test_recipe_that_does_not_hold_fails(served):
    done = served.run(recipe(DOCUMENT, "functions") + "\ngives tavoProcessorUnitModel.1 another\n")
    assert done.returncode == 1


def test_commands_that_break_a_part_work(served):
    """The last test of the server: it breaks everything."""
    text = (ROOT / "docs" / DOCUMENT).read_text()
    rows = re.search(r"^\| Command \| What a manager .*?\n\n", text, re.MULTILINE | re.DOTALL)[0]
    commands = [command for row in rows.splitlines()[2:] for command in re.findall("`(.*?)`", row.split(" | ")[0])]
    assert len(commands) > 15
    for command in commands:
        served.must_run(f"{recipe(DOCUMENT, 'functions')}\non_server 'bmcsim ctl {command}'")
