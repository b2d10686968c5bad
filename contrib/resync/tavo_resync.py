#!/usr/bin/python3
"""Keeps a list of a server's active faults in step with the server, whatever becomes of its notifications.

It asks the agent (TAVO-SUBAGENT-MIB) for the number of the last change. If it has missed changes, it reads them from
the agent's log; if the log has not all of them any more, or the agent was restarted, it reads the active faults. A fault
is closed only if the log says so, or if a list that has all active faults lacks it.

A change of the list is one line of JSON on standard output. The list itself is in the file that --state names.
"""

import argparse
import json
import os
import re
import select
import subprocess
import sys
import time
from typing import NamedTuple

OBJECTS = "1.3.6.1.4.1.61453.4.208.1"
FAULTS, LOG = f"{OBJECTS}.9.1", f"{OBJECTS}.10.1"
TRUE = 1
# The columns that tell how a fault is: their names, and the numbers of the first in the two tables.
STATE = ("severity", "affected_object", "description", "code", "cause", "occurrences", "first_time", "last_time")
FAULTS_STATE, LOG_STATE = 5, 7
LOG_CLASS, LOG_INDEX = 4, 5
ROWS_AT_ONCE = 20
MOST_TRIES = 5


class AgentError(Exception):
    """The agent does not answer, or not as it should."""


class _OutOfDate(Exception):
    """What was read does not fit together, because faults changed meanwhile."""


class Summary(NamedTuple):
    """What there is to read, at one moment."""

    epoch: int
    changes: int  # the number of the last one
    notified: int
    oldest: int  # the first one that is kept; 0 if none is
    active: int  # rows of the agent's list of active faults
    complete: bool  # the list has all of them


class Change(NamedTuple):
    """A change, and how the fault was afterwards."""

    number: int
    fault: str  # "CLASS.INDEX"
    state: dict


def _date(octets):
    """A DateAndTime as text; empty if there is none."""
    if len(octets) < 8 or not any(octets):
        return ""
    year, (month, day, hour, minute, second) = octets[0] << 8 | octets[1], octets[2:7]
    zone = f"{chr(octets[8])}{octets[9]:02}:{octets[10]:02}" if len(octets) >= 11 else ""
    return f"{year:04}-{month:02}-{day:02}T{hour:02}:{minute:02}:{second:02}{zone}"


def _state(cells, first_column):
    """How a fault is, of {column: value}."""
    state = {name: cells[first_column + place] for place, name in enumerate(STATE)}
    for name in ("first_time", "last_time"):
        state[name] = _date(state[name])
    for name in ("affected_object", "description"):
        state[name] = state[name].decode(errors="replace")
    return state


