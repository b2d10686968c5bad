"""What contrib/snmptrapd makes of notifications, with the real snmptrapd, Alertmanager and daemon."""

import os
import random
import re
import signal
import subprocess
import time

import pytest

from agents import wait_until
from alerting import FAULT_ENTRY, SNMPTRAPD_FILES, START_UP, Alertmanager, Bridge, NotificationLog, send_start_up
from engine import Engine
from oids import CLEARED
from server import ServedDaemon, Server

# Beside those of the scenario.
FAULTS = range(5000, 6000)
# snmpTrapAddress, which a relay adds.
RELAYED = "1.3.6.1.6.3.18.1.3.0", "a", "192.0.2.7"
# Lines in snmptrapd's file, whole and spoilt.
HEAD = b"TAVO-NOTIFICATION 1795355980 UDP: [127.0.0.1]:59349->[127.0.0.1]:26555|"
KIND = b".1.3.6.1.6.3.1.1.4.1.0 = OID: .1.3.6.1.4.1.61453.4.207.0."
INDEX = b"|.1.3.6.1.4.1.61453.4.207.1.1.1.1.1.7 = Gauge32: "
GARBAGE = [
    b"\0", b"TAVO-NOTIFICATION ", b"TAVO-NOTIFICATION 1", HEAD, HEAD + b"|", HEAD + KIND, HEAD + KIND + b"1",
    HEAD + KIND + b"1" + INDEX, HEAD + KIND + b"2" + INDEX + 5000 * b"9", HEAD + KIND + b"2" + INDEX + b"\xff\0",
    HEAD + KIND + b"1" + INDEX + b"7|.1.3.6.1.4.1.61453.4.207.1.1.1.1.20.7 = INTEGER: 99",
    HEAD + KIND + b"1" + INDEX + b"7|.1.3.6.1.4.1.61453.4.207.1.1.1.1.11.7 = Hex-STRING: 0",
    HEAD + KIND + b"1" + INDEX + b"7|.1.3.6.1.4.1.61453.4.207.1.1.1.1. = INTEGER: 1", 100_000 * b"x",
]


@pytest.fixture
def alerting(start):
    """Alertmanager, snmptrapd and tavo-alerts"""
    alertmanager = start(Alertmanager)
    log = start(NotificationLog)
    return alertmanager, log, start(Bridge, log, alertmanager)


def of_fault(labels, index):
    return [alert for alert in labels if alert.get("index") == str(index)]


def test_a_fault_is_an_alert_within_two_seconds(start, alerting):
    alertmanager, log, _ = alerting
    server = start(Server)
    start(ServedDaemon, server, configuration=f"informsink {log.address} public\n")
    server.wait_for_listeners()

    def timed(words, condition):
        begin = time.monotonic()
        server.ctl("fault", *words)
        labels = alertmanager.wait_for(lambda labels: condition(of_fault(labels, 7)), words[0])
        duration = time.monotonic() - begin
        print(f"{words[0]}: {duration:.2f} s")
        assert duration < 2
        return of_fault(labels, 7)

    raised = timed(["raise", "7", "class=fan", "unit=2", "severity=minor", "code=1002", "cause=238",
                    "description=Fan 1 in fan module 2 is slow"], len)
    assert raised == [{"alertname": "TavoFault", "severity": "warning", "fault_severity": "minor",
                       "job": "tavo", "instance": "127.0.0.1", "dn": "sys/rack-unit-1/fan-module-1-2/fan-1",
                       "index": "7", "part": "fan", "code": "1002", "cause": "missing"}]
    texts = next(alert for alert in alertmanager.alerts() if alert["labels"] == raised[0])["annotations"]
    assert texts["description"] == "Fan 1 in fan module 2 is slow"
    updated = timed(["update", "7", "severity=critical"],
                    lambda faults: [fault["fault_severity"] for fault in faults] == ["critical"])
    assert updated == [{**raised[0], "severity": "critical", "fault_severity": "critical"}]
    timed(["clear", "7"], lambda faults: not faults)


