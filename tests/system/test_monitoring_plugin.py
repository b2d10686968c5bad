"""contrib/monitoring-plugins/check_tavo_hardware, asked about simulated servers as a monitoring system would."""

import os
import re
import subprocess
import sys
import time

import pytest

from agents import ROOT, Daemon, Master, free_port, wait_until
from mib import definitions
from oids import DAEMON_BASE, FAULT_TABLE
from rebuilds import quiet_scenario
from server import UNREFRESHED_CLASS, Server, ServedDaemon
from slow_tables import MODULE, PROCESSOR_LOCK, REAL_MODULE, hold

PLUGINS = ROOT / "contrib/monitoring-plugins"
sys.path.insert(0, str(PLUGINS))
sys.dont_write_bytecode = True  # contrib/ is installed as it stands
from tavo_tables import COMPONENTS, CRITICAL, ENTERPRISE, METRICS, OK, PARTS, READINGS, UNKNOWN, WARNING  # noqa: E402

SPEED = 45
BUSY = 20  # seconds that a busy machine may add; without its limit a check would take 30
SECRETS = {"-a": "SHA-256", "-A": "an authentication secret", "-x": "AES", "-X": "a privacy secret"}
USERS = f"""\
createUser monitor SHA-256 "{SECRETS['-A']}" AES "{SECRETS['-X']}"
rouser monitor authPriv
createUser alerts SHA-256 "{SECRETS['-A']}" AES "{SECRETS['-X']}"
view alerts included .{FAULT_TABLE}
view alerts included .{DAEMON_BASE}
rouser alerts authPriv -V alerts
"""
# By the rules for plugins: 'label'=value[unit];[warning];[critical]
PERFORMANCE = re.compile(r"'([\w-]+)'=(-?\d+)(|s|ms|c|C|W|A|V)(?:;([\d.:@~]*)(?:;([\d.:@~]*))?)?")


class Result:
    def __init__(self, done):
        self.status = done.returncode
        self.text, *self.more = done.stdout.splitlines()
        self.line, _, performance = self.text.partition(" | ")
        self.performance = {}
        for word in performance.split():
            label, value, unit, *_ = PERFORMANCE.fullmatch(word).groups()
            self.performance[label] = (int(value), unit)
        assert done.stderr == "" and self.line.startswith(
            f"TAVO {['OK', 'WARNING', 'CRITICAL', 'UNKNOWN'][self.status]}: ") and "|" not in "".join(self.more)


def run(address, *options, credentials=("-C", "public"), **variables):
    host, port = address.split(":")
    return Result(subprocess.run([PLUGINS / "check_tavo_hardware", "-H", host, "-p", port, *credentials, *options],
                                 capture_output=True, text=True, check=False, timeout=90,
                                 env={**os.environ, **variables}))


def as_user(name, **others):
    words = {"-P": "3", "-U": name, "-L": "authPriv", **SECRETS, **others}
    return [word for pair in words.items() for word in pair]


@pytest.fixture(scope="module")
def serving(tmp_path_factory):
    """A server with one major fault, and a function that asks its agent."""
    directory = tmp_path_factory.mktemp("tavo", numbered=True)
    server = Server(directory, scenario=quiet_scenario(directory))
    daemon = ServedDaemon(directory, server, speed=SPEED, configuration=USERS)
    server.wait_for_listeners()
    server.ctl("fault", "raise", "4711", f"class={UNREFRESHED_CLASS}", "severity=major")
    yield server, lambda *options, **settings: run(daemon.address, *options, **settings)
    daemon.stop()
    server.stop()


def test_tables_are_those_of_the_mib(directory):
    known = definitions(directory)
    tables = [*(parts.table for parts in PARTS.values()),
              *(reading.table for readings in READINGS.values() for reading in readings)]
    for table in tables:
        for column, oid in table.columns.items():
            assert known[f"{ENTERPRISE}.{table.oid}.{oid}"].name == table.name + column
    for parts in PARTS.values():
        state = known[f"{ENTERPRISE}.{parts.table.oid}.{list(parts.table.columns.values())[1]}"]
        assert {value: word for value, (word, _) in parts.states.items()} == state.enumeration, state.name
        assert set(parts.nobody) <= set(state.enumeration.values())


