"""contrib/resync: a manager's list of faults is right in the end, and never lacks an active fault, whatever gets lost.

TAVO_RESYNC_RUNS is the number of random runs, TAVO_SEED the first number of their random generator.
"""

import collections
import json
import os
import random
import re
import signal
import subprocess
import sys

import pytest

from agents import ROOT, Master, Program, wait_until
from datagrams import Collector
from engine import Engine
from server import ServedDaemon, Server

sys.path.insert(0, str(ROOT / "contrib/resync"))
sys.dont_write_bytecode = True  # what stands in contrib/ is installed
import tavo_resync  # noqa: E402

TOOL = ROOT / "contrib/resync/tavo_resync.py"
RUNS = int(os.environ.get("TAVO_RESYNC_RUNS", "8"))
SEVERITIES = ["cleared", "info", "condition", "warning", "minor", "major", "critical"]
# Classes for which no table is rebuilt, and few indexes, so that classes share them.
CLASSES, INDEXES = (4, 100, 4294967295), range(1, 7)
CHANGE_LIMIT = 60


def state(severity=5):
    return {"severity": severity, "description": ""}


def summary(epoch=1, changes=0, oldest=0, active=0, complete=True):
    return tavo_resync.Summary(epoch, changes, 0, oldest, active, complete)


class ScriptedAgent:
    """Answers in the order given, and keeps what it was asked for."""

    def __init__(self, summaries, faults=(), log=()):
        self._summaries, self._faults, self._log = list(summaries), list(faults), list(log)
        self.asked = []

    def summary(self):
        return self._summaries.pop(0)

    def faults(self):
        self.asked.append("faults")
        return self._faults.pop(0)

    def log(self, first, last):
        if first <= last:
            self.asked.append((first, last))
        return [change for change in self._log if first <= change.number <= last]


def view_of(faults, epoch=1, change=4, whole=True):
    view = tavo_resync.View()
    view.epoch, view.change, view.whole, view.faults = epoch, change, whole, dict(faults)
    return view


def events_of(view, agent):
    return [(event["event"], event["fault"]) for event in view.bring_in_step(agent)]


def test_nothing_is_read_if_nothing_was_missed():
    agent = ScriptedAgent([summary(changes=4, oldest=1, active=1)])
    assert events_of(view_of({"4.1": state()}), agent) == []
    assert agent.asked == []


def test_missed_changes_are_read_from_the_log():
    change = tavo_resync.Change
    log = [change(5, "4.2", state()), change(6, "4.1", state(0)), change(7, "4.9", state(0)),
           change(8, "4.2", state(3))]
    agent = ScriptedAgent([summary(changes=8, oldest=5, active=1)], log=log)
    view = view_of({"4.1": state()})
    assert events_of(view, agent) == [("raised", "4.2"), ("cleared", "4.1"), ("updated", "4.2")]
    assert (agent.asked, view.faults, view.change) == ([(5, 8)], {"4.2": state(3)}, 8)


@pytest.mark.parametrize("now", [summary(1, 9, 6, 2), summary(2, 9, 5, 2), summary(1, 9, 0, 2)],
                         ids=["log too short", "other epoch", "no log"])
def test_otherwise_all_faults_are_read(now):
    agent = ScriptedAgent([now, now], faults=[{"4.1": state(), "4.3": state()}])
    assert events_of(view_of({"4.1": state(), "4.2": state()}), agent) == [("cleared", "4.2"), ("raised", "4.3")]
    assert agent.asked == ["faults"]


def test_changes_during_a_walk_are_applied_to_it():
    change = tavo_resync.Change
    agent = ScriptedAgent([summary(2, 9, 1, 2), summary(2, 11, 1, 2)], faults=[{"4.1": state()}],
                          log=[change(10, "4.2", state()), change(11, "4.1", state(3))])
    view = view_of({"4.2": state()})
    assert events_of(view, agent) == [("raised", "4.1")]
    assert view.faults == {"4.1": state(3), "4.2": state()}


def test_a_walk_that_ends_early_closes_nothing():
    now = summary(2, 9, 1, 2)
    agent = ScriptedAgent([now] * 4, faults=[{"4.1": state()}, {"4.1": state(), "4.2": state()}])
    assert events_of(view_of({"4.1": state(), "4.2": state()}), agent) == []
    assert agent.asked == ["faults", "faults"]
    view = view_of({"4.1": state(), "4.2": state()})
    with pytest.raises(tavo_resync.AgentError):
        view.bring_in_step(ScriptedAgent([now] * 10, faults=[{"4.1": state()}] * 5))
    assert view.faults == {"4.1": state(), "4.2": state()}


@pytest.mark.parametrize("first, second", [(False, True), (True, False), (False, False)])
def test_an_incomplete_list_closes_nothing(first, second):
    agent = ScriptedAgent([summary(2, 9, 1, 1, first), summary(2, 9, 1, 1, second)], faults=[{"4.3": state()}])
    view = view_of({"4.1": state()})
    assert events_of(view, agent) == [("raised", "4.3")]
    # Once it is complete, what it lacks is gone.
    now = summary(2, 9, 1, 1)
    assert events_of(view, ScriptedAgent([now, now], faults=[{"4.3": state()}])) == [("cleared", "4.1")]


