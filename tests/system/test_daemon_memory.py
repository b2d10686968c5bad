"""An allocation that fails costs what it was for: a start says why it ends, a daemon that serves goes on.

net-snmp and the libraries below it do not check all of theirs; what they cannot bear ends the process by a signal, or
costs a line of the configuration. docs/daemon.md says so. TAVO_MALLOC_STEP: a start is tried with every so many-th
allocation failing (default 40).
"""

import collections
import concurrent.futures
import os
import pathlib
import re
import shutil
import signal
import tempfile
import time

from agents import BUILD, TEST_BASE, TEST_MODULES, Daemon, snmp, snmpget, wait_until
from datagrams import Collector
from failing_malloc import FailingMalloc

NOTIFIER = TEST_MODULES / "notifier.so"
SENT = f"{TEST_BASE}.1.0"
STEP = int(os.environ.get("TAVO_MALLOC_STEP", 40))


def daemon_with(directory, memory, **settings):
    return Daemon(directory, module=NOTIFIER, program=memory.command(BUILD / "snmp-subagentd"), **settings)


def outcome_of_a_start(number, own_only):
    """What comes of a start whose allocation of this number fails, and how many allocations there were."""
    directory = pathlib.Path(tempfile.mkdtemp(prefix="tavo-"))
    memory = FailingMalloc(directory / "orders", own_only)
    memory.fail(number)
    daemon = daemon_with(directory, memory, ready=False)
    try:
        wait_until(lambda: "READY=1" in daemon.states or has_ended(daemon), what=f"READY or an end ({number})")
        allocations = memory.count
        if daemon.process.poll() is not None:
            status = daemon.process.returncode
            if status < 0:
                return f"signal {-status}", allocations
            says_why = re.search("^snmp-subagentd: .", daemon.log(), re.MULTILINE)
            return f"status {status}, {'says why' if says_why else 'silent'}", allocations
        # A table may be absent, but an answer must come: within seconds, on a busy machine.
        if snmp("snmpget", daemon.address, SENT, timeout=5, retries=1, check=False):
            return "serves", allocations
        return "lacks a line of its configuration" if listens(daemon) else "ready but deaf", allocations
    finally:
        daemon.stop()
        shutil.rmtree(directory, ignore_errors=True)


def listens(daemon):
    port = int(daemon.address.rpartition(":")[2])
    lines = pathlib.Path("/proc/net/udp").read_text().splitlines()[1:]
    return any(line.split()[1].endswith(f":{port:04X}") for line in lines)


def has_ended(daemon):
    if daemon.process.poll() is not None:
        return True
    try:
        daemon.wait_for_state("READY=1", timeout=0.05)
    except AssertionError:
        return daemon.process.poll() is not None
    return False


def outcomes(numbers, own_only):
    """{outcome: [numbers]}"""
    found = collections.defaultdict(list)
    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        for number, (outcome, _) in zip(numbers, pool.map(lambda each: outcome_of_a_start(each, own_only), numbers)):
            found[outcome].append(number)
    for outcome, where in sorted(found.items()):
        print(f"{len(where):5} {outcome}: {where[:10]}")
    return found


def is_good(outcome):
    return outcome == "serves" or "says why" in outcome


def test_a_start_says_what_it_lacks_memory_for():
    """Every allocation of the daemon's own code, one by one."""
    _, allocations = outcome_of_a_start(0, own_only=True)
    found = outcomes(range(1, allocations + 1, max(1, STEP // 20)), own_only=True)
    assert {outcome for outcome in found if not is_good(outcome)} == set()


def test_a_start_short_of_memory_is_never_deaf():
    """Allocations of net-snmp and all the others as well."""
    _, allocations = outcome_of_a_start(0, own_only=False)
    found = outcomes(range(1, allocations + 1, STEP), own_only=False)
    # The libraries do not check all of theirs, see above.
    tolerated = {f"signal {int(number)}" for number in (signal.SIGSEGV, signal.SIGABRT)}
    tolerated.add("lacks a line of its configuration")
    assert {outcome for outcome in found if not is_good(outcome)} <= tolerated


def test_a_daemon_survives_failing_allocations(start, directory):
    collector = Collector()
    memory = FailingMalloc(directory / "orders", own_only=True)
    try:
        daemon = start(daemon_with, memory, configuration=f"trap2sink {collector.destination} public\n")
        daemon.order("send 1 10 10")
        wait_until(lambda: len(collector.datagrams) == 10, what="the first notifications")
        memory.fail_one_in(50)
        daemon.order("send 11 5000 10")
        for _ in range(3):
            daemon.signal(signal.SIGHUP)
            time.sleep(0.2)
        # The module itself is not to suffer.
        daemon.wait_for_log("sent number 5010\n")
        memory.fail_one_in(0)
        failed = memory.failed
        daemon.signal(signal.SIGHUP)
        daemon.order("send 5011 1 10")
        daemon.wait_for_log("sent number 5011\n")
        wait_until(lambda: snmpget(daemon.address, SENT) == [f".{SENT} = INTEGER: 5011"], what="an answer")

        def lost():
            return sum(int(count) for count in re.findall(r"(\d+) notifications lost", daemon.log()))
        print(f"{failed} allocations failed, {lost()} notifications lost")
        assert failed > 20
        wait_until(lambda: len(collector.datagrams) + lost() == 5011, what="each one received or counted")
        assert lost() > 0
    finally:
        collector.stop()
