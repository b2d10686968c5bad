"""The system group: who a manager that knows nothing else finds."""

import re
import signal

from agents import ROOT, TEST_MODULES, Daemon, Master, snmp, wait_until

SYSTEM = "1.3.6.1.2.1.1"
DESCRIPTION, OBJECT_ID, UPTIME, NAME, SERVICES = (f"{SYSTEM}.{column}.0" for column in (1, 2, 3, 5, 7))
SERVER = ".1.3.6.1.4.1.61453.1.3301"
MODULE = TEST_MODULES / "notifier.so"


def system_group(address):
    """{OID: value} of the group's objects."""
    lines = snmp("snmpwalk", address, SYSTEM)
    return {name.lstrip("."): re.sub(r'^[\w-]+: "?(.*?)"?$', r"\1", value)
            for name, value in (line.split(" = ", 1) for line in lines)}


def test_stand_alone_daemon_says_who_it_is(start):
    daemon = start(Daemon, module=MODULE)
    found = system_group(daemon.address)
    assert found[OBJECT_ID] == SERVER
    assert re.fullmatch(r"Management controller of a rack server, snmp-subagentd \d+\.\d+\.\d+", found[DESCRIPTION])
    assert found[SERVICES] == "72"
    assert int(re.search(r"\((\d+)\)", found[UPTIME])[1]) > 0
    daemon.process.send_signal(signal.SIGHUP)
    daemon.wait_for_state("READY=1", count=2)
    assert system_group(daemon.address)[DESCRIPTION] == found[DESCRIPTION]


def test_configuration_replaces_what_the_daemon_says(start):
    daemon = start(Daemon, module=MODULE, configuration="sysName server-7\nsysDescr Seven\nsysObjectID .1.3.6.1.4.1.8\n")
    found = system_group(daemon.address)
    assert (found[NAME], found[DESCRIPTION], found[OBJECT_ID]) == ("server-7", "Seven", ".1.3.6.1.4.1.8")


def test_master_says_the_same_as_a_stand_alone_daemon(start):
    master = start(Master, ROOT / "host/snmpd-master.conf")
    start(Daemon, module=MODULE, master=master)
    wait_until(lambda: snmp("snmpwalk", master.address, SYSTEM, check=False), what="the master")
    found = system_group(master.address)
    assert found[OBJECT_ID] == SERVER
    assert found[DESCRIPTION] == "Management controller of a rack server"
