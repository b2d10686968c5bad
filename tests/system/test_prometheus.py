"""What the files in contrib/prometheus make of a simulated server, with the real exporter, promtool and amtool."""

import os
import pathlib
import re
import subprocess
import time

import pytest
import yaml

from agents import wait_until
from debian import need
from monitors import PROMETHEUS, Exporter, run
from server import ServedDaemon, Server

GENERATED = ["snmp.yml", "snmp-0.21.yml"]
MOST_SERIES = 450
# The series that the exporter adds of its own.
OF_THE_EXPORTER = "snmp_scrape_"


def states(metrics, name, key):
    """{value of the label `key`: the state that is 1}"""
    return {labels[key]: labels[name] for labels, value in metrics[name] if value == 1}


@pytest.fixture
def scraped(start):
    """A server, its daemon and the exporter"""
    exporter = start(Exporter)
    server = start(Server)
    daemon = start(ServedDaemon, server)
    server.wait_for_listeners()
    return server, daemon, lambda: exporter.scrape(daemon.address)


def test_a_scrape_has_few_series_and_all_names(scraped):
    _, _, scrape = scraped
    begin = time.monotonic()
    metrics = scrape()
    duration = time.monotonic() - begin
    series = sum(len(series) for name, series in metrics.items() if not name.startswith(OF_THE_EXPORTER))
    print(f"{series} series in {duration:.2f} s")
    assert series <= MOST_SERIES
    expected = {metric["name"] for metric in yaml.safe_load((PROMETHEUS / "snmp.yml").read_text())["modules"]["tavo"]
                ["metrics"]}
    assert expected - metrics.keys() == set()
    for name, instances in metrics.items():
        for labels, _ in instances:
            assert all(labels.values()), (name, labels)
            # The rack unit and its board are the only rows of their tables.
            if any(label.endswith("Index") and not label.startswith("tavoCompute") for label in labels):
                assert any(label.endswith("Dn") for label in labels), (name, labels)


def test_labels_stay_while_values_change(scraped):
    """Ten seconds later the simulator has drawn other readings."""
    _, _, scrape = scraped

    def names(metrics):
        return {(name, *sorted(labels.items())) for name, instances in metrics.items() for labels, _ in instances}
    first = scrape()
    wait_until(lambda: scrape()["sysUpTime"][0][1] > first["sysUpTime"][0][1] + 1000, what="ten seconds")
    assert names(scrape()) == names(first)


def test_a_fault_comes_changes_and_goes(scraped):
    server, _, scrape = scraped
    server.ctl("fault", "raise", "4711", "class=fan", "severity=critical")
    wait_until(lambda: states(scrape(), "tavoFaultSeverity", "tavoFaultIndex").get("4711") == "critical",
               what="the fault")
    server.ctl("fault", "update", "4711", "class=fan", "severity=minor")
    wait_until(lambda: states(scrape(), "tavoFaultSeverity", "tavoFaultIndex").get("4711") == "minor",
               what="the lower severity")
    server.ctl("fault", "clear", "4711", "class=fan")
    wait_until(lambda: "4711" not in states(scrape(), "tavoFaultSeverity", "tavoFaultIndex"), what="its end")


def test_generated_files_are_up_to_date(directory):
    generator = pathlib.Path(need("prometheus-snmp-generator", "prometheus-snmp-exporter"))
    subprocess.run([PROMETHEUS / "generate", directory], check=True,
                   env={**os.environ, "PATH": f"{os.environ['PATH']}:{generator.parent}"})
    for name in GENERATED:
        assert (pathlib.Path(directory) / name).read_text() == (PROMETHEUS / name).read_text(), name


def test_both_forms_have_the_same_module():
    new, old = (yaml.safe_load((PROMETHEUS / name).read_text()) for name in GENERATED)
    assert new == {"modules": old}
    assert list(old) == ["tavo"]


def promtool(*arguments):
    return run("promtool", "prometheus", *arguments)


def amtool(*arguments):
    return run("amtool", "prometheus-alertmanager", *arguments)


def test_promtool_accepts_the_configuration():
    status, output = promtool("check", "config", PROMETHEUS / "prometheus.yml")
    assert status == 0 and "warning" not in output.lower(), output


