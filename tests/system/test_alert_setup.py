"""The files of contrib/snmptrapd that set things up, and the lines that docs/alerts.md has beside them."""

import json
import re
import shutil
import subprocess
import urllib.request

import pytest

from agents import ROOT, environment, wait_until
from alerting import SNMPTRAPD_FILES, Alertmanager, Bridge, NotificationLog
from debian import need

DOCUMENT = (ROOT / "docs/alerts.md").read_text()


@pytest.mark.skipif(not shutil.which("systemd-analyze"), reason="systemd-analyze is not installed")
def test_systemd_knows_every_setting(directory):
    unit = directory / "tavo-alerts.service"
    text = (SNMPTRAPD_FILES / "tavo-alerts.service").read_text()
    unit.write_text(text.replace("/usr/share/snmpextmibmodule/contrib/", f"{ROOT}/contrib/"))
    receiver = directory / "snmptrapd.service"
    receiver.write_text("[Service]\nType=notify\nExecStart=/bin/false\n")
    override = directory / "snmptrapd.service.d/tavo.conf"
    override.parent.mkdir()
    shutil.copy(SNMPTRAPD_FILES / "snmptrapd-override.conf", override)
    result = subprocess.run(["systemd-analyze", "verify", unit, receiver], capture_output=True, text=True, check=False)
    assert (result.returncode, result.stderr) == (0, "")


def test_logrotate_loses_nothing(start, directory):
    alertmanager, log = start(Alertmanager), start(NotificationLog)
    start(Bridge, log, alertmanager)
    file = directory / "logrotate.conf"
    text = (SNMPTRAPD_FILES / "tavo-alerts.logrotate").read_text()
    assert "systemctl kill --signal=HUP snmptrapd.service" in text
    file.write_text(text.replace("/var/log/tavo/notifications", str(log.file))
                    .replace("systemctl kill --signal=HUP snmptrapd.service", f"kill -HUP {log.pid}"))
    file.chmod(0o644)
    directory.chmod(0o755)

    def rotate():
        subprocess.run([need("logrotate", "logrotate"), "--force", "--state", directory / "rotated", file], check=True)
        wait_until(log.file.exists, what="the next file")

    log.send_fault(1)
    rotate()
    log.send_fault(2)
    rotate()  # compresses the first one, perhaps before it has been read to its end
    log.send_fault(3)
    alertmanager.wait_for(lambda labels: len(labels) == 3, "the first alerts")
    rotate()
    log.send_fault(4)
    alertmanager.wait_for(lambda labels: len(labels) == 4, "all alerts")
    assert {path.name for path in directory.glob("notifications*")} == {
        "notifications", "notifications.1", "notifications.2.gz", "notifications.3.gz"}


def test_the_alerts_of_the_rules_are_hidden(start):
    shipped = (ROOT / "contrib/prometheus/alertmanager.yml").read_text()
    alertmanager, log = start(Alertmanager, routes=shipped), start(NotificationLog)
    start(Bridge, log, alertmanager)
    alerts = [("TavoFaultCritical", "fan-1"), ("TavoFanFailed", "fan-2"), ("TavoFanFailed", "fan-3")]
    of_rules = [{"labels": {"alertname": name, "job": "tavo", "instance": "127.0.0.1", "dn": dn}}
                for name, dn in alerts]
    request = urllib.request.Request(f"{alertmanager.url}/api/v2/alerts", json.dumps(of_rules).encode(),
                                     {"Content-Type": "application/json"})
    urllib.request.urlopen(request, timeout=10).close()
    for number in (1, 2):
        log.send_fault(number, dn=f"fan-{number}")
    alertmanager.wait_for(lambda labels: len(labels) == 5, "the faults")
    hidden = {(alert["labels"]["alertname"], alert["labels"]["dn"]) for alert in alertmanager.alerts()
              if alert["status"]["state"] == "suppressed"}
    assert hidden == {("TavoFaultCritical", "fan-1"), ("TavoFanFailed", "fan-2")}


def test_an_alert_is_ended_by_hand(start, directory):
    alertmanager, log = start(Alertmanager), start(NotificationLog)
    names = directory / "instances"
    names.write_text("127.0.0.1 server\n192.0.2.1 server\n")
    start(Bridge, log, alertmanager, options=["--instances", names])
    log.send_fault(4711, dn="sys/rack-unit-1/psu-2")
    alertmanager.wait_for(len, "the alert")
    command = re.search(r"```\n(F=.*?)```", DOCUMENT, re.DOTALL)[1]
    subprocess.run(command.replace("127.0.0.1", log.address), shell=True, check=True, env=environment(directory))
    alertmanager.wait_for(lambda labels: not labels, "its end")
