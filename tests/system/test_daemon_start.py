"""The daemon's start: message and exit status when it fails, listening addresses, log options, going to background."""

import os
import re
import signal
import socket
import subprocess
import time

import pytest

from agents import BUILD, TEST_BASE, TEST_MODULES, Daemon, TrapCollector, environment, free_port, snmpget, wait_until
from server import ServedDaemon, Server, has_ended

DAEMON = BUILD / "snmp-subagentd"
NOTIFIER = TEST_MODULES / "notifier.so"
NEEDS_INVENTORY = TEST_MODULES / "needs_inventory.so"


def run(directory, *arguments):
    """Runs the daemon until its command returns."""
    return subprocess.run([DAEMON, *map(str, arguments)], capture_output=True, text=True, timeout=20,
                          env=environment(directory))


def test_bad_option_is_named(directory):
    result = run(directory, "-f", "--bogus")
    assert result.returncode == 2
    assert "--bogus" in result.stderr


@pytest.mark.parametrize("arguments", [["-x", "unix:/nowhere", "--listen", "udp:127.0.0.1:1"], ["-c"],
                                       ["--notification-limit", "none"], ["-LQ"]], ids=str)
def test_senseless_options_are_refused(directory, arguments):
    result = run(directory, "-f", "-C", *arguments)
    assert result.returncode == 2
    assert "snmp-subagentd: " in result.stderr


def test_missing_configuration_file_is_named(directory):
    result = run(directory, "-f", "-C", "-c", directory / "absent.conf", "--module", NOTIFIER)
    assert result.returncode == 3
    assert f"cannot read configuration file {directory}/absent.conf: No such file or directory" in result.stderr


def test_a_wrong_line_of_a_configuration_is_named(start, directory):
    """The lines around it hold."""
    collector = start(TrapCollector)
    daemon = start(Daemon, module=NOTIFIER, configuration=f"""rocomunity private
rouser
trap2sink {collector.destination} public
""")
    for line, complaint in ((1, "Warning: Unknown token: rocomunity"), (2, "Error: Blank line following rouser token")):
        assert f"{directory}/subagentd.conf: line {line}: {complaint}" in daemon.log()
    assert snmpget(daemon.address, f"{TEST_BASE}.1.0")
    daemon.order("send 1 1 0")
    collector.wait_for_log(re.escape(TEST_BASE))
    assert daemon.stop() == 0


def test_missing_platform_library_is_named(directory):
    result = run(directory, "-f", "-C", "--platform", directory / "libabsent.so", "--module", NOTIFIER)
    assert result.returncode == 4
    assert f"cannot load platform library {directory}/libabsent.so" in result.stderr


def test_missing_module_is_named(directory):
    result = run(directory, "-f", "-C", "--module", directory / "absent.so")
    assert result.returncode == 5
    assert f"cannot load module {directory}/absent.so" in result.stderr


def test_module_must_be_a_shared_object(directory):
    text = directory / "text.so"
    text.write_text("not a shared object\n")
    result = run(directory, "-f", "-C", "--module", text)
    assert result.returncode == 5
    assert str(text) in result.stderr


def test_missing_platform_symbol_is_named(directory):
    result = run(directory, "-f", "-C", "--module", TEST_MODULES / "needs_platform.so")
    assert result.returncode == 6
    assert "undefined symbol: tavo_test_platform_answer" in result.stderr


def test_missing_function_behind_the_daemons_is_named(directory):
    result = run(directory, "-f", "-C", "--module", NEEDS_INVENTORY)
    assert result.returncode == 6
    assert f"cannot load module {NEEDS_INVENTORY}: undefined symbol: GetCPUItems\n" in result.stderr


def test_function_behind_the_daemons_is_called(start):
    daemon = start(Daemon, module=NEEDS_INVENTORY, platforms=[BUILD / "libbmcsim.so"])
    daemon.wait_for_log("the inventory answers -1")  # there is no server


