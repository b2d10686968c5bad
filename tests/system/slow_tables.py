"""Programs with modules/slow_tables.cpp, which holds the locks of the real module's tables on command."""

import json
import os
import re

import pytest

from agents import BUILD, ROOT, SNMPD, TEST_MODULES, Daemon, Master, Program, free_port
from server import PLATFORM, ServedDaemon

MASTER_CONFIGURATION = ROOT / "host/snmpd-master.conf"
MODULE = TEST_MODULES / "slow_tables.so"
REAL_MODULE = BUILD / "libsnmpextmibmodule.so"
PROCESSOR_LOCK, STORAGE_LOCK = "ev 41", "subagent 2"


def is_sanitized():
    return bool(re.search(rb"__[at]san_init", REAL_MODULE.read_bytes()))


class Snmpd(Program):
    """Debian's snmpd, which loads the module itself."""

    order = Daemon.order

    def __init__(self, directory, server=None, configuration="", tcp=None, **extra_environment):
        port = free_port()
        self.address = f"127.0.0.1:{port}"
        file = directory / "snmpd.conf"
        file.write_text(f"rocommunity public\ndontLogTCPWrappersConnects yes\n{configuration}\n"
                        f"dlmod subagent_modules {MODULE}\n")
        self.control = directory / "control"
        os.mkfifo(self.control)
        on_server = [*server.entered(), "env", f"LD_PRELOAD={PLATFORM}"] if server else []
        super().__init__(directory, "snmpd",
                         [*on_server, SNMPD, "-f", "-C", "-c", file, "-I", "-smux", "-Lo", f"udp:{self.address}",
                          *([f"tcp:{tcp}"] if tcp else [])],
                         TEST_MODULE_CONTROL=str(self.control), **extra_environment)
        self.wait_for_log("NET-SNMP version")


def start_agent(start, kind, configuration="", server=None, tcp=None, **settings):
    """A program with the module, which obeys orders and answers at its address, and at `tcp` if that is given.

    `kind`: alone, agentx or dlmod. On a simulated server it has the whole module, otherwise the tables that
    modules/slow_tables.cpp lists.
    """
    settings["REAL_MODULE"] = str(REAL_MODULE)
    if server:
        settings |= {"server": server, "WHOLE_MODULE": "yes"}
    if kind == "dlmod":
        if is_sanitized():
            pytest.skip("Debian's snmpd cannot load a module built with a sanitizer")
        return start(Snmpd, configuration=configuration, tcp=tcp, **settings)
    if kind == "agentx":
        settings["master"] = start(Master, MASTER_CONFIGURATION, more=configuration, tcp=tcp)
    else:
        settings |= {"configuration": configuration, "options": ["--listen", f"tcp:{tcp}"] if tcp else []}
    return start(ServedDaemon if server else Daemon, module=MODULE, **settings)


def hold(agent, lock, seconds):
    """Holds a lock, named as tables.json names it."""
    agent.order(f"hold {lock} {seconds}")
    agent.wait_for_log(f"holding {lock}")


def locks():
    """{lock: the OIDs of the tables whose lists it guards}, as tables.json calls them."""
    found = {}
    for table in json.loads((BUILD / "tables.json").read_text())["tables"]:
        found.setdefault(table["lock"], []).append(table["oid"])
    return found
