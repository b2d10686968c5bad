"""./run.sh and simulator/boot, used as from a shell: options, output, exit status, and that nothing is left behind."""

import fcntl
import json
import os
import pathlib
import pty
import re
import select
import shutil
import signal
import socket
import subprocess
import time

import pytest

from agents import BUILD, ROOT, free_port, wait_until
from oids import OBJECTS, PROCESSOR_DN
from server import Server

# The daemon waits five seconds of its clock for the power supplies. Tests that do not look at the clock speed it up.
QUICK = ["--speed", "20"]

# All tables, in the order of their OIDs.
TABLES = [table["name"] for table in sorted(json.loads((BUILD / "tables.json").read_text())["tables"],
                                            key=lambda table: [int(arc) for arc in table["oid"].split(".")])]
# (table, column as it is printed, value in the first row)
FIRST_CELLS = [
    ("tavoAdaptorUnitTable", "Dn", "sys/rack-unit-1/adaptor-2"),
    ("tavoComputeBoardTable", "Model", "BOARD-A"),
    ("tavoComputeRackUnitTable", "ProductName", "Tavolo R2 Rack Server"),
    ("tavoEquipmentFanTable", "Dn", "sys/rack-unit-1/fan-module-1-1/fan-1"),
    ("tavoEquipmentPsuTable", "Model", "SUPPLY-800"),
    ("tavoEquipmentHealthLedTable", "Color", "amber"),
    ("tavoMemoryUnitTable", "Capacity", "16384 MB"),
]


def run(*arguments, timeout=120, **settings):
    return subprocess.run([ROOT / "run.sh", *arguments], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                          timeout=timeout, check=False, **settings)


def boot(*arguments, **settings):
    command = [*settings.pop("prefix", []), settings.pop("program", ROOT / "simulator/boot"), "--build", BUILD,
               *arguments]
    return subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60, check=False,
                          **settings)


def processes_with(text):
    """The command lines that contain `text`."""
    found = []
    for process in pathlib.Path("/proc").glob("[0-9]*/cmdline"):
        try:
            line = process.read_bytes().replace(b"\0", b" ").decode(errors="replace")
        except OSError:
            continue
        if text in line:
            found.append(line)
    return found


def files_in_checkout():
    """All files but those that builds, test runs and git make."""
    ignored = {"build", "__pycache__", ".git", ".pytest_cache"}
    return {path for path in ROOT.rglob("*") if not ignored & set(path.relative_to(ROOT).parts)}


class Terminal:
    """./run.sh on a terminal of its own, as a person runs it."""

    def __init__(self, *arguments):
        self.output = ""
        self.pid, self.descriptor = pty.fork()
        if self.pid == 0:
            os.execv(ROOT / "run.sh", [str(ROOT / "run.sh"), *arguments])

    def read(self, timeout):
        """Reads what is there. False once run.sh has ended."""
        if not select.select([self.descriptor], [], [], timeout)[0]:
            return True
        try:
            chunk = os.read(self.descriptor, 4096)
        except OSError:  # the last process has closed the terminal
            chunk = b""
        self.output += chunk.decode(errors="replace")
        return bool(chunk)

    def wait_for(self, text, timeout=60):
        deadline = time.monotonic() + timeout
        while text not in self.output:
            assert self.read(0.2), f"run.sh ended: {self.output}"
            assert time.monotonic() < deadline, f"no {text!r} in {self.output!r}"

    def wait(self, timeout=60):
        """The exit status."""
        deadline = time.monotonic() + timeout
        while self.read(0.2):
            assert time.monotonic() < deadline, f"run.sh does not end: {self.output!r}"
        os.close(self.descriptor)
        return os.waitstatus_to_exitcode(os.waitpid(self.pid, 0)[1])


@pytest.fixture
def port():
    return str(free_port())