def test_module_without_entry_point_is_refused(directory):
    result = run(directory, "-f", "-C", "--module", TEST_MODULES / "no_entry.so")
    assert result.returncode == 6
    assert "has no init_subagent_modules" in result.stderr


def test_block_needs_a_module_with_a_chassis_link(directory):
    (directory / "block").write_text("block")
    result = run(directory, "-f", "-C", "--module", NOTIFIER, "--chassis-block", directory / "block")
    assert result.returncode == 6
    assert f"module {NOTIFIER} has no create_cmc_thread" in result.stderr


@pytest.mark.parametrize("trouble, reason", [
    ("absent", "No such file or directory"),
    ("a directory", "not a regular file"),
    ("a FIFO", "not a regular file"),
    ("endless", "not a regular file"),
    ("too large", "larger than 16777216 octets"),
])
def test_unreadable_chassis_block_is_named(directory, trouble, reason):
    block = directory / "block"
    if trouble == "a directory":
        block.mkdir()
    elif trouble == "a FIFO":
        os.mkfifo(block)
    elif trouble == "endless":
        block.symlink_to("/dev/zero")
    elif trouble == "too large":
        with open(block, "wb") as file:
            file.truncate(1 << 40)
    result = run(directory, "-f", "-C", "--platform", BUILD / "libbmcsim.so", "--module",
                 BUILD / "libsnmpextmibmodule.so", "--chassis-block", block)
    assert result.returncode == 3
    assert f"cannot read the chassis link's block {block}: {reason}" in result.stderr


def test_port_in_use_is_named(directory):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as taken:
        taken.bind(("127.0.0.1", 0))
        address = f"udp:127.0.0.1:{taken.getsockname()[1]}"
        result = run(directory, "-f", "-C", "--module", NOTIFIER, "--listen", address)
    assert result.returncode == 7
    assert f"cannot listen on {address}" in result.stderr


def free_descriptors(directory, limit):
    """How many a start that refuses to go on says that it has."""
    command = ["prlimit", f"--nofile={limit}", "--", DAEMON, "-f", "-C", "--module", NOTIFIER, "--listen",
               f"udp:127.0.0.1:{free_port()}"]
    result = subprocess.run(command, capture_output=True, text=True, timeout=20, env=environment(directory))
    assert result.returncode == 1
    said = re.search(rf"only (\d+) descriptors are free, 48 are needed: Too many open files \(limit: {limit}\)",
                     result.stderr)
    return int(said[1])


@pytest.mark.parametrize("limit", [7, 9, 12, 16, 40])
def test_too_few_descriptors_are_named(directory, limit):
    assert free_descriptors(directory, limit) < 48


def test_one_descriptor_too_few_is_named(directory):
    assert free_descriptors(directory, 20 + 47 - free_descriptors(directory, 20)) == 47


def test_a_user_that_cannot_write_dumps_is_told(start, directory):
    if os.geteuid() != 0:
        pytest.skip("needs root, to become another user")
    directory.chmod(0o777)
    warning = "cannot write /var: Permission denied. What tables take from there stays empty"
    other = start(Daemon, module=NOTIFIER, ready=False,
                  program=["setpriv", "--reuid=54321", "--clear-groups", DAEMON])
    other.wait_for_log("snmp-subagentd .* serves")
    assert f"user 54321 {warning}" in other.log()
    assert other.log().index(warning) < other.log().index(" serves")
    other.stop()
    usual = start(Daemon, module=NOTIFIER)
    assert warning not in usual.log()


def test_too_few_threads_are_named(directory):
    if os.geteuid() != 0:
        pytest.skip("needs root, to become a user without any process")
    # The limit counts the user's processes, and root has none.
    command = ["setpriv", "--reuid=54321", "--clear-groups", "prlimit", "--nproc=8", "--", DAEMON, "-f", "-C",
               "--module", NOTIFIER, "--listen", f"udp:127.0.0.1:{free_port()}"]
    result = subprocess.run(command, capture_output=True, text=True, timeout=20, env=environment(directory), cwd="/")
    assert result.returncode == 1
    assert re.search(r"only \d+ threads can be created, 16 are needed: .* \(limit: 8\)", result.stderr)
