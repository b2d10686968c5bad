"""Debian's own snmpd loads modules with dlmod, and serves the real module's tables."""

import re

import pytest

from agents import BUILD, ROOT, SNMPD, TEST_BASE, TEST_MODULES, Program, free_port, snmp, snmpget, wait_until
from oids import PROCESSOR_DN, PROCESSOR_TABLE


def test_platform_comes_from_a_preloaded_library(start, directory):
    address = f"127.0.0.1:{free_port()}"
    configuration = directory / "snmpd.conf"
    configuration.write_text(f"rocommunity public\ndlmod subagent_modules {TEST_MODULES / 'needs_platform.so'}\n")
    snmpd = start(Program, "snmpd", [SNMPD, "-f", "-C", "-c", configuration, "-Lo", f"udp:{address}"],
                  LD_PRELOAD=str(TEST_MODULES / "platform.so"))
    snmpd.wait_for_log("the platform answers 4711")


def test_module_objects_are_served(start, directory):
    address = f"127.0.0.1:{free_port()}"
    configuration = directory / "snmpd.conf"
    configuration.write_text(f"rocommunity public\ndlmod subagent_modules {TEST_MODULES / 'notifier.so'}\n")
    snmpd = start(Program, "snmpd", [SNMPD, "-f", "-C", "-c", configuration, "-Lo", f"udp:{address}"])
    snmpd.wait_for_log("NET-SNMP version")
    assert snmpget(address, f"{TEST_BASE}.1.0") == [f".{TEST_BASE}.1.0 = INTEGER: 0"]


def test_processors_of_the_simulated_server_are_served(start, directory):
    address = f"127.0.0.1:{free_port()}"
    configuration = directory / "snmpd.conf"
    module = BUILD / "libsnmpextmibmodule.so"
    if re.search(rb"__[at]san_init", module.read_bytes()):
        pytest.skip("Debian's snmpd cannot load a module built with a sanitizer")
    configuration.write_text(f"rocommunity public\ndlmod subagent_modules {module}\n")
    start(Program, "snmpd", [ROOT / "simulator/boot", "--build", BUILD, "--bind", directory, "--", "env",
                             f"LD_PRELOAD={BUILD / 'libbmcsim.so'}", SNMPD, "-f", "-C", "-c", configuration,
                             "-I", "-smux", "-Lo", f"udp:{address}"])
    first_dn = f"{PROCESSOR_DN}.1"
    answer = wait_until(lambda: snmpget(address, first_dn, timeout=0.5, check=False), 60, "snmpd's answer")
    assert answer == [f'.{first_dn} = STRING: "sys/rack-unit-1/board/cpu-1"']
    rows = snmp("snmpbulkwalk", address, PROCESSOR_TABLE)
    assert rows and len(rows) % 2 == 0  # two processors
