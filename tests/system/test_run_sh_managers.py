"""./run.sh for those who test managers: access of their own, other addresses, several servers, small scenarios."""

import json
import re
import signal
import subprocess

import pytest

from agents import BUILD, ROOT, TrapCollector, free_port, snmp, snmpget, wait_until
from oids import BASE, OBJECTS, PROCESSOR_DN
from test_run_sh import QUICK, assert_nothing_left, processes_with, run

SERIAL = f"{OBJECTS}.9.35.1.47.1"
PROCESSORS = f"{OBJECTS}.9.35.1.36.1"
SYSTEM_NAME = "1.3.6.1.2.1.1.5.0"
SECRETS = ["-a", "SHA", "-A", "an authentication secret", "-x", "AES", "-X", "a privacy secret"]
# A user who sees the processors and nothing else.
ACCESS = f"""\
createUser tester SHA "an authentication secret" AES "a privacy secret"
view processors included .{OBJECTS}.41
rouser tester authPriv -V processors
"""


def ask(address, *access, oid=f"{PROCESSOR_DN}.1"):
    command = ["snmpget", *access, "-On", "-r", "1", "-t", "2", address, oid]
    return subprocess.run(command, capture_output=True, text=True, check=False, env={"PATH": "/usr/bin:/bin"})


@pytest.fixture
def serve():
    """serve(option, ...) starts run.sh and waits until it serves; the output until then is its `printed`."""
    running = []

    def start_serving(*options, end="Ctrl-C stops"):
        process = subprocess.Popen([ROOT / "run.sh", *QUICK, *options], stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        running.append(process)
        process.printed = ""
        for line in process.stdout:
            process.printed += line
            if end in line:
                return process
        raise AssertionError(f"run.sh exited with {process.wait(60)}: {process.printed}")

    yield start_serving
    for process in running:
        process.terminate()
        process.wait(60)
        process.stdout.close()


@pytest.fixture
def port():
    return free_port()


@pytest.mark.parametrize("mode", [[], ["--agentx"]], ids=["alone", "agentx"])
def test_config_replaces_the_access_of_everybody(serve, directory, port, mode):
    file = directory / "access.conf"
    file.write_text(ACCESS)
    serve("--port", str(port), "--config", str(file), *mode)
    address = f"127.0.0.1:{port}"
    user = ["-v3", "-l", "authPriv", "-u", "tester", *SECRETS]
    assert "cpu-1" in ask(address, *user).stdout
    assert "No Such Object" in ask(address, *user, oid=SERIAL).stdout  # outside the view
    assert ask(address, "-v2c", "-c", "public").returncode == 1
    # run.sh itself still reaches its server.
    assert "sys/rack-unit-1/board/cpu-1" in run("--once", "--port", str(port)).stdout


def test_config_names_notification_sinks(serve, start, directory, port):
    collector = start(TrapCollector)
    file = directory / "sinks.conf"
    file.write_text(f"trap2sink {collector.destination} public\n")
    serve("--port", str(port), "--config", str(file))
    wait_until(lambda: "broadcaster: 1 listeners" in
               run("--port", str(port), "--exec", "bmcsim ctl show faults").stdout, what="the daemon's listening")
    run("--port", str(port), "--exec", "bmcsim ctl dimm fail DIMM_D1")
    wait_until(lambda: any("mem-10" in line for line in collector.received()), what="the notification")


def test_listen_serves_on_another_address_as_well(serve, port):
    serve("--port", str(port), "--listen", "127.0.0.2")
    for host in ["127.0.0.1", "127.0.0.2"]:
        assert "cpu-1" in snmpget(f"{host}:{port}", f"{PROCESSOR_DN}.1")[0]


def test_listen_serves_on_all_addresses(serve, port):
    serve("--port", str(port), "--listen", "0.0.0.0")
    assert "cpu-1" in snmpget(f"127.0.0.3:{port}", f"{PROCESSOR_DN}.1")[0]


@pytest.mark.parametrize(
    "arguments, complaint",
    [
        (["--config", "/nonexistent.conf"], "cannot read the configuration /nonexistent.conf"),
        (["--listen", "here"], "not 'here'"),
        (["--fleet", "0"], "not '0'"),
        (["--fleet", "2", "--once"], "--fleet serves until Ctrl-C"),
        (["--fleet", "2", "--port", "65535"], "there are no 2 ports from 65535 on"),
        (["--fleet", "2", "--in-place"], "excludes --in-place"),
    ],
)
def test_wrong_options_are_named(arguments, complaint):
    result = run(*arguments)
    assert result.returncode == 2
    assert complaint in result.stderr


def test_smallest_scenario_boots_at_once(directory, port):
    small = directory / "small.yaml"
    small.write_text("server: {}\n")
    # Without --speed: the daemon waits 5 s for the power supplies, and for nothing that the server lacks.
    result = run("--scenario", str(small), "--port", str(port), "--exec",
                 f"snmpget -v2c -c public -OqvU 127.0.0.1:{port} {SERIAL} {PROCESSORS}", timeout=40)
    assert result.stdout.replace('"', "").split() == ["SERIAL-0001", "0"]


def test_fleet_serves_servers_of_their_own():
    first = free_port(count=2)
    fleet = subprocess.Popen([ROOT / "run.sh", *QUICK, "--fleet", "2", "--port", str(first)],
                             stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
    try:
        printed = ""
        for line in fleet.stdout:
            printed += line
            if "Ctrl-C stops" in line:
                break
        assert re.match(r"2 servers are up after \d+ s, ", printed), printed
        addresses = [f"127.0.0.1:{first}", f"127.0.0.1:{first + 1}"]
        serials = [re.search(r'"(.*)"', snmpget(address, SERIAL)[0])[1] for address in addresses]
        assert serials == ["SERIAL-0001-001", "SERIAL-0001-002"]
        names = [snmpget(address, SYSTEM_NAME)[0].rpartition(" ")[2] for address in addresses]
        assert [name.strip('"') for name in names] == ["server-001", "server-002"]
        listed = json.loads((BUILD / f"fleet-{first}.json").read_text())
        assert [(group["targets"], group["labels"]["server"]) for group in listed] == [
            ([addresses[0]], "server-001"), ([addresses[1]], "server-002")]
        # A change of one is no change of the other.
        assert run("--port", str(first + 1), "--exec", "bmcsim ctl server set product-id=OTHER").returncode == 0
        shown = [run("--port", str(first + i), "--exec", "bmcsim ctl show --json server").stdout for i in range(2)]
        assert [json.loads(text)["server"]["product-id"] for text in shown] == ["MODEL-A", "OTHER"]
        assert len(snmp("snmpbulkwalk", addresses[1], BASE)) > 1000
    finally:
        fleet.send_signal(signal.SIGTERM)
        assert fleet.wait(60) == 0
        fleet.stdout.close()
    assert not (BUILD / f"fleet-{first}.json").exists()
    for port in (first, first + 1):
        assert_nothing_left(str(port))


def test_killed_fleet_takes_its_servers_along(port):
    fleet = subprocess.Popen([ROOT / "run.sh", *QUICK, "--fleet", "1", "--port", str(port)],
                             stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
    assert "1 server is up" in fleet.stdout.readline()
    fleet.kill()
    fleet.wait(60)
    fleet.stdout.close()
    wait_until(lambda: not processes_with(f"127.0.0.1:{port}"), what="the end of all its processes")
