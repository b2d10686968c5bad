"""A bare Debian 12 that boots with its own systemd, in namespaces on this machine. Needs root."""

import os
import pathlib
import shutil
import signal
import subprocess

import pytest

from agents import BUILD, wait_until
from broken_world import can_become_others
from server import descendant

HERE = pathlib.Path(__file__).parent
# Unpacked for each machine; removed with the build tree.
BASE = BUILD / "debian/bookworm.tar"
# What comes and goes with any package.
BOOKKEEPING = ("var/lib/dpkg", "var/lib/apt", "var/cache", "var/log", "etc/ld.so.cache", "var/lib/systemd",
               "var/tmp")


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


class DebianMachine:
    def __init__(self, directory):
        if not can_become_others():
            pytest.skip("needs root, to boot a Debian")
        if shutil.which("mmdebstrap") is None:
            pytest.skip("mmdebstrap is not installed (scripts/install-packages packaging)")
        self.root = pathlib.Path(directory) / "debian"
        self.root.mkdir(mode=0o755)
        subprocess.run(["tar", "-C", self.root, "-xf", base()], check=True)
        self._process = None

    def fetch(self, *packages):
        """Has apt fetch packages, and what they need, while there is a network: before the boot."""
        for name in ("resolv.conf", "hosts"):
            shutil.copy(f"/etc/{name}", self.root / "etc" / name)
        for words in (["update"], ["install", "--yes", "--no-install-recommends", "--download-only", *packages]):
            done = subprocess.run(["chroot", self.root, "apt-get", "-qq", *words], capture_output=True, text=True,
                                  check=False, env={"PATH": os.environ["PATH"]})
            if done.returncode != 0:
                pytest.skip(f"apt-get cannot fetch packages: {done.stderr.strip().splitlines()[-1:]}")

    def boot(self):
        self._process = subprocess.Popen(["setpriv", "--pdeathsig", "KILL", "--", HERE / "boot-debian", self.root],
                                         stdin=subprocess.DEVNULL)
        self.first = wait_until(lambda: descendant(self._process.pid, "systemd"), what="the first process")
        # A unit of Debian that failed, since it may not do here what it does on a real machine, is no matter.
        booted = ("running\n", "degraded\n")
        wait_until(lambda: self.run("systemctl", "is-system-running", check=False).stdout in booted, 120, "the boot")

    def run(self, *command, check=True, **settings):
        """Runs a command on the machine, as root."""
        result = subprocess.run(["nsenter", f"--target={self.first}", "--all", "--", *map(str, command)],
                                capture_output=True, text=True, check=False, stdin=subprocess.DEVNULL,
                                env={"PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                                     "DEBIAN_FRONTEND": "noninteractive", "MIBS": ""}, **settings)
        if check and result.returncode != 0:
            raise AssertionError(f"{command} exited with {result.returncode}: {result.stdout}{result.stderr}")
        return result

    def install(self, *packages):
        """Installs packages that are files, or were fetched."""
        self.run("apt-get", "-qq", "install", "--yes", "--no-install-recommends", *packages)

    def write(self, path, text):
        """Writes a file on the machine's disk."""
        file = self.root / path.lstrip("/")
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)

    def unit(self, *names, of="snmp-subagentd.service"):
        """The values of a unit's properties."""
        shown = self.run("systemctl", "show", *(f"--property={name}" for name in names), of).stdout
        values = dict(line.split("=", 1) for line in shown.splitlines())
        return [values[name] for name in names]

    def log(self, unit="snmp-subagentd.service"):
        return self.run("journalctl", "--quiet", "--output=cat", f"--unit={unit}").stdout

    def files(self):
        """Everything on the machine's disk, but for the books of dpkg, apt and systemd."""
        found = set()
        for place, directories, names in os.walk(self.root):
            relative = os.path.relpath(place, self.root)
            if relative.startswith(BOOKKEEPING):
                continue
            found.update(os.path.normpath(os.path.join(relative, name)) for name in (*directories, *names))
        return {name for name in found if not name.startswith(BOOKKEEPING)}

    def stop(self):
        if self._process:
            os.kill(self._process.pid, signal.SIGKILL)  # takes the namespaces with it
            self._process.wait()
            for group in pathlib.Path("/sys/fs/cgroup").glob(f"**/tavo-debian-{self._process.pid}"):
                wait_until(lambda: remove_group(group), what=f"the end of all processes in {group}")
        shutil.rmtree(self.root, ignore_errors=True)
