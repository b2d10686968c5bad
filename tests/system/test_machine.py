"""Machines that boot a kernel of their own in QEMU and serve, not only programs that run.

TAVO_MACHINES names them, separated by blanks: amd64, armhf. An armhf machine serves build/armhf.
"""

import os
import re
import shutil
import subprocess
import time

import pytest

from agents import BUILD, ROOT
from server import SCENARIO
from test_walk import cells, golden

MACHINE = ROOT / "scripts/machine"
EMULATORS = {"amd64": "qemu-system-x86_64", "armhf": "qemu-system-arm"}
BUILDS = {"amd64": BUILD, "armhf": ROOT / "build/armhf"}


@pytest.fixture(params=EMULATORS)
def arch(request):
    if request.param not in os.environ.get("TAVO_MACHINES", "").split():
        pytest.skip(f"a minute or more: TAVO_MACHINES={request.param} asks for it")
    if not shutil.which(EMULATORS[request.param]):
        pytest.skip(f"{EMULATORS[request.param]} is missing: scripts/install-packages machine installs it")
    if not (BUILDS[request.param] / "snmp-subagentd").exists():
        pytest.skip(f"{BUILDS[request.param]} is not built")
    if subprocess.run([ROOT / "scripts/sysroot", "--bootable", request.param]).returncode != 0:
        pytest.skip("Debian's kernel cannot be had, see above")
    return request.param


def test_machine_passes_on_output_and_status(arch):
    run = subprocess.run([MACHINE, "--arch", arch, "--", "sh", "-c", "uname -s; id -u; echo '$1' >&2; exit 7"],
                         capture_output=True, text=True)
    assert (run.stdout, run.returncode) == ("Linux\n0\n$1\n", 7), run.stderr


def test_walk_on_a_machine_of_its_own(arch):
    still = BUILDS[arch] / "still.yaml"
    still.write_text(re.sub(r"drift: \d+", "drift: 0", SCENARIO.read_text()))
    switched_on = time.monotonic()
    with subprocess.Popen([MACHINE, "--arch", arch, "--", "tests/system/serve_and_walk.sh", BUILDS[arch], still],
                          stdout=subprocess.PIPE, text=True) as machine:
        lines = []
        for line in machine.stdout:
            if line == "the daemon answers\n":
                print(f"{arch}: {time.monotonic() - switched_on:.0f} s from power-on to the first answer")
            lines.append(line.rstrip("\n"))
    assert machine.returncode == 0, "\n".join(lines)
    *walk, memory = lines
    print(f"{arch}: {memory} KiB")
    assert cells(walk) == golden()
