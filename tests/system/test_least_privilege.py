"""The unit takes from the daemon what it does not need, says why it leaves the rest, and the daemon works with it."""

import pathlib
import re
import shutil
import subprocess

import pytest

from agents import BUILD, Daemon, snmp
from server import MODULE, PLATFORM, Server, descendant

UNIT = (BUILD / "snmp-subagentd.service").read_text()
HIGHEST_EXPOSURE = 3.0
TABLES = "1.3.6.1.4.1.61453.4.207"


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


@needs("systemd-analyze")
@needs("strace")
def test_daemon_serves_with_these_restrictions(directory, start):
    """All that can be set without systemd: capabilities, umask, a read-only root, and a look at the system calls."""
    kept = ",".join("+" + name.removeprefix("CAP_").lower() for name in settings("CapabilityBoundingSet")[0])
    trace = directory / "trace"
    server = start(Server)
    daemon = start(Daemon, module=MODULE, platforms=[PLATFORM], timeout=120, program=[
        *server.entered(), "unshare", "--mount", "sh", "-c", 'mount -o remount,bind,ro / && umask "$0" && exec "$@"',
        settings("UMask")[0][0], "setpriv", f"--bounding-set=-all,{kept}", "--inh-caps=-all", "--no-new-privs",
        "strace", "--follow-forks", "--quiet=all", "--output", trace, BUILD / "snmp-subagentd"])

    process = pathlib.Path(f"/proc/{descendant(daemon.pid, 'snmp-subagentd')}")
    status = process.joinpath("status").read_text()
    assert re.search(r"CapEff:\s+0*40a$", status, re.MULTILINE)  # bits 1, 3 and 10
    roots = [options for _, _, _, _, place, options, *_ in map(str.split, process.joinpath("mountinfo").open())
             if place == "/"]
    assert roots[-1].startswith("ro")
    assert len(snmp("snmpwalk", daemon.address, TABLES)) > 1500
    daemon.stop()
    made = traced_calls(trace)
    assert {"execve", "bind", "sendmsg"} <= made
    assert made - allowed_system_calls() == set()