class Agent:
    """An agent, asked with net-snmp's tools. `words`: their options and the agent's address."""

    # Numbers for names and enumerations, hexadecimal texts, no types.
    _form = ("-OnQxetU",)
    _cell = re.compile(r"^\.([\d.]+) = (.*?)$(?=\n\.\d|\s*\Z)", re.MULTILINE | re.DOTALL)

    def __init__(self, words):
        self._words = list(words)

    def _ask(self, tool, *arguments, options=()):
        """[(OID, value)]: numbers as int, texts as bytes, anything else as it is printed."""
        try:
            result = subprocess.run([tool, *self._form, *options, *self._words, *arguments], stdin=subprocess.DEVNULL,
                                    capture_output=True, text=True, errors="replace", check=False,
                                    env={**os.environ, "MIBS": ""})
        except FileNotFoundError:
            raise AgentError(f"{tool} is not installed") from None
        if result.returncode != 0:
            raise AgentError((result.stderr or result.stdout).strip().splitlines()[0] or f"{tool} failed")
        return [(name, self._value(text.strip())) for name, text in self._cell.findall(result.stdout)]

    @staticmethod
    def _value(text):
        if re.fullmatch(r"-?\d+", text):
            return int(text)
        if re.fullmatch(r'"[0-9A-F\s]*"', text):
            return bytes.fromhex(text.strip('"'))
        return text

    def summary(self):
        values = [value for _, value in self._ask("snmpget", *(f"{OBJECTS}.8.{number}.0" for number in range(1, 7)))]
        if not all(isinstance(value, int) for value in values) or len(values) != len(Summary._fields):
            raise AgentError("it does not serve tavoSubagentFaults, or access is too narrow")
        return Summary(*values[:-1], values[-1] == TRUE)

    def faults(self):
        """{"CLASS.INDEX": state} of the active faults. One that has changed meanwhile may be missing or mixed up."""
        rows = {}
        for name, value in self._ask("snmpbulkwalk", FAULTS, options=["-Cr50"]):
            match = re.fullmatch(rf"{re.escape(FAULTS)}\.(\d+)\.(\d+\.\d+)", name)
            if match:
                rows.setdefault(match[2], {})[int(match[1])] = value
        last_column = FAULTS_STATE + len(STATE) - 1
        return {fault: _state(cells, FAULTS_STATE) for fault, cells in rows.items()
                if all(number in cells for number in range(FAULTS_STATE, last_column + 1))}

    def log(self, first, last):
        """The changes with the numbers from `first` to `last`."""
        changes = []
        columns = [LOG_CLASS, LOG_INDEX, *range(LOG_STATE, LOG_STATE + len(STATE))]
        while first <= last:
            rows = {}
            count = min(last - first + 1, ROWS_AT_ONCE)
            for name, value in self._ask("snmpbulkget", *(f"{LOG}.{column}.{first - 1}" for column in columns),
                                         options=["-Cn0", f"-Cr{count}"]):
                match = re.fullmatch(rf"{re.escape(LOG)}\.(\d+)\.(\d+)", name)
                if match:
                    rows.setdefault(int(match[2]), {})[int(match[1])] = value
            # What does not fit into a message is left out at its end.
            cells = rows.get(first, {})
            if not all(column in cells for column in columns):
                raise _OutOfDate
            while first <= last and all(column in rows.get(first, {}) for column in columns):
                cells = rows[first]
                changes.append(Change(first, f"{cells[LOG_CLASS]}.{cells[LOG_INDEX]}", _state(cells, LOG_STATE)))
                first += 1
        return changes


class View:
    """The faults of a server as far as they are known, kept in a file.

    `faults` is {"CLASS.INDEX": state}.
    """

    def __init__(self, file=None):
        """`file`: None keeps nothing; a file that does not exist is an empty view."""
        self._file = file
        self.epoch, self.change, self.whole, self.faults = None, 0, False, {}
        if file and os.path.exists(file):
            with open(file, encoding="utf-8") as opened:
                kept = json.load(opened)
            self.epoch, self.change = kept["epoch"], kept["change"]
            self.whole, self.faults = kept["whole"], kept["faults"]

    def save(self):
        """Replaces the file as a whole: it is the old or the new one, whatever happens."""
        if not self._file:
            return
        kept = {"epoch": self.epoch, "change": self.change, "whole": self.whole, "faults": self.faults}
        new = f"{self._file}.new"
        with open(new, "w", encoding="utf-8") as opened:
            json.dump(kept, opened, indent=1)
            opened.flush()
            os.fsync(opened.fileno())
        os.replace(new, self._file)

    def bring_in_step(self, agent):
        """Brings the view in step with the agent. Returns the changes of the view, in order: [{"event": ...}].

        An event is raised, updated or cleared. Raises AgentError; the view is then as it was.
        """
        for _ in range(MOST_TRIES):
            try:
                return self._try(agent)
            except _OutOfDate:
                continue
        raise AgentError(f"faults changed faster than they could be read, {MOST_TRIES} times")

    def _try(self, agent):
        now = agent.summary()
        # A list that was not complete may lack a fault, and we may have one that is gone.
        may_follow = self.epoch == now.epoch and (self.whole or not now.complete)
        if may_follow and self._log_reaches(now, self.change):
            faults = dict(self.faults)
            events = self._apply(faults, agent.log(self.change + 1, now.changes))
            if not self.whole or len(faults) == now.active:
                self.change, self.faults = now.changes, faults
                return events
        faults = agent.faults()
        then = agent.summary()
        if then.epoch != now.epoch or not self._log_reaches(then, now.changes):
            raise _OutOfDate
        # Whatever has changed during the walk is in the log.
        self._apply(faults, agent.log(now.changes + 1, then.changes))
        # A master that is restarted during a walk ends it early, and says nothing.
        if len(faults) != then.active:
            raise _OutOfDate
        whole = now.complete and then.complete
        events = self._replace(faults, whole)
        self.epoch, self.change, self.whole = then.epoch, then.changes, whole
        return events

    @staticmethod
    def _log_reaches(summary, known):
        """Whether the changes that follow the one with this number are all kept."""
        return known == summary.changes or 0 < summary.oldest <= known + 1 <= summary.changes

    @staticmethod
    def _apply(faults, changes):
        """Applies the changes to the faults. Returns the events."""
        events = []
        for change in changes:
            known = change.fault in faults
            if change.state["severity"] != 0:
                faults[change.fault] = change.state
                events.append({"event": "updated" if known else "raised", "fault": change.fault, **change.state})
            elif known:
                del faults[change.fault]
                events.append({"event": "cleared", "fault": change.fault, **change.state})
        return events

    def _replace(self, faults, whole):
        """Takes the faults over; those that they lack are gone if the list is `whole`. Returns the events."""
        events = []
        for fault in [fault for fault in self.faults if whole and fault not in faults]:
            events.append({"event": "cleared", "fault": fault, **self.faults.pop(fault), "severity": 0})
        for fault, state in faults.items():
            if self.faults.get(fault) != state:
                event = "updated" if fault in self.faults else "raised"
                events.append({"event": event, "fault": fault, **state})
        self.faults.update(faults)
        return events