def test_a_thousand_faults_at_once_all_arrive(start, alerting, directory, monkeypatch):
    alertmanager, log, _ = alerting
    monkeypatch.setenv("BMCSIM_SOCKET", str(directory / "bmcsim"))
    server = start(Server)
    start(ServedDaemon, server, configuration=f"informsink {log.address} public\n")
    server.wait_for_listeners()
    engine = Engine(os.environ["BMCSIM_SOCKET"])

    def tell_all(word, *fields):
        begin = time.monotonic()
        for index in FAULTS:
            engine.tell("fault", word, str(index), *fields)
            engine.wait_for_reply()
        return begin

    def report(what, begin):
        print(f"{len(FAULTS)} faults {what}, the last alert after {time.monotonic() - begin:.2f} s")

    def indexes(labels):
        return {int(alert["index"]) for alert in labels if alert["alertname"] == "TavoFault"}

    begin = tell_all("raise", "class=fan", "unit=2", "severity=minor")
    alertmanager.wait_for(lambda labels: indexes(labels) == set(FAULTS), "all alerts", 30)
    report("raised", begin)
    begin = tell_all("update", "severity=critical")
    alertmanager.wait_for(lambda labels: [alert["fault_severity"] for alert in labels] == len(FAULTS) * ["critical"],
                          "all alerts with the new severity", 30)
    report("updated", begin)
    begin = tell_all("clear")
    alertmanager.wait_for(lambda labels: not labels, "the end of all alerts", 30)
    report("cleared", begin)


def test_an_update_replaces_the_alert(alerting):
    alertmanager, log, _ = alerting
    log.send_fault(7, severity=4, description="Slow")
    log.send_fault(7, severity=4, description="Slow")  # a duplicate
    log.send_fault(7, severity=5, description="Slower")
    log.send_fault(7, severity=5, description="Stuck", uptime=200)
    alertmanager.wait_for(lambda labels: [alert["fault_severity"] for alert in labels] == ["major"], "the update")
    wait_until(lambda: alertmanager.alerts()[0]["annotations"]["description"] == "Stuck", what="its text")


def test_a_late_repetition_changes_nothing(alerting):
    alertmanager, log, _ = alerting
    log.send_fault(7, severity=4, uptime=1000)
    log.send_fault(7, severity=0, uptime=1200)
    log.send_fault(7, severity=4, uptime=1000)
    log.send_fault(8, severity=0, uptime=1200)  # its raise was lost, and comes after it
    log.send_fault(8, severity=4, uptime=1000)
    log.send_fault(9, severity=4)
    alertmanager.wait_for(lambda labels: [alert["index"] for alert in labels] == ["9"], "the last alert alone")


def test_faults_of_several_agents_are_apart(start, directory):
    alertmanager, log = start(Alertmanager), start(NotificationLog)
    names = directory / "instances"
    names.write_text("# a comment\n127.0.0.2 server-2:161\n\n192.0.2.7 behind-a-relay\n")
    start(Bridge, log, alertmanager, options=["--instances", names])
    log.send_fault(7)
    log.send_fault(7, source="127.0.0.2")
    log.send_fault(7, dn="[Serial No: SERIAL-1] sys/rack-unit-1", more=[RELAYED])
    labels = alertmanager.wait_for(lambda labels: len(labels) == 3, "three alerts")
    assert {alert["instance"] for alert in labels} == {"127.0.0.1", "server-2:161", "behind-a-relay"}
    assert {alert["dn"] for alert in labels} == {"sys/rack-unit-1"}
    assert [alert["annotations"].get("serial") for alert in alertmanager.alerts()].count("SERIAL-1") == 1


def test_a_new_name_leaves_no_alert_behind(start, alerting, directory):
    alertmanager, log, bridge = alerting
    log.send_fault(7)
    log.send_fault(8, severity=4)
    alertmanager.wait_for(lambda labels: len(labels) == 2, "both alerts")
    bridge.stop()
    names = directory / "instances"
    names.write_text("127.0.0.1 server-1\n")
    start(Bridge, log, alertmanager, options=["--instances", names])
    log.send_fault(7, severity=0, uptime=200)
    log.send_fault(8, severity=6, uptime=200)
    alertmanager.wait_for(lambda labels: [(alert["index"], alert["instance"]) for alert in labels] == [
        ("8", "server-1")], "the other one under its new name")


def test_a_start_ends_what_is_not_repeated(start, directory):
    alertmanager, log = start(Alertmanager), start(NotificationLog)
    start(Bridge, log, alertmanager, options=["--settle", "2", "--brief", "2"])
    log.send_fault(7, uptime=6100)
    log.send_fault(8, uptime=6100)
    log.send_fault(8, source="127.0.0.2")
    send_start_up(log.address, directory)
    labels = alertmanager.wait_for(lambda labels: len(labels) == 4, "the start")
    assert [alert for alert in labels if alert["alertname"] == "TavoServerStarted"] == [
        {"alertname": "TavoServerStarted", "severity": "info", "job": "tavo", "instance": "127.0.0.1"}]
    log.send_fault(7, uptime=6200)
    labels = alertmanager.wait_for(lambda labels: len(labels) == 2, "the end of the other fault and of the start")
    assert {(alert["index"], alert["instance"]) for alert in labels} == {("7", "127.0.0.1"), ("8", "127.0.0.2")}