def test_all_components_are_told(serving):
    _, ask = serving
    begin = time.monotonic()
    result = ask("-v")
    print(f"{time.monotonic() - begin:.2f} s for all components")
    assert result.status == CRITICAL
    statuses = dict(re.findall(r"^\[(\w+)\] (\w+):", line)[0][::-1] for line in result.more if line.startswith("["))
    assert statuses == {**dict.fromkeys(COMPONENTS, "OK"), "memory": "WARNING", "disk": "WARNING", "volume": "WARNING",
                        "led": "WARNING", "adaptor": "CRITICAL", "controller": "CRITICAL", "fault": "CRITICAL"}
    assert "    board/memarray-1/mem-19 inoperable" in result.more
    assert "    fan-module-1-4/fan-2 operable" in result.more
    for metric in METRICS:
        assert any(label.startswith(metric) for label in result.performance), metric
    assert result.performance["memory_failed"] == (1, "")
    assert result.performance["temperature_processor_cpu-2"][1] == "C"
    assert result.performance["agent_uptime"][0] > 0


# For each component: what goes wrong, what then is said, how bad it is, and what makes it good again.
FAILURES = {
    "fan": ("fan remove FAN2_TACH1", "fan-module-1-2/fan-1 absent", WARNING, "fan insert FAN2_TACH1"),
    "psu": ("supply fail 1", "psu-1 faultyOrOff", WARNING, "supply repair 1"),
    "processor": ("processor disable 2", "board/cpu-2 inoperable", CRITICAL, "processor enable 2"),
    "memory": ("dimm fail DIMM_A1", "mem-1 inoperable", WARNING, "dimm repair DIMM_A1"),
    "battery": ("battery fail 4", "raid-battery inoperable", WARNING, "battery repair 4"),
    "volume": ("volume set 0 0 state=offline", "storage-SAS-SAS/vd-0 offline", CRITICAL, "volume rebuild 0 0"),
    "temperature": ("environment set ambient=44 drift=0", "temperature_air_ambient is 44 C (warning at 35)", WARNING,
                    "environment set ambient=23"),
}


def test_failures_are_seen_and_their_ends(serving):
    server, ask = serving
    for command, *_ in FAILURES.values():
        server.ctl(*command.split())
    for component, (_, said, status, _) in FAILURES.items():
        def is_told():
            result = ask("--component", component)
            return result.status == status and said in result.line
        wait_until(is_told, what=said)
    faults = ask("--component", "fault")
    assert faults.status == CRITICAL and faults.performance["fault_present"][0] == 1 + 4
    for *_, command in FAILURES.values():
        server.ctl(*command.split())
    wait_until(lambda: ask("--component", "fan,psu,processor,battery,temperature").status == OK, what="the repairs")
    for component in ("memory", "volume"):  # one of the parts that are still broken is the scenario's
        wait_until(lambda: ask("--component", component).performance[f"{component}_failed"] == (1, ""), what=component)


@pytest.mark.parametrize("options, status", [
    (["-w", "power_consumed=1000"], OK),
    (["-w", "power_consumed=10"], WARNING),
    (["-w", "power_consumed=10", "-c", "power_consumed=20"], CRITICAL),
    (["-w", "power_consumed=1000:"], WARNING),
    (["-w", "power_consumed=~:1000"], OK),
    (["-w", "power_consumed=@1:1000"], WARNING),
    (["-c", "power_voltage=11:13", "-w", "power_voltage=@0:1"], OK),
])
def test_thresholds_are_ranges(serving, options, status):
    _, ask = serving
    assert ask("--component", "power", *options).status == status


def test_own_statuses_replace_the_usual(serving):
    _, ask = serving
    changed = ["--component", "memory", "--state", "memory.inoperable=critical"]
    assert ask(*changed).status == CRITICAL
    assert ask(*changed[:3], "memory.inoperable=ok").status == OK
    assert ask("--component", "disk", "-c", "disk_present=9:", "--state", "disk.inoperable=ok").line == \
        "TAVO CRITICAL: disk: disk_present is 5 (critical at 9:)"


