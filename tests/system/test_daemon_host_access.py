"""libwrap's rules hold from the moment they are written, though the daemon asks libwrap only while there are some."""

from agents import BUILD, ROOT, TEST_BASE, TEST_MODULES, Daemon, Master, snmp, snmpget, wait_until
from server import Server

OBJECT = f"{TEST_BASE}.1.0"
SYS_DESCR = "1.3.6.1.2.1.1.1.0"
DENY = "/etc/hosts.deny"


def is_answered(daemon):
    return bool(snmp("snmpget", daemon.address, OBJECT, timeout=1, check=False))


def start_on(start, server, configuration=""):
    return start(Daemon, module=TEST_MODULES / "notifier.so", configuration=configuration,
                 program=[*server.entered(), BUILD / "snmp-subagentd"])


def test_rules_hold_as_soon_as_they_are_written(start, directory):
    server = start(Server)
    daemon = start_on(start, server)
    assert is_answered(daemon)
    (directory / "deny").write_text("snmp-subagentd: 127.0.0.1\n")
    server.run("mount", "--bind", directory / "deny", DENY)
    assert not is_answered(daemon)
    daemon.wait_for_log(r"Connection from UDP: \[127.0.0.1\].* REFUSED")
    (directory / "deny").write_text("snmp-subagentd: 192.0.2.1\n")
    wait_until(lambda: is_answered(daemon), 5, "an answer, as the rule is about another host")


def test_shipped_files_log_no_request(start):
    server = start(Server)
    daemon = start_on(start, server, configuration=(ROOT / "host/snmp-subagentd.conf").read_text())
    master = start(Master, ROOT / "host/snmpd-master.conf")
    for agent in (daemon, master):
        assert snmpget(agent.address, SYS_DESCR)
        assert "Connection from" not in agent.log()
