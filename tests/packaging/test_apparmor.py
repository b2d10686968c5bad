"""The AppArmor profile in a kernel that enforces it: what confined_by_apparmor.sh has the daemon do is not denied, and
what is forbidden is.

That kernel runs on a machine in QEMU, which takes minutes: TAVO_MACHINES=amd64 asks for it, as for test_machine.py.
"""

import os
import pathlib
import re
import subprocess

import pytest

from agents import BUILD, ROOT
from debian import files_of
from emulated_machine import MACHINE, require
from test_walk import cells, golden

pytestmark = pytest.mark.skipif("amd64" not in os.environ.get("TAVO_MACHINES", "").split(),
                                reason="a minute or more: TAVO_MACHINES=amd64 asks for it")
PROFILE = ROOT / "host/snmp-subagentd.apparmor"
SCRIPT = pathlib.Path(__file__).with_name("confined_by_apparmor.sh")


@pytest.fixture(scope="module")
def story(tmp_path_factory):
    """What the script prints: {heading: lines}."""
    require("amd64")
    apparmor = files_of("apparmor")
    image = tmp_path_factory.mktemp("image")
    subprocess.run(["cmake", "--install", BUILD, "--strip"], check=True, capture_output=True,
                   env={**os.environ, "DESTDIR": str(image)})
    run = subprocess.run([MACHINE, "--timeout", "1800", "--", SCRIPT, image, apparmor, PROFILE],
                         capture_output=True, text=True, check=False)
    assert run.returncode == 0, run.stdout[-4000:] + run.stderr
    headings = re.split(r"^== (.*)\n", run.stdout, flags=re.MULTILINE)
    return {heading: lines.splitlines() for heading, lines in zip(headings[1::2], headings[2::2])}


@pytest.mark.parametrize("how", ["behind a master", "on its own"])
def test_the_confined_daemon_serves_every_value(story, how):
    assert story[f"confinement {how}"] == ["snmp-subagentd (enforce)"]
    assert cells(story[f"walk {how}"]) == golden()


def test_nothing_of_the_daemons_work_is_denied(story):
    assert story["denied to the daemon"] == []


def test_what_is_forbidden_is_denied(story):
    denied = [re.search(r'profile="snmp-subagentd" name="([^"]*)".* requested_mask="(\w+)"', line).groups()
              for line in story["denied to a tool"]]
    assert denied == [("/etc/shadow", "r"), ("/usr/sbin/planted", "c")]
