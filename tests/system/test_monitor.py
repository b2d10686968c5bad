"""./run.sh --monitor: Prometheus, its SNMP exporter and Alertmanager around simulated servers, and their page."""

import html
import json
import os
import pathlib
import re
import signal
import socket
import subprocess
import tempfile

import pytest

from agents import ROOT, free_port, snmpget, wait_until
from monitored import Monitored
from monitors import fetch
from oids import OBJECTS
from server import children_of, descendant
from test_run_sh import Terminal, assert_nothing_left, processes_with, run

FRONT = f"{OBJECTS}.9.44.1.8.1"
POWER = f"{OBJECTS}.9.14.1.4.1"
# The card of each table of parts, with the name of the column that is the state.
CARDS = {"tavoEquipmentFan": "Operability", "tavoEquipmentPsu": "Operability", "tavoProcessorUnit": "Operability",
         "tavoAdaptorUnit": "Overtemperature", "tavoStorageController": "Operability",
         "tavoStorageRaidBattery": "Operability", "tavoStorageLocalLun": "Operability",
         "tavoStorageLocalDisk": "Operability", "tavoMemoryUnit": "Operability"}
WORDS = {"noneReported": "not too hot"}


@pytest.fixture(scope="module")
def monitored():
    """Two servers. The first has what the scenario describes, but for what a test changes and puts back."""
    with tempfile.TemporaryDirectory(prefix="tavo-") as directory:
        servers = Monitored("--fleet", "2", count=2, TMPDIR=directory)
        yield servers
        assert servers.stop() == 0
        assert os.listdir(directory) == []
    for port in servers.ports:
        assert_nothing_left(str(port))


def section(page, identity):
    return re.search(rf'<section[^>]* id="{identity}".*?</section>', page, re.DOTALL)[0]


def faults(page):
    """[(severity, description)] of the active faults that the page shows"""
    shown = re.findall(r'<li data-fault="\d+"><span class="badge \w+">(\w+)</span>\s*<span><b[^>]*>(.*?)</b>', page)
    return [(severity, html.unescape(text)) for severity, text in shown]


def headline(page):
    return re.search(r'<section class="state-of-all \w+"><h2>(.*?)</h2>', page)[1]


def walked_states(address, table, column):
    """{distinguished name: word of the state} of a table's rows, as snmpwalk names them"""
    def walk(name):
        command = ["snmpbulkwalk", "-v2c", "-c", "public", "-m", "ALL", "-M", f"{ROOT}/mibs:{ROOT}/mibs/base", "-OQs",
                   address, table + name]
        return [line.partition(" = ")[2].strip('"') for line in subprocess.run(
            command, capture_output=True, text=True, check=True).stdout.splitlines()]
    states = [WORDS.get(state) or re.sub(r"([a-z])([A-Z])", r"\1 \2", state).lower() for state in walk(column)]
    return dict(zip(walk("Dn"), states, strict=True))


def test_it_prints_addresses_that_answer(monitored):
    printed = dict(re.findall(r"^(SNMP|Prometheus|Exporter|Alertmanager) +(\S+)", monitored.printed, re.MULTILINE))
    assert printed["SNMP"] == f"udp:{monitored.address()}"
    assert "/consoles/tavo.html" in printed["Prometheus"]
    for name, word in {"Prometheus": "<main>", "Exporter": "tavoFaultSeverity", "Alertmanager": "TavoFault"}.items():
        address, path = re.fullmatch(r"http://([^/]+)(/.*)", printed[name]).groups()
        wait_until(lambda: word in fetch(address, path), what=f"{word} from {name}")


@pytest.mark.parametrize("number", [None, 0, 1], ids=["all", "first", "second"])
def test_pages_are_made_without_an_error(monitored, number):
    page = monitored.page(number)
    for trouble in ["ZgotmplZ", "no value", "%!", "map[", "error"]:
        assert trouble not in page, trouble
    assert page.count("<section") == page.count("</section>")


