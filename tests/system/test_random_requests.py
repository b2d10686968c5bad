"""Random requests beside random holds of several tables' locks: each answer is the one that an idle agent gives.

GETs, GETNEXTs and GETBULKs with repetitions, with up to six varbinds over all tables, come from an SNMPv2c and an
SNMPv3 manager, eight at a time. TCP clients leave before their answer, and now and then somebody tries to write.

TAVO_GATE_REQUESTS is how many requests of each kind are sent (default: 300).
"""

import os
import random
import re
import shutil
import socket
import time

import pytest

from agents import BUILD, ROOT, TEST_BASE, free_port, snmp, wait_until
from oids import BASE
from slow_tables import is_sanitized, start_agent
from udp_manager import GEN_ERR, GET, GET_BULK, GET_NEXT, SET, UdpManager, message, pdu
from v3_manager import V3Manager

KINDS = (GET, GET_NEXT, GET_BULK)
REQUESTS = int(os.environ.get("TAVO_GATE_REQUESTS", "300"))
CONFIGURATION = "rwcommunity private\ncreateUser reader SHA readers-password\nrouser reader auth\n"
AT_ONCE = 8
# One of so many requests comes with a client that leaves, or with a SET.
LEAVING, WRITING = 20, 40


class Requests:
    """The same ones each time."""

    def __init__(self, names):
        self._names = names
        self._random = random.Random(1)

    def name(self):
        name = self._random.choice(self._names)
        if self._random.random() < 0.2:  # a column, a table or what no table has
            name = name.rpartition(".")[0]
            return self._random.choice([name, name.rpartition(".")[0], f"{name}.77", f"{TEST_BASE}.6"])
        return name

    def __iter__(self):
        for number in range(REQUESTS * len(KINDS)):
            names = [self.name() for _ in range(self._random.randint(1, 6))]
            kind = KINDS[number % len(KINDS)]
            if kind == GET_BULK:
                yield kind, names, {"first": self._random.randint(0, 2), "second": self._random.randint(0, 8)}
            else:
                yield kind, names, {}


def answer_of(response):
    """The error status, each name, and the values of the module's objects. Others may change at any time."""
    return response.error, [(name, value) if name.startswith(f"{BASE}.") else (name,)
                            for name, *value in response.varbinds]


class LeavingClients:
    """TCP clients that ask and leave a few milliseconds later, without an answer if they ask a busy table."""

    def __init__(self, address):
        host, _, port = address.rpartition(":")
        self._address = (host, int(port))
        self._random = random.Random(2)
        self._connected = []  # (when to leave, client)

    def come(self, kind, names, settings):
        client = socket.create_connection(self._address)
        client.sendall(message(pdu(kind, 1, names, **settings)))
        self._connected.append((time.monotonic() + self._random.uniform(0, 0.01), client))

    def leave(self):
        for at, client in [left for left in self._connected if left[0] < time.monotonic()]:
            client.close()
            self._connected.remove((at, client))


def ask_all(managers, requests, before_each=lambda *request: None, timeout=120):
    """Has the managers ask in turns, a few requests at a time. Returns a (manager, request id) for each request."""
    sent = []
    for number, (kind, names, settings) in enumerate(requests):
        before_each(kind, names, settings)
        manager = managers[number % len(managers)]
        sent.append((manager, manager.send(kind, *names, **settings)))
        deadline = time.monotonic() + timeout
        while (waiting := sum(len(manager.unanswered()) for manager in managers)) >= AT_ONCE:
            for manager in managers:
                manager.receive(0.001 if manager.unanswered() else 0)
            assert time.monotonic() < deadline, f"{waiting} requests are not answered"
    wait_until(lambda: not any(manager.receive(0.05) or manager.unanswered() for manager in managers), timeout,
               "the last answers")
    return sent


MEMCHECK = ["valgrind", "--leak-check=full", "--show-leak-kinds=definite", "--errors-for-leak-kinds=definite",
            "--num-callers=30", f"--suppressions={ROOT}/tests/valgrind.supp"]


@pytest.fixture(params=["alone", "agentx", "dlmod", "memcheck"])
def settings(request, directory):
    """The settings of the agent to start."""
    if request.param != "memcheck":
        return {"kind": request.param}
    if is_sanitized():
        pytest.skip("valgrind cannot run a program built with a sanitizer")
    if not shutil.which("valgrind"):
        pytest.skip("valgrind is not installed")
    return {"kind": "alone", "program": [*MEMCHECK, f"--log-file={directory}/memcheck.log",
                                         BUILD / "snmp-subagentd"]}


def test_each_answer_is_the_idle_one(start, directory, settings):
    tcp = f"127.0.0.1:{free_port(socket.SOCK_STREAM)}"
    agent = start_agent(start, configuration=CONFIGURATION, tcp=tcp, **settings)
    names = [line.partition(" ")[0][1:] for line in snmp("snmpbulkwalk", agent.address, BASE)]
    requests = list(Requests([name for name in names if name.startswith(BASE)]))
    managers = [UdpManager(agent.address), V3Manager(agent.address, "reader", "readers-password")]
    idle = [answer_of(manager.responses[number]) for manager, number in ask_all(managers, requests)]
    clients, chance = LeavingClients(tcp), random.Random(3)
    writers = [UdpManager(agent.address, community) for community in ("public", "private")]
    writes = []  # when

    def disturb(kind, names, settings):
        clients.leave()
        if chance.randrange(LEAVING) == 0:
            clients.come(kind, names, settings)
        if chance.randrange(WRITING) == 0:
            writes.append(time.monotonic())
            chance.choice(writers).send(SET, names[0])

    agent.order("start")
    agent.wait_for_log("holding at random")
    began = time.monotonic()
    sent = ask_all(managers, requests, disturb)
    seconds = time.monotonic() - began
    agent.order("stop")
    agent.wait_for_log("holding no more")
    for writer in writers:
        wait_until(lambda: writer.receive(0.05) or not writer.unanswered(), what="the answers to the writers")
        assert all(response.error for response in writer.responses.values()), "no object can be written"

    refused = 0
    for (manager, number), request, answer in zip(sent, requests, idle):
        response = manager.responses[number]
        if response.error == GEN_ERR and answer[0] != GEN_ERR:
            # A SET ends the waits of all others.
            at = manager.sent_at(number)
            assert any(at - 1 < write < at + response.seconds for write in writes), request
            refused += 1
        else:
            assert answer_of(response) == answer, request
    waited = sum(manager.responses[number].seconds > 0.005 for manager, number in sent)
    print(f"{len(sent)} requests in {seconds:.1f} s, {waited} of which took more than 5 ms; {refused} refused because "
          f"of {len(writes)} SETs")
    assert waited > len(sent) / 20
    assert refused <= AT_ONCE * len(writes)
    agent.stop()
    assert agent.process.returncode == 0, agent.log()[-2000:]
    assert not re.search("Sanitizer|runtime error", agent.log())
    report = directory / "memcheck.log"
    if report.exists():
        found = report.read_text()
        print(found[found.index("HEAP SUMMARY"):])
        assert "ERROR SUMMARY: 0 errors" in found, found