def wait_for_sign(interval, with_input):
    """Waits for input or for the interval to pass. False at the end of the input."""
    if not with_input:
        time.sleep(interval)
        return True
    if not select.select([sys.stdin], [], [], interval)[0]:
        return True
    # All that has come: a storm of notifications is one sign.
    return os.read(sys.stdin.fileno(), 1 << 20) != b""


def one_pass(view, agent):
    """False if the agent could not be asked, or the list not be kept."""
    try:
        events = view.bring_in_step(agent)
    except AgentError as error:
        print(f"tavo_resync: {error}", file=sys.stderr, flush=True)
        return False
    for event in events:
        print(json.dumps(event), flush=True)
    try:
        view.save()
    except OSError as error:
        print(f"tavo_resync: the list cannot be kept: {error}", file=sys.stderr, flush=True)
        return False
    return True


def main():
    parser = argparse.ArgumentParser(
        description="Keeps a list of a server's active faults in step with the server.",
        usage="%(prog)s --state FILE [--interval SECONDS] [--input] -- SNMP-OPTION... AGENT")
    parser.add_argument("--state", required=True, metavar="FILE", help="where the list is kept, as JSON")
    parser.add_argument("--interval", type=float, metavar="SECONDS",
                        help="look again and again; without it, look once and exit")
    parser.add_argument("--input", action="store_true",
                        help="look at once when something arrives on standard input, such as snmptrapd's output; "
                        "exit at its end")
    parser.add_argument("words", nargs="+", metavar="SNMP-OPTION",
                        help="options of net-snmp's tools and the agent's address: -v2c -c public 192.0.2.7")
    arguments = parser.parse_args()
    if arguments.interval is not None and arguments.interval <= 0:
        parser.error("--interval must be above 0")
    if arguments.input and arguments.interval is None:
        parser.error("--input needs --interval: a notification may get lost")
    try:
        view = View(arguments.state)
    except (OSError, ValueError, KeyError, TypeError) as error:
        parser.exit(1, f"tavo_resync: {arguments.state} is no list of faults: {error!r}\n")
    agent = Agent(arguments.words)
    done = one_pass(view, agent)
    while arguments.interval is not None and wait_for_sign(arguments.interval, arguments.input):
        done = one_pass(view, agent)
    return 0 if done else 1


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(0)