@pytest.fixture
def serving(port):
    """A server that is up, as a process without a terminal."""
    process = subprocess.Popen([ROOT / "run.sh", *QUICK, "--port", port], stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    for line in process.stdout:
        if "Ctrl-C stops it" in line:
            break
    else:
        pytest.fail(f"run.sh exited with {process.wait(60)}")
    yield process
    process.terminate()
    process.wait(60)
    process.stdout.close()


def assert_nothing_left(port):
    assert processes_with(f"127.0.0.1:{port}") == []
    assert not (BUILD / f"server-{port}").exists()
    assert "bmcsim" not in pathlib.Path("/proc/self/mounts").read_text()
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind(("127.0.0.1", int(port)))


def test_once_prints_processors_with_named_columns(port):
    before = files_in_checkout()
    result = run("--once", "--port", port)
    assert result.stderr == ""
    assert result.returncode == 0
    assert re.search(r"^Dn +sys/rack-unit-1/board/cpu-1\b", result.stdout, re.MULTILINE)
    assert "sys/rack-unit-1/board/cpu-2" in result.stdout
    assert re.search(r"^tavoProcessorUnitTable +2 rows$", result.stdout, re.MULTILINE)
    assert re.search(r"^total +\d+ rows, \d+ values, walked in [\d.]+ s$", result.stdout.rstrip().split("\n")[-1])
    assert_nothing_left(port)
    assert files_in_checkout() == before


def test_once_names_all_tables_and_columns(port):
    output = run("--once", *QUICK, "--port", port).stdout
    assert "unnamed table" not in output
    assert not re.search(r"^column \d+ ", output, re.MULTILINE)


def test_once_prints_every_table(serving, port):
    # Empty tables are not printed, and the agent answers before the fault table is filled.
    wait_until(lambda: "broadcaster: 1 listeners" in run("--port", port, "--exec", "bmcsim ctl show faults").stdout,
               what="the faults")
    output = run("--once", "--port", port).stdout
    headings = list(re.finditer(rf"^(\w+)  {re.escape(OBJECTS)}\.[\d.]+$", output, re.MULTILINE))
    assert [heading[1] for heading in headings] == TABLES
    ends = [heading.start() for heading in headings[1:]] + [len(output)]
    printed = {heading[1]: output[heading.end():end] for heading, end in zip(headings, ends)}
    missing = [cell for cell in FIRST_CELLS
               if not re.search(rf"^{cell[1]} +{re.escape(cell[2])}(  |$)", printed[cell[0]], re.MULTILINE)]
    assert missing == []


def test_once_fits_the_width_of_the_terminal(port):
    output = run("--once", *QUICK, "--port", port, env={**os.environ, "COLUMNS": "100"}).stdout
    assert max(map(len, output.splitlines())) <= 100


def test_exec_exits_with_the_command_status(port):
    assert run(*QUICK, "--port", port, "--exec", "exit 7").returncode == 7
    assert run(*QUICK, "--port", port, "--exec", "kill -KILL $$").returncode == 128 + signal.SIGKILL


def test_exec_boots_a_server_if_none_is_up(port):
    result = run(*QUICK, "--port", port, "--exec",
                 f"bmcsim ctl ping && snmpwalk -v2c -c public 127.0.0.1:{port} {PROCESSOR_DN}")
    assert result.returncode == 0
    assert "tavoProcessorUnitDn.1 = STRING: sys/rack-unit-1/board/cpu-1" in result.stdout
    assert_nothing_left(port)


def test_exec_enters_a_running_server(serving, port):
    assert run("--port", port, "--exec", "echo here > /var/note").returncode == 0
    assert not os.path.exists("/var/note")
    result = run("--port", port, "--exec", "cat /var/note; pidof snmp-subagentd; exit 3")
    assert (result.returncode, result.stderr) == (3, "")
    assert re.fullmatch(r"here\n\d+\n", result.stdout)


def test_killed_exec_takes_its_command_along(serving, port):
    sleep = f"sleep 86399.{os.getpid()}"  # unique on this machine
    command = subprocess.Popen([ROOT / "run.sh", "--port", port, "--exec", f"exec {sleep}"], stdin=subprocess.DEVNULL)
    wait_until(lambda: f"{sleep} " in processes_with(sleep), what="the command")
    command.terminate()
    command.wait(60)
    wait_until(lambda: f"{sleep} " not in processes_with(sleep), what="the end of the command")


def test_once_shows_a_running_server(serving, port):
    result = run("--once", "--port", port)
    assert result.returncode == 0
    assert "sys/rack-unit-1/board/cpu-1" in result.stdout


def test_boot_option_for_a_running_server_is_refused(serving, port):
    result = run("--port", port, "--cold", "--exec", "true")
    assert result.returncode == 2
    assert f"a server is up on port {port} already" in result.stderr


def test_second_server_on_the_same_port_is_refused(serving, port):
    result = run("--port", port)
    assert result.returncode == 2
    assert f"a server is up on port {port} already" in result.stderr


def test_servers_on_different_ports_run_side_by_side(serving):
    other = str(free_port())
    assert run(*QUICK, "--port", other, "--exec", "test ! -e /var/note && bmcsim ctl ping").returncode == 0


def test_port_in_use_is_named(port):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as holder:
        holder.bind(("127.0.0.1", int(port)))
        result = run("--once", "--port", port)
    assert result.returncode == 2
    assert f"udp port {port} is in use by another program" in result.stderr


@pytest.mark.parametrize(
    "arguments, complaint",
    [
        (["--twice"], "unknown option '--twice'"),
        (["now"], "unknown option 'now'"),
        (["--exec"], "--exec needs a value"),
        (["--speed", "fast"], "not 'fast'"),
        (["--speed", "0"], "not '0'"),
        (["--port", "70000"], "not '70000'"),
    ],
)
def test_wrong_options_are_named(arguments, complaint):
    result = run(*arguments)
    assert result.returncode == 2
    assert complaint in result.stderr
    assert result.stdout == ""


def test_help_names_every_option():
    result = run("--help")
    assert result.returncode == 0
    alternatives = re.findall(r"^ +(--[a-z-]+(?: \| -[a-z-]+)*)\)", (ROOT / "run.sh").read_text(), re.MULTILINE)
    options = {option for words in alternatives for option in re.findall("--[a-z-]+", words)}
    assert {"--once", "--monitor-port", "--hardware"} <= options
    for option in options:
        assert re.search(rf"^  {option}\b", result.stdout, re.MULTILINE), option


def test_boot_is_warm_unless_cold_is_asked_for(port):
    assert run(*QUICK, "--port", port, "--exec", "test -e /var/tvmcWarmStartup").returncode == 0
    assert run(*QUICK, "--port", port, "--cold", "--exec", "test ! -e /var/tvmcWarmStartup").returncode == 0


def test_agentx_puts_snmpd_in_front(port):
    result = run(*QUICK, "--port", port, "--agentx", "--exec",
                 f"snmpget -v2c -c public -Onvq 127.0.0.1:{port} .1.3.6.1.2.1.1.2.0 {PROCESSOR_DN}.1 && pidof snmpd")
    assert result.stderr == ""
    # sysObjectID is the master's, as the shipped configuration sets it.
    assert re.fullmatch(r".*61453\.1\.3301\nsys/rack-unit-1/board/cpu-1\n\d+\n", result.stdout)
    assert_nothing_left(port)


def test_speed_sets_the_pace_of_the_daemons_clock(port):
    # The agent's uptime in seconds, from the answer to an SNMPv3 manager's first packet.
    uptime = (f"snmpget -v3 -r 1 -l noAuthNoPriv -u nobody -Dlcd 127.0.0.1:{port} .1.3 2>&1 |"
              " sed -n 's/.*boots=1, time=//p' | tail -n 1")
    result = run("--port", port, "--speed", "50", "--exec",
                 f"start=$EPOCHREALTIME; until (( $({uptime}) > 100 )); do sleep 0.1; done; echo $start $EPOCHREALTIME")
    start, end = map(float, result.stdout.split())
    assert end - start < 60  # 100 s take 2 s, or somewhat more on a busy machine


def test_interrupt_stops_everything(port):
    terminal = Terminal(*QUICK, "--port", port)
    terminal.wait_for("Ctrl-C stops it.")
    assert (BUILD / f"server-{port}").exists()
    os.write(terminal.descriptor, b"\x03")
    assert terminal.wait() == 0
    assert_nothing_left(port)


def test_interrupt_reaches_the_command_only(port):
    """The command decides what Ctrl-C means. The server stays up until the command ends."""
    terminal = Terminal(*QUICK, "--port", port, "--exec",
                        "trap 'bmcsim ctl ping && echo still there; exit 9' INT; echo ready;"
                        "while :; do sleep 0.1; done")
    terminal.wait_for("ready")
    os.write(terminal.descriptor, b"\x03")
    assert terminal.wait() == 9
    assert "still there" in terminal.output
    assert_nothing_left(port)


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGHUP])
def test_signal_stops_everything(serving, port, number):
    serving.send_signal(number)
    assert serving.wait(60) == 0
    assert_nothing_left(port)