def test_a_test_notification_ends_by_itself(start):
    alertmanager, log = start(Alertmanager), start(NotificationLog)
    start(Bridge, log, alertmanager, options=["--brief", "2"])
    log.send(CLEARED, (f"{FAULT_ENTRY}.1.1", "u", "0"), (f"{FAULT_ENTRY}.11.1", "s", "Test Fault"))
    labels = alertmanager.wait_for(len, "the alert")
    assert labels == [{"alertname": "TavoTestNotification", "severity": "info", "job": "tavo", "instance": "127.0.0.1"}]
    alertmanager.wait_for(lambda labels: not labels, "its end")


def test_alerts_wait_for_alertmanager(start, alerting):
    alertmanager, log, bridge = alerting
    alertmanager.stop()
    log.send_fault(7)
    bridge.wait_for_log("takes no alerts .*; 1 wait")
    alertmanager = start(Alertmanager, port=alertmanager.port)
    alertmanager.wait_for(len, "the alert", 20)
    bridge.wait_for_log("takes alerts again")


def test_a_restarted_alertmanager_has_all_again(start):
    alertmanager, log = start(Alertmanager), start(NotificationLog)
    start(Bridge, log, alertmanager, options=["--repeat", "1"])
    for index in (7, 8, 9):
        log.send_fault(index)
    alertmanager.wait_for(lambda labels: len(labels) == 3, "all alerts")
    begins = {alert["labels"]["index"]: alert["startsAt"] for alert in alertmanager.alerts()}
    alertmanager.stop()
    later = int(time.time()) + 1
    wait_until(lambda: time.time() >= later, what="the next second")
    log.send_fault(8, severity=0)
    log.send_fault(7)
    alertmanager = start(Alertmanager, port=alertmanager.port)
    alertmanager.wait_for(lambda labels: {alert["index"] for alert in labels} == {"7", "9"}, "what is open", 20)
    assert {alert["startsAt"] for alert in alertmanager.alerts()} == {begins["7"], begins["9"]}


def test_a_dead_alertmanager_does_not_delay_another(start):
    dead, alertmanager = start(Alertmanager, name="dead"), start(Alertmanager)
    log = start(NotificationLog)
    start(Bridge, log, dead, alertmanager)
    dead.signal(signal.SIGSTOP)
    try:
        log.send_fault(7)
        alertmanager.wait_for(len, "the alert", 2)
    finally:
        dead.signal(signal.SIGCONT)
    dead.wait_for(len, "the alert there")


@pytest.mark.parametrize("end", ["stop", "kill"])
def test_nothing_is_lost_while_the_bridge_is_down(start, alerting, directory, end):
    """Not even if snmptrapd's file is rotated twice meanwhile, and snmptrapd restarted."""
    alertmanager, log, bridge = alerting
    log.send_fault(7)
    log.send_fault(8)
    alertmanager.wait_for(lambda labels: len(labels) == 2, "both alerts")
    wait_until(lambda: '"8"' in (directory / "state.json").read_text(), what="the state")
    log.send_fault(9)
    getattr(bridge, end)()
    log.send_fault(8, severity=0)
    log.rotate("notifications.2")
    log.send_fault(10)
    log.rotate("notifications.1")
    log.send_fault(11)
    log.stop()
    log = start(NotificationLog)
    log.send_fault(12)
    start(Bridge, log, alertmanager)
    expected = {"7", "9", "10", "11", "12"}
    alertmanager.wait_for(lambda labels: {alert["index"] for alert in labels} == expected, "all alerts")


def test_what_was_read_last_may_be_gone(start, alerting):
    """As if the bridge had been down until its file was compressed: it begins with the oldest that is not."""
    alertmanager, log, bridge = alerting
    log.send_fault(7)
    alertmanager.wait_for(len, "the alert")
    bridge.stop()
    log.rotate("notifications.3.gz")
    log.send_fault(7, severity=0)
    log.rotate("notifications.2")
    log.send_fault(8)
    log.rotate("notifications.1")
    log.send_fault(9)
    start(Bridge, log, alertmanager).wait_for_log("what was read last is gone")
    alertmanager.wait_for(lambda labels: {alert["index"] for alert in labels} == {"8", "9"}, "the other alerts")


