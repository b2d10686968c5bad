"""Machines with a bare Debian 12 and its own systemd, on which packages are installed."""

import os
import pathlib
import shlex
import shutil
import signal
import subprocess
import tempfile
import time

import pytest

from agents import BUILD, ROOT, wait_until
from broken_world import can_become_others
from emulated_machine import EmulatedMachine, require
from server import descendant

HERE = pathlib.Path(__file__).parent
# Unpacked for each machine; removed with the build tree.
BASE = BUILD / "debian/bookworm.tar"
# What comes and goes with any package.
BOOKKEEPING = ("var/lib/dpkg", "var/lib/apt", "var/cache", "var/log", "etc/ld.so.cache", "var/lib/systemd",
               "var/tmp")
NET_SNMP = ("snmp", "snmpd", "snmptrapd")
# Where the packages are put on the machine.
PACKAGES = "/srv/packages"


def base():
    """The tar file of a Debian with systemd and no more."""
    if not BASE.exists():
        BASE.parent.mkdir(parents=True, exist_ok=True)
        partial = BASE.with_suffix(".partial.tar")
        command = ["mmdebstrap", "--variant=minbase", "--include=systemd,systemd-sysv", "bookworm", partial]
        made = subprocess.run(command, capture_output=True, text=True, check=False)
        if made.returncode != 0:
            pytest.skip(f"no Debian can be fetched: {made.stderr.strip().splitlines()[-1:]}")
        partial.rename(BASE)
    return BASE


def remove_group(group):
    """Removes a control group and those in it. False while there are processes in one."""
    try:
        for place, _, _ in os.walk(group, topdown=False):
            os.rmdir(place)
    except OSError:
        return False
    return True


class Debian:
    """A Debian that boots with its own systemd. How it runs a command is up to the kind of machine."""

    # How many times as long as here everything may take.
    slowness = 1

    def run(self, *command, check=True):
        """Runs a command on the machine, as root."""
        words = ["env", "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                 "DEBIAN_FRONTEND=noninteractive", "MIBS=", *map(str, command)]
        result = self._run(words)
        if check and result.returncode != 0:
            raise AssertionError(f"{command} exited with {result.returncode}: {result.stdout}{result.stderr}")
        return result

    def install(self, *packages):
        """Installs packages: files of this machine, or names of such as the machine has."""
        files = [package for package in packages if isinstance(package, pathlib.Path)]
        self.copy(files, PACKAGES)
        wanted = [f"{PACKAGES}/{package.name}" if package in files else package for package in packages]
        self.run("apt-get", "-qq", "install", "--yes", "--no-install-recommends", *wanted)

    def wait_for_boot(self):
        # A unit of Debian that failed, since it may not do here what it does on a real machine, is no matter.
        booted = ("running\n", "degraded\n")
        wait_until(lambda: self.run("systemctl", "is-system-running", check=False).stdout in booted,
                   120 * self.slowness, "the boot")
        self.seconds_to_boot = time.monotonic() - self._switched_on

    def read(self, path):
        return self.run("cat", path).stdout

    def unit(self, *names, of="snmp-subagentd.service"):
        """The values of a unit's properties."""
        shown = self.run("systemctl", "show", *(f"--property={name}" for name in names), of).stdout
        values = dict(line.split("=", 1) for line in shown.splitlines())
        return [values[name] for name in names]

    def log(self, unit="snmp-subagentd.service"):
        return self.run("journalctl", "--quiet", "--output=cat", f"--unit={unit}").stdout

    def files(self):
        """Everything on the machine's disk, but for the books of dpkg, apt and systemd."""
        found = self.run("find", "/", "-xdev", "-printf", "%P\\0").stdout.split("\0")
        return {name for name in found if not name.startswith(BOOKKEEPING)}


class ContainedDebian(Debian):
    """A bare Debian 12 in namespaces on this machine. Needs root."""

    def __init__(self, directory):
        if not can_become_others():
            pytest.skip("needs root, to boot a Debian")
        if shutil.which("mmdebstrap") is None:
            pytest.skip("mmdebstrap is not installed (scripts/install-packages packaging)")
        self.root = pathlib.Path(directory) / "debian"
        self.root.mkdir(mode=0o755)
        subprocess.run(["tar", "-C", self.root, "-xf", base()], check=True)
        self._process = None

    def boot(self, packages):
        """Boots, with net-snmp and what these packages need. They are fetched before, as there is no network then."""
        self.copy(packages, PACKAGES)
        for name in ("resolv.conf", "hosts"):
            shutil.copy(f"/etc/{name}", self.root / "etc" / name)
        needed = [*NET_SNMP, *(f"{PACKAGES}/{package.name}" for package in packages)]
        for words in (["update"], ["install", "--yes", "--no-install-recommends", "--download-only", *needed]):
            done = subprocess.run(["chroot", self.root, "apt-get", "-qq", *words], capture_output=True, text=True,
                                  check=False, env={"PATH": os.environ["PATH"]})
            if done.returncode != 0:
                pytest.skip(f"apt-get cannot fetch packages: {done.stderr.strip().splitlines()[-1:]}")
        self._switched_on = time.monotonic()
        self._process = subprocess.Popen(["setpriv", "--pdeathsig", "KILL", "--", HERE / "boot-debian", self.root],
                                         stdin=subprocess.DEVNULL)
        self._first = wait_until(lambda: descendant(self._process.pid, "systemd"), what="the first process")
        self.wait_for_boot()
        self.install(*NET_SNMP)

    def _run(self, words):
        return subprocess.run(["nsenter", f"--target={self._first}", "--all", "--", *words], capture_output=True,
                              text=True, check=False, stdin=subprocess.DEVNULL, env={})

    def write(self, path, text):
        """Writes a file on the machine's disk."""
        file = self.root / path.lstrip("/")
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)

    def copy(self, files, directory):
        """Copies files of this machine there."""
        place = self.root / directory.lstrip("/")
        place.mkdir(parents=True, exist_ok=True)
        for file in files:
            shutil.copy(file, place)

    def stop(self):
        if self._process:
            os.kill(self._process.pid, signal.SIGKILL)  # takes the namespaces with it
            self._process.wait()
            for group in pathlib.Path("/sys/fs/cgroup").glob(f"**/tavo-debian-{self._process.pid}"):
                wait_until(lambda: remove_group(group), what=f"the end of all processes in {group}")
        shutil.rmtree(self.root, ignore_errors=True)