def test_the_page_shows_the_active_faults(monitored):
    active = json.loads(monitored.ctl("show --json faults"))["faults"]
    page = monitored.page(0)
    assert sorted(faults(page)) == sorted((fault["severity"], fault["description"]) for fault in active)
    assert headline(page) == f"{len(active)} active faults"
    assert [severity for severity, _ in faults(page)][0] == "critical"


@pytest.mark.parametrize("table", CARDS)
def test_the_page_shows_all_parts_in_words(monitored, table):
    card = section(monitored.page(1), table)
    shown = re.findall(r'<li title="([^"]*)"(?: data-part="([^"]*)")?>.*?class="state \w+">([^<]*)<', card)
    assert {part or title: state for title, part, state in shown} == walked_states(
        monitored.address(1), table, CARDS[table])
    assert "sys/" not in re.sub(r'<[^>]*>', "", card)  # parts have names of their own


def test_the_page_shows_what_is_measured(monitored):
    """Readings drift every ten seconds, so those of the last scrape may be others for a moment."""
    def agrees():
        tiles = dict(re.findall(r"<dt>([^<]*)</dt><dd>(\d+)<small>", monitored.page(1)))
        return (tiles["Air intake"], tiles["Power"]) == tuple(
            snmpget(monitored.address(1), oid)[0].rpartition(" ")[2] for oid in [FRONT, POWER])
    wait_until(agrees, what="the readings on the page")


def test_a_fault_comes_and_goes_on_the_page(monitored):
    words = ("critical", "A fan is <b>on fire</b>")
    monitored.ctl(f"fault raise 4711 class=fan severity=critical description='{words[1]}'")
    monitored.wait_for_page(lambda page: words in faults(page), "the fault", 0)
    monitored.ctl("fault clear 4711 class=fan")
    monitored.wait_for_page(lambda page: words not in faults(page), "its end", 0)


def test_the_worst_server_comes_first(monitored):
    """The second one gets well: no fault, and nothing for an alert."""
    rows = re.findall(r'instance=127.0.0.1%3a(\d+)">(server-\d+)<', monitored.page())
    assert [(int(port), name) for port, name in rows] == list(zip(monitored.ports, ["server-001", "server-002"]))
    for fault in json.loads(monitored.ctl("show --json faults", number=1))["faults"]:
        monitored.ctl(f"fault clear {fault['index']} class={fault['class']}", number=1)
    page = monitored.wait_for_page(lambda page: "No active faults" in page and page, "no faults", 1)
    assert headline(page) == "Needs attention"
    assert ">volume degraded<" in page
    monitored.ctl("fault raise 1 class=fan severity=info", number=1)
    page = monitored.wait_for_page(lambda page: ">info<" in page and page, "the other fault")
    assert re.findall(r">(server-\d+)</a>.*?badge (\w+)", page, re.DOTALL) == [
        ("server-001", "critical"), ("server-002", "info")]


def test_a_silent_agent_is_told_and_its_state_kept(monitored):
    before = faults(monitored.page(0))
    stop = ["--port", str(monitored.ports[0]), "--exec"]
    run(*stop, "kill -STOP $(pidof snmp-subagentd)")
    try:
        page = monitored.wait_for_page(lambda page: "The last answer came" in page and page, "the silence", 0)
        assert faults(page) == before
        assert "Fan module 1, fan 1" in page
        assert re.search(r">server-001</a>.*?>did not answer just now<", monitored.page(), re.DOTALL)
    finally:
        run(*stop, "kill -CONT $(pidof snmp-subagentd)")
    monitored.wait_for_page(lambda page: "The last answer" not in page, "the answer", 0)


def test_the_alert_of_a_part_is_behind_its_fault(monitored):
    def alerts():
        found = json.loads(fetch(monitored.alertmanager, "/api/v2/alerts"))
        return {(alert["labels"]["alertname"], pathlib.PurePath(alert["labels"].get("dn", "")).name):
                alert["status"]["state"] for alert in found if alert["labels"]["instance"] == monitored.address()}
    wanted = {("TavoDiskFailed", "pd-3"): "suppressed", ("TavoFaultCritical", "pd-3"): "active",
              ("TavoVolumeDegraded", "vd-0"): "active"}
    wait_until(lambda: wanted.items() <= alerts().items(), what="the inhibition")