def test_rotation_loses_nothing(alerting):
    alertmanager, log, _ = alerting
    for number in range(1, 9):
        log.send_fault(number)
        log.rotate(f"notifications.{9 - number}")
    alertmanager.wait_for(lambda labels: len(labels) == 8, "all alerts")


def test_an_alert_outlives_its_lease_by_repetition(start):
    alertmanager, log = start(Alertmanager), start(NotificationLog)
    bridge = start(Bridge, log, alertmanager, options=["--repeat", "1", "--lease", "3"])
    log.send_fault(7)
    ends = alertmanager.wait_for(len, "the alert") and alertmanager.alerts()[0]["endsAt"]
    wait_until(lambda: alertmanager.alerts()[0]["endsAt"] > ends, what="a longer lease")
    bridge.kill()
    alertmanager.wait_for(lambda labels: not labels, "the end of the lease")


def test_a_clock_that_is_set_back_leaves_no_alert(alerting):
    alertmanager, log, _ = alerting
    log.send_fault(7)
    raised = next(line for line in log.file.read_text().splitlines() if line.startswith("TAVO"))
    seconds = raised.split()[1]
    with open(log.file, "a") as file:
        file.write(raised.replace(".7 = ", ".8 = ").replace(": 7|", ": 8|").replace(seconds, str(int(seconds) + 86400))
                   + "\n")
    alertmanager.wait_for(lambda labels: len(labels) == 2, "an alert now and one of tomorrow")
    log.send_fault(8, severity=0, uptime=200)
    alertmanager.wait_for(lambda labels: [alert["index"] for alert in labels] == ["7"], "the end of the latter")


def test_garbage_does_no_harm(alerting):
    alertmanager, log, bridge = alerting
    octets = random.Random(1)
    with open(log.file, "ab") as file:
        for line in GARBAGE:
            file.write(line + b"\n")
        for _ in range(2000):
            sample = bytearray(octets.choice(GARBAGE))
            for _ in range(octets.randrange(1, 4)):
                sample[octets.randrange(len(sample))] = octets.randrange(256)
            file.write(sample + b"\n")
    log.send("1.3.6.1.6.3.1.1.5.3")  # linkDown
    log.send(START_UP)  # of something else
    evil = 'A "quoted" | text\nTAVO-NOTIFICATION 1 UDP: [1.2.3.4]|.1 = \\ and more that makes it long'
    log.send_fault(4711, description=evil)
    log.send_fault(4712, description=evil + "\x01")
    alertmanager.wait_for(lambda labels: of_fault(labels, 4712), "the alerts")
    texts = {alert["annotations"].get("description") for alert in alertmanager.alerts()}
    assert {evil, evil + "\x01"} <= texts
    assert not [alert for alert in alertmanager.labels() if alert["alertname"] != "TavoFault"]
    assert bridge.process.poll() is None
    assert "a notification is left out: " in bridge.log()
    assert "Traceback" not in bridge.log()


def test_more_faults_than_it_may_remember(start):
    alertmanager, log = start(Alertmanager), start(NotificationLog)
    bridge = start(Bridge, log, alertmanager, options=["--most", "2"])
    for index in (7, 8, 9):
        log.send_fault(index)
    bridge.wait_for_log("a notification is left out: 2 faults are known already")
    log.send_fault(7, severity=4)
    alertmanager.wait_for(lambda labels: sorted((alert["index"], alert["fault_severity"]) for alert in labels) == [
        ("7", "minor"), ("8", "critical")], "the other two")


@pytest.mark.parametrize("state, options, said", [
    ("{", [], r"state\.json: .*; remove the file to start anew"),
    ("{}", ["--state", "/nowhere/state.json"], r"No such file or directory: '/nowhere"),
    ("{}", ["--instances", "/nowhere/names"], r"No such file or directory: '/nowhere"),
    ("{}", ["--notifications", "/"], r"Is a directory: '/'"),
], ids=["state", "place", "instances", "notifications"])
def test_a_start_that_cannot_work_says_why(directory, state, options, said):
    (directory / "state.json").write_text(state)
    command = [SNMPTRAPD_FILES / "tavo-alerts", "--notifications", directory / "none", "--state",
               directory / "state.json", "--alertmanager", "http://127.0.0.1:1", *options]
    result = subprocess.run(command, capture_output=True, text=True, check=False, timeout=30)
    assert result.returncode in (1, 2)
    assert re.search(said, result.stderr), result.stderr
    assert "Traceback" not in result.stderr