def test_alerts_fire_and_resolve():
    status, output = promtool("test", "rules", PROMETHEUS / "rules_test.yml")
    assert status == 0, output


def test_amtool_accepts_the_configuration():
    status, output = amtool("check-config", PROMETHEUS / "alertmanager.yml")
    assert status == 0, output


@pytest.mark.parametrize("severity, receiver", [("critical", "on-call"), ("warning", "tickets"), ("info", "log")])
def test_each_severity_has_its_receiver(severity, receiver):
    status, output = amtool("config", "routes", "test", f"--config.file={PROMETHEUS / 'alertmanager.yml'}",
                            f"severity={severity}")
    assert (status, output.splitlines()[-1]) == (0, receiver)


def test_severities_of_alerts_are_those_of_routes():
    assert {rule["labels"]["severity"] for rule in rules() if "alert" in rule} == {"critical", "warning", "info"}


def test_inhibition_names_alerts_that_exist():
    alerts = {rule["alert"] for rule in rules() if "alert" in rule}
    alerts |= set(re.findall(r'"(Tavo\w+)"', (PROMETHEUS.parent / "snmptrapd/alerts.py").read_text()))
    matchers = [matcher for rule in yaml.safe_load((PROMETHEUS / "alertmanager.yml").read_text())["inhibit_rules"]
                for matcher in rule["source_matchers"] + rule["target_matchers"]]
    for matcher in matchers:
        for name in re.fullmatch(r'alertname=~?"(.*)"', matcher)[1].split("|"):
            assert any(re.fullmatch(name, alert) for alert in alerts), (matcher, name)


def rules():
    groups = yaml.safe_load((PROMETHEUS / "rules.yml").read_text())["groups"]
    return [rule for group in groups for rule in group["rules"]]


def test_page_tells_other_alerts_from_faults():
    """It lists the faults themselves, and all other alerts below them."""
    groups = yaml.safe_load((PROMETHEUS / "rules.yml").read_text())["groups"]
    faults = {rule["alert"] for group in groups if group["name"] == "tavo-faults" for rule in group["rules"]}
    alerts = {rule["alert"] for rule in rules() if "alert" in rule}
    patterns = [pattern for library in PROMETHEUS.glob("console_libraries/*.lib")
                for pattern in re.findall("alertname!?=?~'(.*?)'", library.read_text())]
    assert len(patterns) > 1
    for pattern in patterns:
        assert {alert for alert in alerts if re.fullmatch(pattern, alert)} == faults


@pytest.mark.parametrize("shown", ["prometheus/console_libraries/tavo-parts.lib", "grafana/tavo.json"])
def test_what_may_be_missing_is_shown(shown):
    text = (PROMETHEUS.parent / shown).read_text()
    for rule in rules():
        if rule.get("alert") in ("TavoNotificationsLost", "TavoFaultsIncomplete"):
            for metric in re.findall("tavoSubagent[A-Za-z]+", rule["expr"]):
                assert metric in text, metric


def test_every_alert_is_tested_both_ways():
    cases = [case for test in yaml.safe_load((PROMETHEUS / "rules_test.yml").read_text())["tests"]
             for case in test["alert_rule_test"]]
    alerts = {rule["alert"] for rule in rules() if "alert" in rule}
    assert {case["alertname"] for case in cases if case["exp_alerts"]} == alerts
    assert {case["alertname"] for case in cases if not case["exp_alerts"]} == alerts


def test_rules_use_what_the_exporter_serves():
    metrics = {metric["name"] for metric in
               yaml.safe_load((PROMETHEUS / "snmp.yml").read_text())["modules"]["tavo"]["metrics"]}
    labels = {lookup["lookup"] for lookup in
              yaml.safe_load((PROMETHEUS / "generator.yml").read_text())["modules"]["tavo"]["lookups"]}
    # Values of labels are names of tables.
    used = {name for rule in rules() for name in re.findall(r"\btavo[A-Z]\w+", rule["expr"])
            if not name.endswith("Table") and "." not in name}
    assert used - metrics - labels <= {"tavoMemory", "tavoProcessor", "tavoCompute"}
