"""The scripts around the build: what they install and when, and the words that they refuse."""

import os
import shutil
import subprocess

import pytest

from agents import ROOT

INSTALL = ROOT / "scripts/install-packages"


@pytest.fixture
def machine(directory):
    """A machine made of a few programs; what is asked of apt-get is in the file `asked`."""
    programs = directory / "bin"
    programs.mkdir()
    for name in ["bash", "env", "mktemp", "rm", "cat"]:
        (programs / name).symlink_to(shutil.which(name))

    class Machine:
        asked = directory / "asked"

        def program(self, name, body):
            (programs / name).write_text(f"#!/bin/bash\n{body}\n")
            (programs / name).chmod(0o755)

        def install(self, kind, *prefix):
            return subprocess.run([*prefix, INSTALL, kind], env={"PATH": str(programs)}, capture_output=True, text=True,
                                  check=False)

    machine = Machine()
    machine.program("apt-get", f'echo "$*" >> {machine.asked}')
    return machine


def test_nothing_is_asked_or_said_when_all_packages_are_there(machine):
    machine.program("dpkg-query", 'for package in "${@:4}"; do echo "$package installed"; done')
    result = machine.install("test")
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")
    assert not machine.asked.exists()


@pytest.mark.skipif(os.geteuid() != 0, reason="installing for others asks sudo, which is tested below")
def test_only_what_is_missing_is_installed_and_named(machine):
    machine.program("dpkg-query", 'for package in "${@:4}"; do case $package in cmake) ;; faketime) echo '
                    '"faketime config-files" ;; *) echo "$package installed" ;; esac; done; exit 1')
    result = machine.install("run")
    assert (result.returncode, result.stderr) == (0, "Installing cmake faketime\n")
    update, install = machine.asked.read_text().splitlines()
    assert update.endswith("update")
    assert install.endswith("install --yes --no-install-recommends cmake faketime")


@pytest.mark.skipif(os.geteuid() != 0, reason="installing for others asks sudo, which is tested below")
def test_failed_installation_shows_what_apt_said(machine):
    machine.program("dpkg-query", "exit 1")
    machine.program("apt-get", 'echo "no space left"; exit 100')
    result = machine.install("run")
    assert result.returncode == 1
    assert "no space left" in result.stderr
    assert "Not all packages could be installed" in result.stderr


def test_ordinary_user_without_sudo_is_told_what_to_do(machine, directory):
    machine.program("dpkg-query", "exit 1")
    directory.chmod(0o755)
    prefix = [shutil.which("setpriv"), "--reuid", "65534", "--clear-groups"] if os.geteuid() == 0 else []
    if prefix and subprocess.run([*prefix, "test", "-x", INSTALL], check=False).returncode != 0:
        pytest.skip(f"nobody may not read {ROOT}")
    result = machine.install("run", *prefix)
    assert result.returncode == 1
    assert "takes root or sudo" in result.stderr
    assert "apt-get install --no-install-recommends g++ cmake" in result.stderr
    assert not machine.asked.exists()


def test_machine_that_is_no_debian_is_told_what_is_needed(machine):
    result = machine.install("run")
    assert result.returncode == 1
    assert "needs Debian 12" in result.stderr


@pytest.mark.parametrize("arguments, complaint", [
    (["--preset", "fast"], "--preset takes"),
    (["--preset"], "--preset takes"),
    (["--all"], "unknown option '--all'"),
])
def test_wrong_words_to_test_sh_are_named(arguments, complaint):
    result = subprocess.run([ROOT / "test.sh", *arguments], capture_output=True, text=True, timeout=30, check=False)
    assert result.returncode == 2
    assert complaint in result.stderr


def test_continuous_integration_runs_test_sh_and_nothing_else():
    lines = [line for line in (ROOT / ".ci/run").read_text().splitlines() if line and not line.startswith("#")]
    assert lines == ['exec "$(dirname "${BASH_SOURCE[0]}")/../test.sh"']