def test_killed_run_sh_takes_its_server_along(serving, port):
    serving.kill()
    serving.wait(60)
    left_behind = BUILD / f"server-{port}"
    with open(left_behind, encoding="ascii") as state:
        def lock_is_free():
            try:
                fcntl.flock(state, fcntl.LOCK_EX | fcntl.LOCK_NB)
                return True
            except BlockingIOError:
                return False
        wait_until(lock_is_free, what="the end of the lock's holders")
    # When a namespace's first process dies, the kernel closes its files before it kills the processes below it.
    wait_until(lambda: not processes_with(f"127.0.0.1:{port}"), what="the end of all its processes")
    assert run(*QUICK, "--port", port, "--exec", "true").returncode == 0
    assert not left_behind.exists()


def test_daemon_that_dies_is_reported(serving, port):
    run("--port", port, "--exec", "kill -KILL $(pidof snmp-subagentd)")
    output = serving.stdout.read()
    assert serving.wait(60) == 1
    assert "snmp-subagentd ended with status 137" in output


def test_server_boots_for_an_ordinary_user():
    if os.geteuid() != 0:
        pytest.skip("this is an ordinary user already, so every other test covers it")
    nobody = ["setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups"]
    if subprocess.run([*nobody, "test", "-x", BUILD / "bmcsim"], check=False).returncode != 0:
        pytest.skip(f"user nobody cannot read {ROOT}")
    result = boot("--", "sh", "-c", "bmcsim ctl ping >/dev/null && touch /var/mine && id -u", prefix=nobody)
    assert (result.returncode, result.stdout) == (0, "0\n"), result.stderr


