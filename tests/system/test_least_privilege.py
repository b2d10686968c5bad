"""The unit takes from the daemon what it does not need, says why it leaves the rest, and the daemon works with it."""

import pathlib
import re
import shlex
import shutil
import stat
import subprocess
import sys

import pytest

from agents import BUILD, ROOT, wait_until
from broken_world import can_become_others
from server import SD_TRIGGER, ServedDaemon
from test_walk import all_served, golden, server  # noqa: F401

UNIT = (BUILD / "snmp-subagentd.service").read_text()
HIGHEST_EXPOSURE = 3.0


def settings(name):
    """The words of the unit's lines of this name, in order."""
    return [value.split() for value in re.findall(rf"^{name}=(.*)$", UNIT, re.MULTILINE)]


def needs(program):
    return pytest.mark.skipif(not shutil.which(program), reason=f"{program} is not installed")


def analyze(*words):
    return subprocess.run(["systemd-analyze", *words], capture_output=True, text=True, check=False)


@pytest.fixture(scope="module")
def judgement():
    """What systemd thinks of the unit."""
    return analyze("security", "--offline=true", "--no-pager", BUILD / "snmp-subagentd.service").stdout


@needs("systemd-analyze")
class TestUnit:
    def test_its_exposure_is_low(self, judgement):
        exposure = float(re.search(r"Overall exposure level for \S+: ([\d.]+)", judgement)[1])
        print(f"exposure {exposure}")
        assert exposure <= HIGHEST_EXPOSURE
        said = re.search(r"rates the unit\s([\d.]+),", (ROOT / "docs/operations.md").read_text())[1]
        assert float(said) == exposure

    def test_each_exception_is_mentioned(self, judgement):
        exceptions = {name for names in re.findall(r"^✗ (\S+)", judgement, re.MULTILINE)
                      for name in re.findall(r"(\w+)=", names)}
        assert len(exceptions) > 5
        # Of each of these pairs it is enough to mention the first.
        exceptions -= {"RootImage", "DynamicUser"}
        assert {name for name in exceptions if f"{name}=" not in UNIT} == set()

    def test_each_capability_is_explained(self):
        comments = "".join(re.findall(r"^#.*\n", UNIT, re.MULTILINE))
        capabilities = settings("CapabilityBoundingSet")[0]
        assert [name for name in capabilities if f"{name.removeprefix('CAP_')}:" not in comments] == []

    def test_systemd_knows_every_setting(self, directory):
        unit = directory / "snmp-subagentd.service"
        unit.write_text(re.sub(r"(?m)^ExecStart=.*$", "ExecStart=/bin/true", re.sub(r"(?m)^Documentation=.*$", "", UNIT)))
        assert analyze("verify", unit).stderr == ""


def system_calls(name):
    """The system calls of a group, or the one of this name."""
    if not name.startswith("@"):
        return {name}
    lines = analyze("syscall-filter", name).stdout.splitlines()[1:]
    return {call for line in lines if not line.strip().startswith("#") for call in system_calls(line.strip())}


def allowed_system_calls():
    allowed = set()
    for first, *more in settings("SystemCallFilter"):
        calls = {call for name in (first.removeprefix("~"), *more) for call in system_calls(name)}
        allowed = allowed - calls if first.startswith("~") else allowed | calls
    return allowed


def traced_calls(trace):
    """The system calls that were made, by the daemon and its tools."""
    return set(re.findall(r"^\d+ +(\w+)\(", trace.read_text(errors="replace"), re.MULTILINE))


class Confinement:
    """What the unit does to the daemon, on a simulated server: its user, no capability, a system that is read-only but
    for the unit's own directories, and its system calls.
    """

    user = 54321  # nobody on this machine

    def __init__(self, directory, server):
        self._trace = directory / "trace"
        self._calls = directory / "calls"
        self._calls.write_text("\n".join(sorted(allowed_system_calls())))
        directory.chmod(0o777)
        # The links in /var. The directory that they lead to is made for the daemon alone.
        server.run("systemd-tmpfiles", "--create", ROOT / "host/snmp-subagentd.tmpfiles")
        server.run("chmod", "-R", "a+rwX", "/var/bmcsim")

    def words(self, *more):
        """The words before the daemon's command. `more` are shell commands for the daemon's own mounts and files."""
        (runtime,), (mode,) = settings("RuntimeDirectory")[0], settings("RuntimeDirectoryMode")[0]
        script = ["mount -t tmpfs -o mode=755 run /run", f"mkdir /run/{runtime}",
                  f"mount -t tmpfs -o uid={self.user},gid={self.user},mode={mode} runtime /run/{runtime}", *more,
                  *(f"mount -o remount,bind,ro {place}" for place in ("/", "/var", "/run")),
                  f"umask {settings('UMask')[0][0]}", 'exec "$@"']
        return ["unshare", "--mount", "sh", "-ec", "\n".join(script), "sh",
                "setpriv", f"--reuid={self.user}", f"--regid={self.user}", "--clear-groups", "--bounding-set=-all",
                "--inh-caps=-all", "--no-new-privs", "strace", "--follow-forks", "--quiet=all", "--output", self._trace,
                sys.executable, "-B", ROOT / "tests/system/confined.py", self._calls]

    def refused_calls(self):
        """Each system call that the daemon or its tools made in vain, because the unit does not allow it."""
        made = traced_calls(self._trace)
        assert {"execve", "bind", "sendmsg"} <= made
        # The filter is set by one.
        return made - allowed_system_calls() - {"seccomp"}


