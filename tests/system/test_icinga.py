"""What Debian's Icinga 2 makes of contrib/icinga2: it accepts the files, and its services follow a simulated server."""

import getpass
import grp
import json
import os
import re
import socket
import subprocess
import time

import pytest

from agents import ROOT, Program, wait_until
from debian import libraries, unpacked
from rebuilds import quiet_scenario
from server import ServedDaemon, Server

ICINGA = ROOT / "contrib/icinga2"
SPEED = 45
OK, WARNING, CRITICAL, UNKNOWN = range(4)
CONFIGURATION = """\
const PluginDir = "/usr/lib/nagios/plugins"
const PluginContribDir = "{plugins}"
const NodeName = "monitor"
const ZoneName = NodeName
include <itl>
include <plugins>
include "{own}/tavo-hardware.conf"
object Endpoint NodeName {{ }}
object Zone ZoneName {{ endpoints = [ NodeName ] }}
object CheckerComponent "checker" {{ }}
object LivestatusListener "livestatus" {{ socket_path = "{directory}/livestatus" }}
{hosts}
"""
HOST = """\
object Host "server-1" {
  check_command = "dummy"
  address = "127.0.0.1"
  vars.tavo = true
  vars.tavo_port = %s
%s
}
"""
USER = """\
  vars.tavo_protocol = "3"
  vars.tavo_seclevel = "authPriv"
  vars.tavo_secname = "monitor"
  vars.tavo_authproto = "SHA-256"
  vars.tavo_authpasswd = "an authentication secret"
  vars.tavo_privproto = "AES"
  vars.tavo_privpasswd = "a privacy secret"
  vars.tavo_critical = [ "fan_present=12:", "power_consumed=900" ]
  vars.tavo_state = [ "psu.absent=ok" ]
"""
RECIPE = 'createUser monitor SHA-256 "an authentication secret" AES "a privacy secret"\nrouser monitor authPriv\n'


def command(directory, hosts):
    """The command line of `icinga2 daemon` in this directory, its environment and its configuration."""
    place = unpacked("icinga2-bin", "icinga2-common")
    [program] = [*place.glob("usr/lib/*/icinga2/sbin/icinga2")] or ["/usr/sbin/icinga2"]
    file = directory / "icinga2.conf"
    file.write_text(CONFIGURATION.format(plugins=ROOT / "contrib/monitoring-plugins", own=ICINGA, directory=directory,
                                         hosts=hosts))
    include = place / "usr/share/icinga2/include"
    places = {"RunAsUser": getpass.getuser(), "RunAsGroup": grp.getgrgid(os.getegid()).gr_name,
              **{name: directory / "icinga" for name in ("ConfigDir", "DataDir", "LogDir", "CacheDir", "SpoolDir",
                                                         "InitRunDir")}}
    (directory / "icinga").mkdir(exist_ok=True)
    return [program, "daemon", "-c", file, *(["-I", include] if include.exists() else []),
            *(f"-D{name}={value}" for name, value in places.items())], libraries(place)


class Icinga(Program):
    def __init__(self, directory, hosts):
        self._socket = directory / "livestatus"
        words, variables = command(directory, hosts)
        super().__init__(directory, "icinga2", words, **variables)
        wait_until(self._answers, what="Icinga's answer")

    def _answers(self):
        assert self.process.poll() is None, self.log()
        try:
            return self.services()
        except (OSError, json.JSONDecodeError):  # Icinga makes its socket first, then listens, then answers.
            return None

    def _ask(self, text):
        with socket.socket(socket.AF_UNIX) as connection:
            connection.settimeout(30)
            connection.connect(str(self._socket))
            connection.sendall(text.encode())
            connection.shutdown(socket.SHUT_WR)
            return b"".join(iter(lambda: connection.recv(65536), b"")).decode()

    def services(self):
        """{service: (whether it was ever checked, state, the plugin's line, performance data)}"""
        columns = "description has_been_checked state plugin_output perf_data"
        rows = json.loads(self._ask(f"GET services\nColumns: {columns}\nOutputFormat: json\n\n"))
        return {name: tuple(row) for name, *row in rows}

    def check(self, service):
        """(state, line) of a new check."""
        self._ask(f"COMMAND [{int(time.time())}] SCHEDULE_FORCED_SVC_CHECK;server-1;{service};{int(time.time())}\n\n")
        _, state, line, _ = self.services()[service]
        return state, line.strip()


@pytest.fixture
def monitored(start, directory):
    """monitored(what the host's definition has besides): a server and the Icinga that watches it"""
    def start_both(definition):
        server = start(Server, scenario=quiet_scenario(directory))
        daemon = start(ServedDaemon, server, speed=SPEED, configuration=RECIPE)
        server.wait_for_listeners()
        return server, start(Icinga, HOST % (daemon.address.partition(":")[2], definition))
    return start_both


def validated(directory, hosts):
    words, variables = command(directory, hosts)
    done = subprocess.run([*map(str, words), "-C"], capture_output=True, text=True, check=False,
                          env={**os.environ, **variables})
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def test_icinga_accepts_the_files(directory):
    said = validated(directory, (ICINGA / "hosts.conf.example").read_text())
    assert "Instantiated 20 Services" in said and "Instantiated 18 Dependencies" in said, said
    assert "warning/" not in said


def test_components_may_lack_the_agent(directory):
    said = validated(directory, HOST % (161, '  vars.tavo_components = [ "fan" ]'))
    assert "Instantiated 1 Service" in said and "Dependenc" not in re.sub(".*does not match anywhere.*", "", said), said


def test_services_follow_the_server(monitored):
    server, icinga = monitored(USER)
    for service in icinga.services():
        wait_until(lambda: icinga.check(service)[0] is not None and icinga.services()[service][0], what=service)
    states = {service: state for service, (_, state, *_) in icinga.services().items()}
    assert len(states) == 14
    assert {service for service, state in states.items() if state != OK} == {
        "tavo-memory", "tavo-adaptor", "tavo-controller", "tavo-disk", "tavo-volume", "tavo-led"}, icinga.services()
    assert "power_consumed" in icinga.services()["tavo-power"][3]
    server.ctl("fan", "remove", "FAN2_TACH1")
    wait_until(lambda: icinga.check("tavo-fan") == (
        WARNING, "TAVO WARNING: fan: fan-module-1-2/fan-1 absent"), what="the fan's absence")
    wait_until(lambda: icinga.check("tavo-fault")[0] in (WARNING, CRITICAL), what="the fault")
    server.ctl("fan", "insert", "FAN2_TACH1")
    wait_until(lambda: icinga.check("tavo-fan") == (OK, "TAVO OK: fan: 15 operable"), what="the fan's return")
    wait_until(lambda: icinga.check("tavo-fault")[0] == OK, what="the end of the fault")


def test_wrong_community_is_unknown(monitored):
    _, icinga = monitored('  vars.tavo_community = "private"\n  vars.tavo_timeout = 1\n'
                          '  vars.tavo_components = [ "fan" ]\n')
    wait_until(lambda: icinga.check("tavo-fan")[1].startswith("TAVO UNKNOWN: 127.0.0.1: no answer within 1 s"),
               what="the check's complaint")
    assert icinga.services()["tavo-fan"][1] == UNKNOWN