def test_snmpv3_user_is_served(serving):
    _, ask = serving
    assert ask("--component", "psu", credentials=as_user("monitor")).status == OK


@pytest.mark.parametrize("configuration, credentials", [
    ("defCommunity public", []),
    (f"defSecurityName monitor\ndefSecurityLevel authPriv\ndefAuthType SHA-256\ndefPrivType AES\n"
     f"defAuthPassphrase {SECRETS['-A']}\ndefPrivPassphrase {SECRETS['-X']}", ["-P", "3"]),
    ("quickPrinting yes\nnumericTimeticks yes\nmibs +ALL", ["-C", "public"]),
])
def test_secrets_come_from_snmp_conf(serving, tmp_path, configuration, credentials):
    """What else it says, of the output say, changes nothing."""
    _, ask = serving
    (tmp_path / "snmp.conf").write_text(configuration + "\n")
    result = ask("--component", "psu,agent", credentials=credentials, SNMPCONFPATH=str(tmp_path))
    assert result.status == OK and result.performance["agent_uptime"][0] > 0, result.text


@pytest.mark.parametrize("credentials, said", [
    (as_user("nobody"), "Unknown user name"),
    (as_user("monitor", **{"-A": "another secret"}), "Authentication failure"),
    (as_user("monitor", **{"-X": "another secret"}), "no answer within 1 s"),
    (as_user("monitor", **{"-L": "authNoPriv"}), "authorizationError"),
    (as_user("monitor", **{"-N": "elsewhere"}), "no answer within 1 s"),
    (as_user("monitor", **{"-a": "SHA-1000"}), "Invalid authentication protocol"),
    (["-C", "private"], "no answer within 1 s: it is down, out of reach or busy, or the community is wrong"),
    ([], "No community name"),
])
def test_wrong_credentials_are_named(serving, credentials, said):
    _, ask = serving
    result = ask("-t", "1" if "no answer" in said else "5", credentials=credentials)
    assert result.status == UNKNOWN and said in result.line, result.text


def test_narrow_view_is_no_empty_table(serving):
    _, ask = serving
    result = ask("--component", "fan,fault", "--state", "fan.none=ok", credentials=as_user("alerts"))
    assert "[CRITICAL] fault" in "\n".join(result.more)
    assert "    tavoEquipmentFanTable has 15 rows, none of which we may see" in result.more


def test_table_in_rebuilding_is_named(serving):
    server, ask = serving
    server.ctl("tool", "datactl", "slow", str(4 * SPEED))

    def rebuilding():
        result = ask("-t", "2", "--component", "temperature,fault")
        named = r"^    no answer within 2 s; tavo\w+StatsTable has been in rebuilding for [\d.]+ s$"
        return re.search(named, "\n".join(result.more), re.MULTILINE) and result
    result = wait_until(rebuilding, what="a rebuild")
    server.ctl("tool", "datactl", "ok")
    assert any(line.startswith("[UNKNOWN] temperature") for line in result.more)
    assert any(line.startswith("[CRITICAL] fault") for line in result.more)  # no tool is asked for them
    wait_until(lambda: ask("--component", "temperature").status == OK, what="the end of the rebuild")


def test_long_table_is_read_to_its_end(serving):
    server, ask = serving
    server.ctl("fault", "storm", "400", "150")
    active = server.ctl("fault", "list").count("fault: ")
    assert active > 60
    wait_until(lambda: ask("--component", "fault").performance["fault_present"] == (active, ""), what="all faults")


def test_list_of_faults_may_be_incomplete(start):
    """For a minute after a boot."""
    daemon = start(ServedDaemon, start(Server, cold=True))
    result = run(daemon.address, "--component", "agent")
    assert (result.status, result.performance["agent_faults_complete"]) == (WARNING, (2, "")), result.text
    assert "agent_faults_complete is 2 (warning at 1)" in result.line