def test_checkout_below_tmp_stays_visible(directory):
    checkout = directory / "checkout"
    for name in ["simulator", "scripts"]:
        shutil.copytree(ROOT / name, checkout / name)
    (directory / "kept").mkdir()
    (directory / "hidden").mkdir()
    result = boot("--bind", directory / "kept", "--", "sh", "-c", 'ls "$0"; test -x "$0/checkout/simulator/boot"',
                  directory, program=checkout / "simulator/boot")
    assert (result.returncode, result.stdout.split()) == (0, ["checkout", "kept"]), result.stderr


def test_path_has_front_ends_and_local_programs(port):
    script = ("for name in datactl flatkv slotutil ipmitool; do test -x /usr/local/bin/$name || exit 1; done;"
              "ls /usr/local/bin")
    result = boot("--", "sh", "-c", script)
    assert result.returncode == 0
    assert set(os.listdir("/usr/local/bin")) <= set(result.stdout.split())
    assert not os.path.exists("/usr/local/bin/datactl")


def test_server_reaps_orphans(start):
    """What the daemon kills leaves children whose parent has ended."""
    server = start(Server)
    server.run("sh", "-c", "sh -c 'sleep 0.1 & exec true' & sleep 0.3")

    def zombies():
        return [line for line in server.run("ps", "-eo", "stat,comm").stdout.splitlines() if line.startswith("Z")]
    wait_until(lambda: not zombies(), 5, "no zombies")


def test_boot_explains_refused_namespaces(directory):
    refusing = directory / "unshare"
    refusing.write_text("#!/bin/sh\necho 'unshare failed: Operation not permitted' >&2\nexit 1\n")
    refusing.chmod(0o755)
    result = boot("--", "true", env={**os.environ, "PATH": f"{directory}:{os.environ['PATH']}"})
    assert result.returncode == 1
    assert "Operation not permitted" in result.stderr
    assert "--in-place" in result.stderr
