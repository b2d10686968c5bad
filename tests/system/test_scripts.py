"""scripts/install-packages, debian_programs.py, the options of test.sh, fuzz and build, and the entry point of CI."""

import os
import pathlib
import re
import shutil
import signal
import subprocess

import pytest

from agents import ROOT, wait_until
from debian import debian_programs

INSTALL = ROOT / "scripts/install-packages"
SCRIPTS = [ROOT / "run.sh", ROOT / "test.sh", ROOT / "simulator/boot",
           *(path for path in sorted((ROOT / "scripts").iterdir()) if path.is_file() and os.access(path, os.X_OK))]


@pytest.fixture
def machine(directory):
    """A machine with a few programs only. The arguments of each apt-get call are a line in the file `apt_calls`."""
    programs = directory / "bin"
    programs.mkdir()
    for name in ["bash", "env", "mktemp", "rm", "cat"]:
        (programs / name).symlink_to(shutil.which(name))

    class Machine:
        apt_calls = directory / "apt-calls"

        def add_program(self, name, body):
            (programs / name).write_text(f"#!/bin/bash\n{body}\n")
            (programs / name).chmod(0o755)

        def install(self, kind, *prefix):
            return subprocess.run([*prefix, INSTALL, kind], env={"PATH": str(programs)}, capture_output=True, text=True,
                                  check=False)

    machine = Machine()
    machine.add_program("apt-get", f'echo "$*" >> {machine.apt_calls}')
    return machine


def test_nothing_is_done_if_all_packages_are_there(machine):
    machine.add_program("dpkg-query", 'for package in "${@:4}"; do echo "$package installed"; done')
    result = machine.install("test")
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")
    assert not machine.apt_calls.exists()


@pytest.mark.skipif(os.geteuid() != 0, reason="an ordinary user needs sudo, which is tested below")
def test_only_missing_packages_are_installed(machine):
    machine.add_program("dpkg-query", 'for package in "${@:4}"; do case $package in cmake) ;; faketime) echo '
                    '"faketime config-files" ;; *) echo "$package installed" ;; esac; done; exit 1')
    result = machine.install("run")
    assert (result.returncode, result.stderr) == (0, "Installing cmake faketime\n")
    update, install = machine.apt_calls.read_text().splitlines()
    assert update.endswith("update")
    assert install.endswith("install --yes --no-install-recommends cmake faketime")


@pytest.mark.skipif(os.geteuid() != 0, reason="an ordinary user needs sudo, which is tested below")
def test_failed_installation_shows_apts_output(machine):
    machine.add_program("dpkg-query", "exit 1")
    machine.add_program("apt-get", 'echo "no space left"; exit 100')
    result = machine.install("run")
    assert result.returncode == 1
    assert "no space left" in result.stderr
    assert "Not all packages could be installed" in result.stderr


def test_user_without_sudo_is_shown_the_command(machine, directory):
    machine.add_program("dpkg-query", "exit 1")
    directory.chmod(0o755)
    prefix = [shutil.which("setpriv"), "--reuid", "65534", "--clear-groups"] if os.geteuid() == 0 else []
    if prefix and subprocess.run([*prefix, "test", "-x", INSTALL], check=False).returncode != 0:
        pytest.skip(f"user nobody cannot read {ROOT}")
    result = machine.install("run", *prefix)
    assert result.returncode == 1
    assert "takes root or sudo" in result.stderr
    assert "apt-get install --no-install-recommends g++ cmake" in result.stderr
    assert not machine.apt_calls.exists()


def test_other_system_is_refused(machine):
    result = machine.install("run")
    assert result.returncode == 1
    assert "needs Debian 12" in result.stderr


@pytest.mark.parametrize("arguments, complaint", [
    (["--preset", "fast"], "--preset takes"),
    (["--preset"], "--preset takes"),
    (["--all"], "unknown option '--all'"),
])
def test_wrong_options_of_test_sh_are_named(arguments, complaint):
    result = subprocess.run([ROOT / "test.sh", *arguments], capture_output=True, text=True, timeout=30, check=False)
    assert result.returncode == 2
    assert complaint in result.stderr


