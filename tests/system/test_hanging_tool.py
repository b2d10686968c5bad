"""A tool hangs for ever and a request waits for its table: faults are notified and other tables answered meanwhile."""

import json
import os
import time

import pytest

from agents import BUILD, ROOT, Master, snmp, wait_until
from datagrams import Collector
from delays import Poll, percentile
from engine import Engine
from oids import BASE, MEMORY_TEMPERATURE
from rebuilds import quiet_scenario
from server import ServedDaemon, Server, tools_that_run
from udp_manager import GET, UdpManager

CHANGES = 300
TABLES = [table["oid"] for table in json.loads((BUILD / "tables.json").read_text())["tables"]]


@pytest.mark.parametrize("kind", ["alone", "agentx"])
def test_faults_are_notified_while_a_tool_hangs(start, directory, monkeypatch, kind):
    monkeypatch.setenv("BMCSIM_SOCKET", str(directory / "bmcsim"))
    collector = Collector()
    try:
        server = start(Server, scenario=quiet_scenario(directory))
        destination = f"trap2sink {collector.destination} public\n"
        master = start(Master, ROOT / "host/snmpd-master.conf", more=destination) if kind == "agentx" else None
        # At the usual speed, because a pause of the daemon must not look shorter than it is.
        daemon = start(ServedDaemon, server, master=master, options=["--tool-timeout", "0"],
                       configuration="" if master else destination)
        server.wait_for_listeners()
        walk = snmp("snmpbulkwalk", daemon.address, "-Cr50", BASE)
        cells = [[line.partition(" ")[0][1:] for line in walk if line.startswith(f".{table}.")] for table in TABLES]
        slow = f"{MEMORY_TEMPERATURE}.1"
        others = [names[0] for names in cells if names and slow not in names]  # the fault table has no rows
        assert len(others) == len(TABLES) - 2
        server.ctl("tool", "datactl", "hangs")
        server.ctl("fault", "raise", "1", "class=memory")
        daemon.wait_for_log("MEM refresh requested", timeout=120)
        wait_until(lambda: tools_that_run(daemon), what="the tool that hangs")
        manager = UdpManager(daemon.address)
        manager.send(GET, slow)
        poll = Poll(daemon.address, others)
        engine = Engine(os.environ["BMCSIM_SOCKET"])
        seconds = []
        for number in range(CHANGES):
            before = len(collector.datagrams)
            words = ("fault", "clear", "7") if number % 2 else ("fault", "raise", "7", "class=processor")
            begin = time.monotonic()
            engine.tell(*words)
            wait_until(lambda: len(collector.datagrams) > before, 30, "the notification")
            seconds.append(collector.times[before] - begin)
            engine.wait_for_reply()
        delays = poll.stop()
        manager.receive()
        assert manager.unanswered(), "the tool hangs for ever"
        print(f"{kind}: {CHANGES} notifications, from the fault engine to the datagram: median "
              f"{percentile(seconds, .5) * 1e3:.1f} ms, p99 {percentile(seconds, .99) * 1e3:.1f} ms, maximum "
              f"{max(seconds) * 1e3:.1f} ms; {len(others)} other tables: {delays}")
        assert percentile(seconds, .9) < 0.1
        assert not delays.unanswered and not delays.errors
        assert delays.percentile(.9) < 0.1
    finally:
        collector.stop()