def test_missing_thread_of_the_module_fails_the_start(start):
    preload = os.pathsep.join(filter(None, [str(TEST_MODULES / "no_event_thread.so"), os.environ.get("LD_PRELOAD")]))
    daemon = start(ServedDaemon, start(Server), ready=False, LD_PRELOAD=preload)
    with pytest.raises(AssertionError, match="the daemon exited with 1"):
        daemon.wait_for_state("READY=1")
    reason = "cannot create a thread of the module: create_FE_thread: Resource temporarily unavailable"
    assert f"snmp-subagentd: {reason}" in daemon.log()
    assert f"STATUS={reason}" in daemon.states


def test_help_and_version_go_to_standard_output(directory):
    for option, text in (("-h", "Usage: snmp-subagentd"), ("-v", "snmp-subagentd ")):
        result = run(directory, option)
        assert result.returncode == 0
        assert text in result.stdout
        assert result.stderr == ""


def test_platform_library_serves_the_module(start):
    daemon = start(Daemon, module=TEST_MODULES / "needs_platform.so", platforms=[TEST_MODULES / "platform.so"])
    assert "the platform answers 4711" in daemon.log()


def test_daemon_listens_on_every_address_given(start):
    second = f"127.0.0.1:{free_port()}"
    daemon = start(Daemon, module=NOTIFIER, options=["--listen", f"udp:{second}"])
    for address in (daemon.address, second):
        assert snmpget(address, f"{TEST_BASE}.1.0") == [f".{TEST_BASE}.1.0 = INTEGER: 0"]


def test_log_options_are_those_of_net_snmp(directory, start):
    level = start(Daemon, module=NOTIFIER, options=["-LF", "0-7", directory / "all.txt"])
    level.order("send 1 1 1")
    wait_until(lambda: "sent number 1" in (directory / "all.txt").read_text(), what="the line of level 7")


def test_traces_appear_for_the_tokens_named(start):
    daemon = start(Daemon, module=NOTIFIER, options=["-D", "snmp_agent,trap"])
    assert "registered debug token trap" in daemon.log()


def test_background_start_returns_when_daemon_serves(directory):
    address = f"127.0.0.1:{free_port()}"
    configuration = directory / "daemon.conf"
    configuration.write_text("rocommunity public\n")
    pid_file = directory / "pid"
    result = run(directory, "-C", "-c", configuration, "-Lf", directory / "daemon.log", "-p", pid_file, "--module",
                 NOTIFIER, "--listen", f"udp:{address}")
    assert result.returncode == 0, result.stderr
    pid = int(pid_file.read_text())
    try:
        assert snmpget(address, f"{TEST_BASE}.1.0") == [f".{TEST_BASE}.1.0 = INTEGER: 0"]
        assert os.getsid(pid) == pid
    finally:
        os.kill(pid, signal.SIGTERM)
    wait_until(lambda: has_ended(pid), what="the end of the daemon")
    assert not pid_file.exists()


def test_failed_background_start_returns_its_status(directory):
    result = run(directory, "-C", "-Lf", directory / "daemon.log", "--module", directory / "absent.so")
    assert result.returncode == 5
    assert "cannot load module" in result.stderr


def test_a_cold_start_does_not_wait_for_faults(start):
    """The module lists them a minute later."""
    daemon = start(ServedDaemon, start(Server, cold=True), ready=False)
    daemon.wait_for_log("EventThread Init done")
    begin = time.monotonic()
    daemon.wait_for_state("READY=1")
    assert time.monotonic() - begin < 2.5, "the wait would take 3 s"