@pytest.mark.parametrize("arguments, complaint", [
    (["--seconds", "many"], "--seconds takes a number"),
    (["--all"], "unknown option '--all'"),
    (["front_door"], "there is no door 'front_door'; there are"),
])
def test_wrong_options_of_fuzz_are_named(arguments, complaint):
    result = subprocess.run([ROOT / "scripts/fuzz", *arguments], capture_output=True, text=True, timeout=30,
                            check=False)
    assert result.returncode == 2
    assert complaint in result.stderr


@pytest.mark.parametrize("arguments", [[], ["--with-tests", "release"]], ids=str)
def test_build_asks_for_a_preset(arguments):
    result = subprocess.run([ROOT / "scripts/build", *arguments], capture_output=True, text=True, timeout=30,
                            check=False)
    assert (result.returncode, result.stdout) == (2, "")
    assert result.stderr.startswith("usage: scripts/build PRESET")


def ask(command, seconds=60):
    """Runs a script that should end soon. If it does not, whatever it has started is killed with it."""
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                          start_new_session=True) as process:
        try:
            printed, complaint = process.communicate(timeout=seconds)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            raise
    return subprocess.CompletedProcess(command, process.returncode, printed, complaint)


def test_what_a_late_script_started_is_killed(directory):
    started = directory / "started"
    with pytest.raises(subprocess.TimeoutExpired):
        ask(["bash", "-c", f"sleep 600 & echo $! > {started}.new; mv {started}.new {started}; wait"], seconds=2)
    status = pathlib.Path(f"/proc/{int(started.read_text())}/status")
    wait_until(lambda: not status.exists() or "\nState:\tZ" in status.read_text(), 5, "the program's end")


@pytest.mark.parametrize("script", SCRIPTS, ids=lambda script: script.name)
def test_every_script_explains_itself(script):
    """And does nothing of what it is for when it is asked wrongly."""
    helped = ask([script, "--help"])
    assert (helped.returncode, helped.stderr) == (0, "")
    assert script.name in helped.stdout.splitlines()[0]
    refused = ask([script, "--no-such-option"])
    assert (refused.returncode, refused.stdout) == (2, "")
    assert refused.stderr


def test_every_door_is_documented():
    doors = subprocess.run([ROOT / "scripts/fuzz", "--list"], capture_output=True, text=True, check=True).stdout.split()
    documented = re.findall(r"^\| `(\w+)` \|", (ROOT / "docs/fuzzing.md").read_text(), re.MULTILINE)
    assert documented == 2 * sorted(doors), "what comes in there, and what has been tried"
    assert sorted(path.name for path in (ROOT / "fuzz/corpus").iterdir()) == sorted(doors)


def test_ci_runs_test_sh_and_nothing_else():
    lines = [line for line in (ROOT / ".ci/run").read_text().splitlines() if line and not line.startswith("#")]
    assert lines == ['exec "$(dirname "${BASH_SOURCE[0]}")/../test.sh"']


@pytest.fixture
def find(machine, directory, monkeypatch):
    """find(PROGRAM, PACKAGE) on that machine; its build tree is in the test's directory."""
    monkeypatch.setenv("PATH", str(directory / "bin"))
    return lambda program, package: debian_programs.find(program, package, directory)


def test_a_missing_program_is_unpacked_once(machine, find, directory):
    machine.add_program("apt-get", f'[[ $1 == download ]] || exit 1; echo "$*" >> {machine.apt_calls}; : > hello_1.deb')
    machine.add_program("dpkg", '/bin/mkdir -p "$3/usr/bin"; : > "$3/usr/bin/greet"; /bin/chmod +x "$3/usr/bin/greet"')
    assert find("greet", "hello") == find("greet", "hello") == f"{directory}/debian/hello/usr/bin/greet"
    assert machine.apt_calls.read_text() == "download -q hello\n"


def test_a_package_that_lacks_the_program_is_named(machine, find):
    machine.add_program("apt-get", ": > hello_1.deb")
    machine.add_program("dpkg", "")
    with pytest.raises(debian_programs.Missing, match="greet is missing, and not in the package hello"):
        find("greet", "hello")


def test_a_package_that_cannot_be_fetched_is_named(machine, find):
    machine.add_program("apt-get", 'echo "E: no network" >&2; exit 100')
    with pytest.raises(debian_programs.Missing, match="hello cannot be fetched: E: no network"):
        find("greet", "hello")
