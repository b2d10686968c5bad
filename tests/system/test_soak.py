"""Soak: everything at once. Managers walk through an AgentX master while hardware fails and comes back, storage and SD
cards change, tools go wrong, the chassis controller connects, signals arrive and the master restarts.

TAVO_SOAK_HOURS is the duration on the daemon's clock (default: 0.2). With TAVO_SOAK_RECORD, a file, each sample is
written there for scripts/plot-soak.
"""

import collections
import contextlib
import itertools
import math
import os
import random
import signal
import time

from agents import ROOT, Master, wait_until
from datagrams import Collector, varbinds
from managers import Managers
from oids import BASE, CLEARED, OBJECTS, RAISED
from server import ServedDaemon, Server
from test_chassis_link import BLOCK, client, private_network, receive  # noqa: F401, the network is used by its name
from test_endurance import Changer, Console
from udp_manager import GET, UdpManager

HOURS = float(os.environ.get("TAVO_SOAK_HOURS", "0.2"))
RECORD = os.environ.get("TAVO_SOAK_RECORD")
SPEED = 60
TURN = 60  # seconds on the daemon's clock between two changes
MASTER_CONFIGURATION = ROOT / "host/snmpd-master.conf"
TRAP_NAME = "1.3.6.1.6.3.1.1.4.1.0"
BURST = 50  # notifications that a killed master may have taken without saying so
RACK_UNIT_DN = f"{OBJECTS}.9.35.1.2.1"
COLUMNS = "hours,kib,descriptors,threads,milliseconds"


class FewManagers(Managers):
    count = 2


class World:
    def __init__(self, start, directory, collector):
        self._start = start
        self._block = directory / "block"
        self._block.write_bytes(BLOCK)
        self.server = start(Server)
        self.master = self._new_master(collector)
        self._collector = collector
        # On the daemon's clock, the master would otherwise have a sixtieth of a second to answer a ping.
        self.daemon = start(ServedDaemon, self.server, SPEED, master=self.master,
                            options=["--chassis-block", self._block],
                            configuration=f"agentXPingInterval {SPEED}\nagentXTimeout {5 * SPEED}\n")
        self.server.wait_for_listeners()
        self.console = Console(self.server)
        self.changer = Changer(self.console)
        self.done = collections.Counter()
        self._random = random.Random(4807)
        self._bad_tool = None

    def _new_master(self, collector, **settings):
        return self._start(Master, MASTER_CONFIGURATION, trap_destination=collector.destination, **settings)

    def restart_master(self):
        """Kills it and stops it by turns."""
        kills = self.done["master restarts"] % 2 == 0
        serving = f"STATUS=serving through {self.master.agentx}"
        served = self.daemon.states.count(serving)
        self.master.signal(signal.SIGKILL if kills else signal.SIGTERM)
        self.master.wait()
        self.master = self._new_master(self._collector, udp_port=self.master.port)
        self.daemon.wait_for_state(serving, count=served + 1)

    def visit_chassis_link(self):
        with client() as peer:
            assert receive(peer, len(BLOCK)) == BLOCK
            if self._random.random() < 0.5:
                peer.sendall(b"again")
                assert receive(peer, len(BLOCK)) == BLOCK

    def change_a_tool(self):
        """Lets a tool go wrong, or the one that has gone wrong be well again."""
        if self._bad_tool:
            self.console.ctl(f"tool {self._bad_tool} ok")
            self._bad_tool = None
            return
        self._bad_tool = self._random.choice(["datactl", "flatkv", "slotutil"])
        self.console.ctl(f"tool {self._bad_tool} {self._random.choice(['missing', 'silent', 'garbled', 'killed'])}")

    def mend(self):
        self.changer.mend_all()
        if self._bad_tool:
            self.change_a_tool()

    # {what: every how many turns}
    EVENTS = {"SIGHUP": 11, "SIGUSR1": 7, "chassis peers": 5, "tool changes": 3, "storage events": 13,
              "master restarts": 45}

    def turn(self, number):
        self.changer.turn()
        actions = {"SIGHUP": lambda: self.daemon.signal(signal.SIGHUP),
                   "SIGUSR1": lambda: self.daemon.signal(signal.SIGUSR1),
                   "chassis peers": self.visit_chassis_link,
                   "tool changes": self.change_a_tool,
                   "storage events": lambda: self.console.ctl("storage-event 7 3"),
                   "master restarts": self.restart_master}
        for what, every in self.EVENTS.items():
            if number % every == 0:
                actions[what]()
                self.done[what] += 1

    def sample(self):
        """(KiB resident, descriptors, threads, milliseconds that a GET through the master took)."""
        manager = UdpManager(self.master.address)
        request = manager.send(GET, RACK_UNIT_DN)
        deadline = time.monotonic() + 20
        while request not in manager.responses and time.monotonic() < deadline:
            manager.receive(0.1)
        took = manager.responses[request].seconds * 1000 if request in manager.responses else float("nan")
        return (self.daemon.resident_kib(), len(os.listdir(f"/proc/{self.daemon.pid}/fd")),
                len(os.listdir(f"/proc/{self.daemon.pid}/task")), took)