class EmulatedDebian(Debian):
    """A Debian 12 for 32-bit Arm with net-snmp and the libraries that ours need, on a machine that QEMU emulates."""

    slowness = 10

    def __init__(self, directory):
        if not can_become_others():
            pytest.skip("needs root, to unpack a Debian")
        require("armhf")
        if subprocess.run([ROOT / "scripts/sysroot", "--installed", "armhf"], check=False).returncode != 0:
            pytest.skip("Debian for armhf cannot be had, see above")
        self._directory = directory
        # The machine sees this tree and no other directory.
        self._passage = pathlib.Path(tempfile.mkdtemp(prefix="passage-", dir=BUILD))
        self._machine = None

    def boot(self, _):
        """Boots. Net-snmp and what the packages need is there already."""
        self._switched_on = time.monotonic()
        self._machine = EmulatedMachine(self._directory, options=["--arch", "armhf", "--systemd", "--timeout", 3600])
        self.wait_for_boot()

    def _run(self, words):
        output = self._machine.run(f"{shlex.join(words)} 2>/run/errors; echo $? >/run/status")
        status, _, errors = self._machine.run("cat /run/status /run/errors").partition("\n")
        return subprocess.CompletedProcess(words, int(status), output, errors)

    def write(self, path, text):
        """Writes a file on the machine's disk."""
        place = shlex.quote(path)
        self._machine.run(f'mkdir -p "$(dirname {place})" && printf %s {shlex.quote(text)} >{place}')

    def copy(self, files, directory):
        """Copies files of this machine there."""
        passage = tempfile.mkdtemp(dir=self._passage)
        for file in files:
            shutil.copy(file, passage)
        self.run("mkdir", "-p", directory)
        self.run("cp", "-r", f"{passage}/.", directory)

    def stop(self):
        if self._machine:
            self._machine.stop()
        shutil.rmtree(self._passage)