def test_an_unknown_server_is_no_error(monitored):
    page = monitored.page(instance="192.0.2.1:161%22%7D%3Cscript%3E")
    assert headline(page) == "Does not answer"
    assert "<script>}" not in page


def test_a_program_that_dies_is_named(directory):
    """The agent's own configuration keeps Prometheus out as little as run.sh itself."""
    access = directory / "access.conf"
    access.write_text("rocommunity secret\n")
    temporary = directory / "tmp"
    temporary.mkdir()
    with_one = Monitored("--config", str(access), TMPDIR=str(temporary))
    children = children_of(descendant(with_one.process.pid, "monitor"))
    os.kill(next(child for child in children if descendant(child, "prometheus-alertmanager") == child), signal.SIGKILL)
    output = with_one.process.stdout.read()
    assert with_one.process.wait(60) == 1
    assert "prometheus-alertmanager ended with status 137" in output
    with_one.process.stdout.close()
    assert_nothing_left(str(with_one.ports[0]))
    assert processes_with(with_one.prometheus) == os.listdir(temporary) == []


def test_ctrl_c_ends_all_while_it_starts():
    port = str(free_port())
    terminal = Terminal("--monitor", "--monitor-port", str(free_port(socket.SOCK_STREAM, count=3)), "--port", port)
    wait_until(lambda: terminal.read(0.1) and processes_with(f"127.0.0.1:{port}"), what="the daemon")
    os.write(terminal.descriptor, b"\x03")
    assert terminal.wait() == 130
    assert "Traceback" not in terminal.output
    assert_nothing_left(port)


def test_a_port_in_use_is_named():
    with socket.create_server(("127.0.0.1", free_port(socket.SOCK_STREAM))) as other:
        port = other.getsockname()[1]
        result = run("--monitor", "--port", str(free_port()), "--monitor-port", str(port))
    assert result.returncode == 1
    assert result.stderr == f"tcp port {port} is in use by another program; choose three others with --monitor-port\n"


@pytest.mark.parametrize("arguments, complaint", [
    (["--monitor", "--once"], "--monitor serves until Ctrl-C"),
    (["--monitor-port", "65534"], "not '65534'"),
])
def test_wrong_options_are_named(arguments, complaint):
    result = run(*arguments)
    assert result.returncode == 2
    assert complaint in result.stderr


def test_grafana_asks_for_what_there_is(monitored):
    """Each query of the dashboard finds something on a server with faults, and fits on the screen."""
    dashboard = json.loads((ROOT / "contrib/grafana/tavo.json").read_text())
    panels = dashboard["panels"]
    assert len({panel["id"] for panel in panels}) == len(panels)
    cells = [(x, y) for panel in panels for place in [panel["gridPos"]]
             for x in range(place["x"], place["x"] + place["w"]) for y in range(place["y"], place["y"] + place["h"])]
    assert len(set(cells)) == len(cells) and max(x for x, _ in cells) == 23
    variables = {variable["name"] for variable in dashboard["templating"]["list"]}
    queries = [(panel, target) for panel in panels for target in panel.get("targets", [])]
    assert len(queries) > 20
    for panel, target in queries:
        query = target["expr"].replace("$instance", monitored.address())
        assert set(re.findall(r"\$([a-z]\w+)", target["expr"])) <= variables
        found = wait_until(lambda query=query: monitored.query(query), what=f"a series for {panel['title']}: {query}")
        # Legends and columns are made of labels.
        labels = {label for series, _ in found for label in series} | {"Value"}
        columns = {name for step in panel.get("transformations", []) if step["id"] == "filterFieldsByName"
                   for name in step["options"]["include"]["names"]}
        assert columns | set(re.findall(r"{{(\w+)}}", target.get("legendFormat", ""))) <= labels, panel["title"]