def test_general_error_is_one_tables_trouble(start):
    daemon = start(Daemon, module=MODULE, options=["--answer-within", "200"], REAL_MODULE=str(REAL_MODULE))
    hold(daemon, PROCESSOR_LOCK, 7)
    result = run(daemon.address, "-t", "5", "--component", "processor,controller")
    assert "[UNKNOWN] processor" in "\n".join(result.more) and "the agent answers genErr" in result.line
    assert "controller_present" in result.performance
    # Within its time, it waits for the end of the rebuild.
    result = run(daemon.address, "-t", "20", "--component", "processor")
    assert "genErr" not in result.line
    daemon.wait_for_log(f"releasing {PROCESSOR_LOCK}")


POWER_COLUMN = f".{ENTERPRISE}.207.1.9.14.1"


@pytest.mark.parametrize("output, said", [
    ("", "the agent answers with nothing"),
    ("garbage", "the agent answers with nothing"),
    (f"{POWER_COLUMN}.4.1 = ", "serves none of these tables"),
    ("".join(f'{POWER_COLUMN}.{column}.1 = Hex-STRING: 61 FF 7C \n' for column in (4, 8, 12)),
     "tavoComputeMbPowerStatsConsumedPower has a value of another kind: a"),
    (f"{POWER_COLUMN}.4.1 = Hex-STRING: nonsense", "ValueError"),
    ("\udcff\udcfe", "the agent answers with nothing"),
])
def test_strange_answers_are_unknown(tmp_path, output, said):
    tool = tmp_path / "snmpbulkget"
    tool.write_text(f"#!/bin/sh\ncat {tmp_path}/output\n")
    tool.chmod(0o755)
    (tmp_path / "output").write_text(output, errors="surrogateescape")
    result = run("127.0.0.1:161", "--component", "power", PATH=f"{tmp_path}:/usr/bin:/bin", LC_ALL="C")
    assert result.status == UNKNOWN and said in result.line


@pytest.mark.parametrize("timeout", [1, 3])
def test_timeout_is_kept(timeout):
    begin = time.monotonic()
    result = run(f"127.0.0.1:{free_port()}", "-t", str(timeout), "-e", "3")
    assert timeout - 0.5 < time.monotonic() - begin < timeout + BUSY
    assert result.status == UNKNOWN and f"no answer within {timeout} s" in result.line


def test_other_agent_is_no_server(start, directory):
    configuration = directory / "snmpd.conf"
    configuration.write_text("rocommunity public\n")
    result = run(start(Master, configuration).address)
    assert result.status == UNKNOWN and "serves none of these tables" in result.line


@pytest.mark.parametrize("options, said", [
    ([], "required"),
    (["-H", "x", "--component", "fann"], "'fann' is no component; there are fan, psu, "),
    (["-H", "x", "-w", "fans=1"], "'fans' is no metric; there are fan_present, "),
    (["-H", "x", "-w", "fan_failed=many"], "'many' is not a range"),
    (["-H", "x", "-w", "fan_failed=20:10"], "the range '20:10' ends before it begins"),
    (["-H", "x", "--state", "fan.hot=ok"], "'hot' is no state of fan; there are unknown, operable, "),
    (["-H", "x", "--state", "fan.absent=good"], "'good' is no status; there are ok, warning, "),
    (["-H", "x", "-t", "0"], "'0' is not a whole number from 1 to 3600"),
    (["-H", "no.such.host.invalid", "-C", "public"], "no.such.host.invalid: "),
])
def test_wrong_options_are_unknown(options, said):
    done = subprocess.run([PLUGINS / "check_tavo_hardware", *options], capture_output=True, text=True, check=False)
    assert done.returncode == UNKNOWN and said in done.stdout


def test_help_lists_components_and_metrics():
    done = subprocess.run([PLUGINS / "check_tavo_hardware", "--help"], capture_output=True, text=True, check=False)
    assert done.returncode == UNKNOWN
    assert set(COMPONENTS) | set(METRICS) <= set(re.findall(r"\w+", done.stdout))