def test_a_view_that_has_gone_wrong_is_read_anew():
    now = summary(changes=4, oldest=1, active=2)
    agent = ScriptedAgent([now, now], faults=[{"4.1": state(), "4.2": state()}])
    assert events_of(view_of({"4.1": state()}), agent) == [("raised", "4.2")]


def test_a_list_is_kept_in_its_file(tmp_path):
    file = tmp_path / "server.json"
    view = tavo_resync.View(file)
    now = summary(7, 1, 1, 1)
    view.bring_in_step(ScriptedAgent([now, now], faults=[{"4.1": state()}]))
    view.save()
    again = tavo_resync.View(file)
    assert (again.epoch, again.change, again.whole, again.faults) == (7, 1, True, {"4.1": state()})
    assert os.listdir(tmp_path) == ["server.json"]


def run_tool(state, *words):
    return subprocess.run([TOOL, "--state", state, *words], capture_output=True, text=True, check=False)


@pytest.mark.parametrize("content", ["", "{}", "[1]", '{"epoch": 1'])
def test_a_file_that_is_no_list_is_refused(content, tmp_path):
    file = tmp_path / "server.json"
    file.write_text(content)
    result = run_tool(file, "--", "127.0.0.1")
    assert result.returncode == 1
    assert result.stderr.startswith(f"tavo_resync: {file} is no list of faults: ")


def test_wrong_options_are_named(tmp_path):
    for words, message in ((["--input"], "--input needs --interval"), (["--interval", "0"], "must be above 0"),
                           (["--interval", "a"], "invalid float value")):
        result = run_tool(tmp_path / "list", *words, "--", "127.0.0.1")
        assert (result.returncode, message in result.stderr) == (2, True), result.stderr


def test_an_agent_without_the_objects_is_named(start, directory):
    agent = start(Master, ROOT / "host/snmpd-master.conf").address
    result = run_tool(directory / "list", "--", "-v2c", "-c", "public", agent)
    assert (result.returncode, result.stderr) == (
        1, "tavo_resync: it does not serve tavoSubagentFaults, or access is too narrow\n")
    result = run_tool(directory / "list", "--", "-v2c", "-c", "other", "-t", "0.2", "-r", "0", agent)
    assert (result.returncode, "Timeout: No Response from" in result.stderr) == (1, True), result.stderr
    assert not (directory / "list").exists()


def test_a_list_that_cannot_be_kept_is_an_error(start, directory):
    daemon = start(ServedDaemon, start(Server), speed=20)
    result = run_tool(directory / "missing/list", "--", "-v2c", "-c", "public", daemon.address)
    assert result.returncode == 1
    assert "the list cannot be kept" in result.stderr


class Manager(Program):
    """The tool, told of notifications by notified()."""

    def __init__(self, directory, daemon, interval=0.3):
        self.list = directory / "list.json"
        self._pipe = directory / "notifications"
        if not self._pipe.exists():
            os.mkfifo(self._pipe)
        words = [TOOL, "--state", self.list, "--interval", interval, "--input", "--", "-v2c", "-c", "public", "-t", "1",
                 "-r", "1", daemon.address]
        super().__init__(directory, "manager", ["sh", "-c", f'exec "$0" "$@" <{self._pipe}', *words])
        self._input = open(self._pipe, "w", encoding="ascii")
        self._read = self._log_start

    def notified(self):
        self._input.write("notification\n")
        self._input.flush()

    def new_events(self):
        """[(event, fault)] since the last call."""
        with open(self.log_file, "rb") as log:
            log.seek(self._read)
            written = log.read()
        whole = written[:written.rfind(b"\n") + 1]
        self._read += len(whole)
        # Its errors are in the log as well.
        events = [json.loads(line) for line in whole.splitlines() if line.startswith(b"{")]
        return [(event["event"], event["fault"]) for event in events]

    def faults(self):
        """{fault: (severity, code)}"""
        if not self.list.exists():
            return {}
        return {fault: (state["severity"], state["code"])
                for fault, state in json.loads(self.list.read_text())["faults"].items()}

    def kill(self):
        super().kill()
        self._input.close()

    def stop(self):
        self._input.close()
        return super().stop()