@pytest.fixture
def confinement(directory, server):  # noqa: F811
    if not can_become_others():
        pytest.skip("needs root, to run the daemon as another user")
    return Confinement(directory, server)


@pytest.mark.parametrize("squatter", ["touch $0", "ln -s /nowhere $0", "mkdir $0", "mkdir -p $0/full"])
def test_a_start_frees_the_sockets_place(server, squatter):  # noqa: F811
    before = re.search(r"^ExecStartPre=-?\+(.*)$", UNIT, re.MULTILINE)[1]
    server.run("sh", "-ec", squatter, "/tmp/snmp_velt_sock")
    server.run(*shlex.split(before.replace("$$", "$")))
    assert server.run("ls", "-d", "/tmp/snmp_velt_sock", check=False).returncode != 0


def files_of(daemon, place):
    """{name: state} of what is in this directory, as the daemon sees it."""
    return {path.name: path.stat() for path in pathlib.Path(f"/proc/{daemon.pid}/root{place}").iterdir()}


@needs("systemd-analyze")
@needs("systemd-tmpfiles")
@needs("strace")
class TestConfinedDaemon:
    def test_it_serves_every_value(self, start, server, confinement):  # noqa: F811
        warm = "touch /run/snmp-subagentd/tvmcWarmStartup"
        daemon = start(ServedDaemon, server, before=confinement.words(warm))
        status = pathlib.Path(f"/proc/{daemon.pid}/status").read_text()
        assert re.search(r"CapBnd:\s+0+\n", status) and re.search(r"Seccomp:\s+2\n", status)
        assert all_served(daemon.address) == golden()
        server.wait_for_sd_listener(daemon)
        dumps = files_of(daemon, "/run/snmp-subagentd")
        assert dumps.pop("tvmcWarmStartup").st_uid == 0
        assert len(dumps) > 5 and {dump.st_uid for dump in dumps.values()} == {confinement.user}
        assert [name for name, dump in dumps.items() if dump.st_mode & stat.S_IRWXO] == [], "others may read it"
        assert "cannot write" not in daemon.log()
        daemon.stop()
        assert confinement.refused_calls() == set()

    def test_a_cold_start_leaves_its_marker(self, start, server, confinement):  # noqa: F811
        daemon = start(ServedDaemon, server, speed=60, before=confinement.words())
        wait_until(lambda: "tvmcWarmStartup" in files_of(daemon, "/run/snmp-subagentd"),
                   what="the marker, a minute after the start")
        assert files_of(daemon, "/run/snmp-subagentd")["tvmcWarmStartup"].st_uid == confinement.user
        assert server.run("stat", "-L", "/var/tvmcWarmStartup", check=False).returncode != 0, "in the unit's own place"

    def test_a_joined_private_tmp_has_the_sd_socket(self, start, server, confinement, directory):  # noqa: F811
        private = "/tmp/private"  # with JoinsNamespaceOf= both units have it as /tmp
        daemon = start(ServedDaemon, server, before=confinement.words(
            f"mkdir -p {private}/{directory.name}", f"mount --bind {directory} {private}/{directory.name}",
            f"chmod 1777 {private}", f"mount --rbind {private} /tmp"))
        connect = "import socket; socket.socket(socket.AF_UNIX).connect('/tmp/snmp_velt_sock')"
        ask = [sys.executable, "-c", connect]
        assert server.run(*ask, check=False).returncode != 0
        join = f'mount --bind {private} /tmp; exec "$@"'
        wait_until(lambda: server.run("unshare", "--mount", "sh", "-ec", join, "sh", *ask, check=False).returncode == 0,
                   what="the socket")
        daemon.wait_for_log(SD_TRIGGER)