def soaked(world, hours):
    """Lets the hours pass. Returns the samples: (hours, *World.sample())."""
    samples = []
    began = time.monotonic()
    with open(RECORD, "w") if RECORD else contextlib.nullcontext() as record:
        if record:
            print(COLUMNS, file=record)
        for number in itertools.count(1):
            passed = (time.monotonic() - began) * SPEED / 3600
            if passed >= hours:
                return samples
            world.turn(number)
            samples.append((passed, *world.sample()))
            if record:
                print(",".join(f"{figure:.4g}" if isinstance(figure, float) else str(figure)
                               for figure in samples[-1]), file=record, flush=True)
            time.sleep(max(0, began + number * TURN / SPEED - time.monotonic()))


def fault_notifications(collector):
    return sum(1 for datagram in collector.datagrams if varbinds(datagram).get(TRAP_NAME) in (RAISED, CLEARED))


def test_everything_at_once_costs_nothing_in_the_end(start, directory):
    collector = Collector()
    try:
        world = World(start, directory, collector)
        managers = FewManagers(world.master, directory, BASE, last=f"{BASE}.1.45.36", pause=60 / SPEED)
        try:
            samples = soaked(world, HOURS)
            world.mend()
        finally:
            managers.stop()
            world.console.close()
        sent = world.changer.notifications + world.done["SIGUSR1"]
        wait_until(lambda: fault_notifications(collector) >= sent, what=f"{sent} notifications")
        arrived = fault_notifications(collector)
    finally:
        collector.stop()

    milliseconds = sorted(sample[4] for sample in samples if not math.isnan(sample[4]))
    half = len(samples) // 2
    print(f"{samples[-1][0]:.1f} hours of the daemon, {world.changer.changes} changes, {dict(world.done)}, {arrived} of "
          f"{sent} notifications, {managers.walks} walks, {len(managers.failures)} of them cut short")
    print(f"GET: median {milliseconds[len(milliseconds) // 2]:.1f} ms, slowest {milliseconds[-1]:.1f} ms, "
          f"{len(samples) - len(milliseconds)} of {len(samples)} unanswered")
    early, late = ([max(sample[1] for sample in part), *(min(sample[which] for sample in part) for which in (2, 3))]
                   for part in (samples[:half], samples[half:]))
    print(f"most KiB, fewest descriptors and threads: {early} in the first half, {late} in the second")

    restarts = world.done["master restarts"]
    assert arrived <= sent + BURST * restarts
    assert len(managers.failures) <= 3 * managers.count * restarts
    assert len(samples) - len(milliseconds) <= restarts
    if HOURS >= 2:  # before, a few samples show what is open for a moment, and memory grows to what all of it takes
        assert late[0] <= early[0] + 512
        assert late[1] <= early[1], "descriptors"
        assert late[2] <= early[2], "threads"
    assert world.daemon.stop() == 0