class World:
    """A server whose faults change at random, its daemon, and a manager that gets half of the notifications."""

    def __init__(self, start, kind, seed):
        self.random = random.Random(seed)
        self._start = start
        self._server = start(Server)
        self._engine = Engine(os.environ["BMCSIM_SOCKET"])
        self._collector = Collector()
        self._master = None
        if kind == "agentx":
            self._start_master()
        self._daemon = self._start_daemon()
        self._seen_notifications = self._code = 0
        self._active = set()
        # Of each fault since the list was last in step: how often the engine has cleared and the manager has closed it.
        self._clears, self._closes = collections.Counter(), collections.Counter()
        self._most_repetitions = 1
        self._start_manager()
        self.troubles = collections.Counter()
        self.closes = self.wrong_closes = self.dropped = 0
        # The scenario's faults.
        for index in (11, 17, 23, 31):
            self._server.ctl("fault", "clear", str(index))

    def _start_master(self):
        port = self._master.port if self._master else None
        self._master = self._start(Master, ROOT / "host/snmpd-master.conf", udp_port=port,
                                   trap_destination=self._collector.destination)

    def _start_daemon(self):
        configuration = "" if self._master else f"trap2sink {self._collector.destination} public\n"
        daemon = self._start(ServedDaemon, self._server, master=self._master, speed=20, configuration=configuration,
                             options=["--change-limit", CHANGE_LIMIT])
        # Changes made before the daemon listens may be missing in all of its tables.
        self._server.wait_for_listeners()
        return daemon

    def change_faults(self, count):
        for _ in range(count):
            class_code, index = self.random.choice(CLASSES), self.random.choice(INDEXES)
            fault = f"{class_code}.{index}"
            self._code += 1
            if fault in self._active and self.random.random() < 0.5:
                self._engine.tell("fault", "clear", str(index), f"class={class_code}")
                self._active.remove(fault)
                self._clears[fault] += 1
            else:
                self._engine.tell("fault", "raise", str(index), f"class={class_code}", f"code={self._code}",
                                  f"severity={self.random.randint(1, 6)}")
                self._active.add(fault)
            self._engine.wait_for_reply()
            self.look()

    def look(self):
        """Passes half of the notifications on, and counts what the manager has closed.

        A close is wrong if the engine has cleared the fault less often. When the daemon connects to the engine again, it
        gets a change that falls between connection and list twice.
        """
        arrived = len(self._collector.datagrams)
        for _ in range(arrived - self._seen_notifications):
            if self._manager.process.poll() is None and self.random.random() < 0.5:
                self._manager.notified()
            else:
                self.dropped += 1
        self._seen_notifications = arrived
        for event, fault in self._manager.new_events():
            if event == "cleared" and int(fault.partition(".")[0]) in CLASSES:
                self.closes += 1
                self._closes[fault] += 1
                self.wrong_closes += self._closes[fault] > self._clears[fault] * self._most_repetitions

    def trouble(self):
        """Something that makes managers miss changes."""
        kinds = [self.close_broadcaster, self.overrun_the_log, self.restart_manager]
        if self.random.random() < 0.3:
            kinds = [self.restart_master if self._master else self.restart_daemon, self.restart_daemon]
        kind = self.random.choice(kinds)
        self.troubles[kind.__name__] += 1
        kind()

    def close_broadcaster(self):
        self._most_repetitions = 2
        self._server.ctl("broadcaster", "close")

    def overrun_the_log(self):
        self.change_faults(CHANGE_LIMIT + 10)

    def restart_manager(self):
        self._manager.kill()
        self.change_faults(3)
        self._start_manager()

    def _start_manager(self):
        self._manager = self._start(Manager, self._daemon)
        # One that is killed behind an event, and before it has kept that, tells the same again.
        self._closes.clear()

    def restart_daemon(self):
        if self.random.random() < 0.5:
            self._daemon.signal(signal.SIGKILL)
        self._daemon.stop()
        self._server.wait_for_listeners(0)
        self.change_faults(5)
        self._manager.kill()
        self._daemon = self._start_daemon()
        self._start_manager()

    def restart_master(self):
        self._master.kill()
        self.change_faults(5)
        self._start_master()

    def engine_faults(self):
        """{fault: (severity, code)} as the fault engine lists them."""
        found = re.findall(r"index=(\d+) class=(\S+) .*?severity=(\S+) .*?code=(\d+)",
                           self._server.ctl("fault", "list"))
        return {f"{class_code}.{index}": (SEVERITIES.index(severity), int(code))
                for index, class_code, severity, code in found}

    def settle(self):
        """Waits until the manager has the engine's faults."""
        expected = self.engine_faults()

        def settled():
            self.look()
            return self._manager.faults() == expected
        wait_until(settled, 60, what=f"{expected} at the manager")
        self.look()
        self._most_repetitions = 1
        self._clears.clear()
        self._closes.clear()

    @property
    def notifications(self):
        return self._seen_notifications

    def close(self):
        self._collector.stop()


@pytest.mark.parametrize("kind", ["alone", "agentx"])
def test_manager_is_in_step_whatever_is_lost(kind, start, directory, monkeypatch):
    monkeypatch.setenv("BMCSIM_SOCKET", str(directory / "bmcsim"))
    seed = int(os.environ.get("TAVO_SEED", "208"))
    world = World(start, kind, seed)
    try:
        for _ in range(RUNS):
            if world.random.random() < 0.3:
                world.trouble()
            world.change_faults(world.random.randint(1, 30))
            world.settle()
        print(f"{RUNS} runs: {world.dropped} of {world.notifications} notifications dropped, {world.closes} closes, "
              f"{world.wrong_closes} wrong; {dict(world.troubles)}")
        assert world.wrong_closes == 0
    finally:
        world.close()
