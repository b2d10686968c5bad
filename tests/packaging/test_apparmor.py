"""The AppArmor profile compiles, and grants what the daemon and its tools use in a full run.

It is not loaded: that takes a kernel with AppArmor. TAVO_PACKAGES, as for test_packages.py, runs this, since Debian's
own rules come from its package.
"""

import itertools
import os
import re
import subprocess

import pytest

from agents import BUILD, ROOT, snmp, wait_until
from debian_machine import DebianMachine
from oids import BASE
from server import ServedDaemon, Server

pytestmark = pytest.mark.skipif(os.environ.get("TAVO_PACKAGES") is None,
                                reason="fetches a Debian: only with TAVO_PACKAGES")
PROFILE = ROOT / "host/snmp-subagentd.apparmor"
# What starts the daemon, and makes its clock run faster.
OF_THE_TEST = re.compile(r"faketime|^/dev/shm/sem\.|^/usr/bin/env$|^/usr/bin/strace$")
RULE = re.compile(r"^\s*(?:owner\s+)?((?:/|@\{)\S*)\s+([a-zA-Z]+),", re.MULTILINE)
VARIABLE = re.compile(r"^(@\{\w+\})\s*\+?=\s*(.*)$", re.MULTILINE)
CALL = re.compile(r'^\d+ +(openat|execve|unlink|rename|mkdir)\((?:AT_FDCWD, )?"(/[^"]*)"(.*)\) = \d', re.MULTILINE)


@pytest.fixture(scope="module")
def debian(tmp_path_factory):
    machine = DebianMachine(tmp_path_factory.mktemp("m"))
    try:
        machine.fetch("apparmor")
        subprocess.run(["chroot", machine.root, "apt-get", "-qq", "install", "--yes", "--no-install-recommends",
                        "apparmor"], capture_output=True, check=True)
        machine.write("/etc/apparmor.d/usr.sbin.snmp-subagentd", PROFILE.read_text())
        yield machine
    finally:
        machine.stop()


def parse(debian, *options):
    return subprocess.run(["chroot", debian.root, "/sbin/apparmor_parser", *options,
                           "/etc/apparmor.d/usr.sbin.snmp-subagentd"], capture_output=True, text=True, check=False)


def test_profile_compiles(debian):
    compiled = parse(debian, "--skip-kernel-load", "--skip-cache")
    assert compiled.returncode == 0 and "error" not in compiled.stderr.lower(), compiled.stderr


class Profile:
    def __init__(self, text):
        self._values = {}
        for name, words in VARIABLE.findall(text):
            self._values.setdefault(name, []).extend(word.strip('"').rstrip("/") for word in words.split())
        self._rules = [(re.compile(self._pattern(path)), granted) for path, granted in RULE.findall(text)]

    def _pattern(self, path):
        """The regular expression for a path with AppArmor's wild cards."""
        while variable := re.search(r"@\{\w+\}", path):
            path = path.replace(variable[0], "{" + ",".join(self._values[variable[0]]) + "}")
        words = {"**": ".*", "*": "[^/]*", "?": "[^/]", "{": "(?:", "}": ")", ",": "|"}
        expression = "".join(words.get(word, word if word.startswith("[") else re.escape(word))
                             for word in re.findall(r"\*\*|\[[^]]*\]|.", path))
        return expression + r"\Z"

    def grants(self, path, wanted):
        granted = set(itertools.chain.from_iterable(letters for rule, letters in self._rules if rule.match(path)))
        return set(wanted) <= granted


def as_installed(path, directory):
    """Where a file of the build tree or of the test is on a controller."""
    # AppArmor writes directories so.
    slash = "/" if os.path.isdir(path) and path != "/" else ""
    path = os.path.realpath(path) if not path.startswith(("/proc", "/var", "/usr/local")) else path
    path = re.sub(r"^/proc/(self|thread-self)/", "/proc/1/", path)
    for place, installed in ((f"{BUILD}/lib", "/usr/lib/lib"), (str(BUILD), "/usr/sbin"),
                             (f"{directory}/subagentd.conf", "/etc/snmp/snmp-subagentd.conf"),
                             (str(directory), "/var/lib/snmp-subagentd")):
        path = path.replace(place, installed) if path.startswith(place) else path
    return path.rstrip("/") + slash


def uses(trace, directory):
    """(path, rights) of each file that was opened, run, made or removed."""
    for call, path, words in CALL.findall(trace):
        if call == "openat":
            wanted = "rw" if "O_RDWR" in words else "w" if "O_WRONLY" in words else "r"
        else:
            wanted = "x" if call == "execve" else "w"
        if (path, wanted) != (str(BUILD / "snmp-subagentd"), "x"):  # the profile begins with that
            yield as_installed(path, directory), wanted


def test_profile_grants_what_a_full_run_uses(debian, tmp_path_factory):
    directory = tmp_path_factory.mktemp("d")
    trace = directory / "trace"
    server = Server(directory)
    try:
        # At 20 times the speed, a periodic refresh comes every 5 s.
        daemon = ServedDaemon(directory, server, speed=20, timeout=300,
                              before=["strace", "--follow-forks", "--quiet=all", "--output", trace])
        try:
            server.wait_for_listeners()
            assert len(snmp("snmpwalk", daemon.address, BASE)) > 1500
            server.wait_for_sd_listener(daemon)
            wait_until(lambda: trace.read_text(errors="replace").count('"/var/LedInv", O_WRONLY') > 1, 120,
                       "a periodic refresh")
        finally:
            daemon.stop()
    finally:
        server.stop()
    profile = Profile(parse(debian, "--preprocess").stdout)
    used = set(uses(trace.read_text(errors="replace"), directory))
    assert len(used) > 40
    print(f"\n{len(used)} uses of files")
    missing = sorted(use for use in used if not profile.grants(*use) and not OF_THE_TEST.search(use[0]))
    assert missing == [], "\n".join(map(str, missing))
