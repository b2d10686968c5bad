"""The daemon with the real module under valgrind's memcheck: no leak, no invalid read or write."""

import re
import shutil

import pytest

from agents import BUILD, ROOT, TEST_MODULES, Daemon, snmp
from oids import BASE, DAEMON_BASE
from server import MODULE, PLATFORM, SD_TRIGGER, Server, at_speed

SPEED = 12

pytestmark = pytest.mark.skipif(not shutil.which("valgrind"), reason="valgrind is not installed")


def memcheck(report):
    """The words to put before a command so that memcheck writes its report to this file."""
    return ["valgrind", "--leak-check=full", "--show-leak-kinds=definite,indirect,possible", "--num-callers=30",
            f"--suppressions={ROOT}/tests/valgrind.supp", f"--log-file={report}"]


def assert_clean(report):
    found = report.read_text()
    print(found[found.index("HEAP SUMMARY"):])
    assert re.search(r"ERROR SUMMARY: 0 errors", found), found


def test_walks_fault_and_refresh_are_memcheck_clean(start, directory):
    server = start(Server)
    report, pid_file = directory / "memcheck.log", directory / "pid"
    daemon = start(Daemon, module=MODULE, platforms=[PLATFORM], timeout=120,
                   options=["-p", pid_file, "--tool-timeout", 30 * SPEED],
                   program=[*server.entered(), *at_speed(SPEED), *memcheck(report), BUILD / "snmp-subagentd"])
    server.wait_for_listeners()
    for options in (["-Cr1"], ["-Cr50"]):
        assert len(snmp("snmpbulkwalk", daemon.address, *options, BASE, timeout=120)) > 1000
        assert len(snmp("snmpbulkwalk", daemon.address, *options, DAEMON_BASE, timeout=120)) > 150
    server.ctl("fan", "fail", "FAN2_TACH1")
    daemon.wait_for_log("Total Fault entries:5")
    server.ctl("fan", "repair", "FAN2_TACH1")
    daemon.wait_for_log("Removed an entry, Total Fault entries:4")
    server.ctl("drive", "pull", "4", "2")
    server.wait_for_sd_listener(daemon)
    server.ctl("sd-card", "pull", "1")
    daemon.wait_for_log(SD_TRIGGER, count=2)
    # Logged once at the start and once in the periodic refresh, where only the LEDs come later.
    daemon.wait_for_log(r"InventoryPSUviaPMBUSDaemon\n", timeout=120, count=2)
    assert len(snmp("snmpwalk", daemon.address, BASE, timeout=120)) > 1000
    server.run("sh", "-c", f"kill $(cat {pid_file})")
    assert daemon.wait() == 0
    assert_clean(report)


def test_a_stop_without_blocked_threads_leaks_nothing(start, directory):
    report = directory / "memcheck.log"
    daemon = start(Daemon, module=TEST_MODULES / "slow_tables.so", program=[*memcheck(report), BUILD / "snmp-subagentd"],
                   REAL_MODULE=str(MODULE))
    assert len(snmp("snmpbulkwalk", daemon.address, DAEMON_BASE, timeout=60)) > 30
    assert daemon.stop() == 0
    assert_clean(report)
