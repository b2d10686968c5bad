"""The module also loads into Debian's own snmpd."""

from agents import SNMPD, TEST_BASE, TEST_MODULES, Program, free_port, snmpget


def test_a_stock_snmpd_loads_a_module_and_finds_the_platform_in_a_preloaded_library(start, directory):
    address = f"127.0.0.1:{free_port()}"
    configuration = directory / "snmpd.conf"
    configuration.write_text(f"rocommunity public\ndlmod subagent_modules {TEST_MODULES / 'needs_platform.so'}\n")
    snmpd = start(Program, "snmpd", [SNMPD, "-f", "-C", "-c", configuration, "-Lo", f"udp:{address}"], LD_PRELOAD=str(TEST_MODULES / "platform.so"))
    snmpd.wait_for_log("the platform answers 4711")


def test_a_stock_snmpd_serves_what_a_module_registers(start, directory):
    address = f"127.0.0.1:{free_port()}"
    configuration = directory / "snmpd.conf"
    configuration.write_text(f"rocommunity public\ndlmod subagent_modules {TEST_MODULES / 'notifier.so'}\n")
    snmpd = start(Program, "snmpd", [SNMPD, "-f", "-C", "-c", configuration, "-Lo", f"udp:{address}"])
    snmpd.wait_for_log("NET-SNMP version")
    assert snmpget(address, f"{TEST_BASE}.1.0") == [f".{TEST_BASE}.1.0 = INTEGER: 0"]
