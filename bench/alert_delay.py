#!/usr/bin/python3
"""alert_delay.py [SERVERS]: how soon what goes wrong is an alert, by poll and by notification, and how soon that ends.

SERVERS (default 3) simulated servers are watched by Prometheus with contrib/prometheus and by notifications with
contrib/snmptrapd; both tell one Alertmanager. Parts are pulled and fail, 20 s apart from server to server, and after
12 minutes all is repaired. Three servers more have a tool that is missing, a tool that hangs and a daemon that dies;
on one more a whole RAID controller comes and goes. The table that is printed has the shortest and the longest delay of
each alert. It takes 40 minutes.
"""

import dataclasses
import itertools
import pathlib
import shutil
import signal
import socket
import sys
import tempfile
import threading
import time

import yaml

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tests/system"))

from agents import Program, free_port, wait_until  # noqa: E402
from alerting import Alertmanager, Bridge, NotificationLog  # noqa: E402
from debian import need  # noqa: E402
from monitors import PROMETHEUS, Exporter  # noqa: E402
from server import ServedDaemon, Server  # noqa: E402

STAGGER = 20  # seconds from server to server
BROKEN = 12 * 60  # seconds until the repair
REPAIRED = 17 * 60  # an alert about the last 15 minutes ends after them
FAULT_RULES = ("TavoFaultCritical", "TavoFaultWarning", "TavoFaultInfo")


@dataclasses.dataclass
class Case:
    """Something that goes wrong: what is done and undone, and what the alert of the rules is then about."""

    part: str
    event: str
    spoil: tuple
    mend: tuple
    alert: str
    dn: str = ""


def parts():
    board, slot_4 = "sys/rack-unit-1/board", "sys/rack-unit-1/board/storage-SAS-SLOT-4"
    return [
        Case("fan", "pulled", ("fan", "remove", "FAN1_TACH1"), ("fan", "insert", "FAN1_TACH1"), "TavoPartGone",
             "sys/rack-unit-1/fan-module-1-1/fan-1"),
        Case("fan", "fails", ("fan", "fail", "FAN2_TACH1"), ("fan", "repair", "FAN2_TACH1"), "TavoFanFailed",
             "sys/rack-unit-1/fan-module-1-2/fan-1"),
        Case("power supply", "pulled", ("supply", "remove", "2"), ("supply", "insert", "2"), "TavoPartGone",
             "sys/rack-unit-1/psu-2"),
        Case("power supply", "fails", ("supply", "fail", "1"), ("supply", "repair", "1"), "TavoSupplyFailed",
             "sys/rack-unit-1/psu-1"),
        Case("memory module", "pulled", ("dimm", "remove", "DIMM_A2"), ("dimm", "insert", "DIMM_A2"), "TavoPartGone",
             f"{board}/memarray-1/mem-2"),
        Case("memory module", "fails", ("dimm", "fail", "DIMM_B1"), ("dimm", "repair", "DIMM_B1"),
             "TavoMemoryModuleFailed", f"{board}/memarray-1/mem-4"),
        Case("processor", "pulled", ("processor", "remove", "2"), ("processor", "insert", "2"), "TavoPartGone",
             f"{board}/cpu-2"),
        Case("processor", "disabled", ("processor", "disable", "1"), ("processor", "enable", "1"),
             "TavoProcessorFailed", f"{board}/cpu-1"),
        Case("adaptor", "pulled", ("adapter", "remove", "4"), ("adapter", "insert", "4"), "TavoPartGone",
             "sys/rack-unit-1/adaptor-4"),
        Case("adaptor", "too hot", ("adapter", "set", "2", "over-temperature=yes"),
             ("adapter", "set", "2", "over-temperature=no"), "TavoAdaptorTooHot", "sys/rack-unit-1/adaptor-2"),
        Case("disk", "pulled", ("drive", "pull", "4", "1"), ("drive", "insert", "4", "1"), "TavoPartGone",
             f"{slot_4}/pd-1"),
        Case("disk", "fails", ("drive", "set", "4", "2", "state=failed"), ("drive", "set", "4", "2", "state=good"),
             "TavoDiskFailed", f"{slot_4}/pd-2"),
        Case("volume", "degraded", ("volume", "degrade", "0", "0"), ("volume", "rebuild", "0", "0"),
             "TavoVolumeDegraded", f"{board}/storage-SAS-SAS/vd-0"),
        Case("volume", "offline", ("volume", "set", "4", "2", "state=offline"),
             ("volume", "set", "4", "2", "state=optimal"), "TavoVolumeOffline", f"{slot_4}/vd-2"),
        Case("battery", "fails", ("battery", "fail", "4"), ("battery", "repair", "4"), "TavoBatteryFailed",
             f"{slot_4}/raid-battery"),
        Case("RAID controller", "fails", ("controller", "set", "0", "faulty=yes"),
             ("controller", "set", "0", "faulty=no"), "TavoRaidControllerFailed", f"{board}/storage-SAS-SAS"),
        Case("SD card", "pulled", ("sd-card", "pull", "1"), ("sd-card", "insert", "1"), "TavoPartGone",
             f"{board}/storage-veltro/pd-SLOT-1"),
        Case("temperature", "high (memory module at 90)", ("dimm", "set", "DIMM_C1", "temperature=90"),
             ("dimm", "set", "DIMM_C1", "temperature=35"), "TavoTemperatureHigh", "sys/rack-unit-1/memarray-1/mem-7"),
        Case("temperature", "critical (air at 50)", ("environment", "set", "ambient=50"),
             ("environment", "set", "ambient=23"), "TavoTemperatureCritical", "ambient"),
    ]


# On a server of their own each, because they disturb the other cases.
CONTROLLER = [
    Case("RAID controller", "pulled", ("controller", "remove", "7"), ("controller", "add", "7", "location=SLOT-5"),
         "TavoPartGone", "sys/rack-unit-1/board/storage-SAS-SLOT-5"),
    Case("battery", "pulled", ("battery", "remove", "4"), ("battery", "insert", "4"), "TavoPartGone",
         "sys/rack-unit-1/board/storage-SAS-SLOT-4/raid-battery")]
MISSING = [
    Case("table", "a tool is missing", ("tool", "datactl", "missing"), ("tool", "datactl", "ok"), alert)
    for alert in ("TavoTableFailing", "TavoTableEmpty")]
HANGING = [
    Case("table", "a tool hangs", ("tool", "datactl", "hangs"), ("tool", "datactl", "ok"), alert)
    for alert in ("TavoToolsKilled", "TavoTableStuck", "TavoAgentSilent")]
AGENT = [Case("agent", "dies", (), (), "TavoAgentSilent")]


class Prometheus(Program):
    """Prometheus with the rules and the example of contrib/prometheus, for these targets."""

    def __init__(self, directory, exporter, alertmanager, targets):
        configuration = yaml.safe_load((PROMETHEUS / "prometheus.yml").read_text())
        configuration["rule_files"] = [str(PROMETHEUS / "rules.yml")]
        job = configuration["scrape_configs"][0]
        job["static_configs"] = [{"targets": targets}]
        job["relabel_configs"][-1]["replacement"] = exporter.address
        at = f"127.0.0.1:{alertmanager.port}"
        configuration["alerting"] = {"alertmanagers": [{"static_configs": [{"targets": [at]}]}]}
        file = directory / "prometheus.yml"
        file.write_text(yaml.safe_dump(configuration))
        super().__init__(directory, "prometheus", [
            need("prometheus", "prometheus"), f"--config.file={file}", f"--storage.tsdb.path={directory / 'tsdb'}",
            f"--web.listen-address=127.0.0.1:{free_port(socket.SOCK_STREAM)}"])
        self.wait_for_log("Server is ready")


class Watched:
    """A simulated server and its daemon, watched under the address `source` and the name `instance`."""

    def __init__(self, directory, number, cases, log):
        self.cases = cases
        self.source = f"127.0.0.{number + 1}"
        self._directory = directory / str(number)
        self._directory.mkdir()
        self._log = log
        self._server = Server(self._directory)
        self._server.ctl("environment", "set", "drift=0")
        if cases is CONTROLLER:
            self._server.ctl(*CONTROLLER[0].mend)
        self._daemon = self._start()
        self.instance = self._daemon.address

    def _start(self, *options):
        configuration = f"[snmp] clientaddr {self.source}\ninformsink {self._log.address} public\n"
        return ServedDaemon(self._directory, self._server, configuration=configuration, options=options)

    def act(self, done):
        """Spoils or mends every case, and returns the time of each."""
        times = []
        for case in self.cases:
            times.append(time.monotonic())
            if case is not AGENT[0]:
                self._server.ctl(*(case.spoil if done == "spoil" else case.mend))
            elif done == "spoil":
                self._daemon.signal(signal.SIGKILL)
                self._daemon.wait()
            else:
                self._daemon = self._start("--listen", f"udp:{self.instance}")
        return times

    def stop(self):
        for program in (self._daemon, self._server):
            program.stop()


class Watch:
    """Looks at Alertmanager all the time, and notes when alerts come and go."""

    def __init__(self, alertmanager):
        self._alertmanager = alertmanager
        self._changes = {}  # {(instance, alert's name, dn): [(time, whether it is there)]}
        self._stopping = threading.Event()
        self._thread = threading.Thread(target=self._look)
        self._thread.start()

    def _look(self):
        before = set()
        while not self._stopping.wait(0.2):
            now = time.monotonic()
            there = {(labels["instance"], labels["alertname"], labels.get("dn", ""))
                     for labels in self._alertmanager.labels()}
            for name in there ^ before:
                self._changes.setdefault(name, []).append((now, name in there))
            before = there

    def stop(self):
        self._stopping.set()
        self._thread.join()

    def delay(self, instance, names, dn, there, since):
        """Seconds from `since` until the first of these alerts came or, unless `there`, went for good. Or None."""
        delays = []
        for name in names:
            times = [at - since for at, is_there in self._changes.get((instance, name, dn), [])
                     if is_there == there and at >= since]
            delays += times[:1] if there else times[-1:]
        return min(delays, default=None)


def span(delays):
    """The shortest and the longest, in words; "no" where there was none."""
    found = [delay for delay in delays if delay is not None]
    if not found:
        return "no"
    texts = [f"{delay:.1f} s" if delay < 10 else f"{delay:.0f} s" for delay in (min(found), max(found))]
    missing = f" ({len(delays) - len(found)} missing)" if len(found) < len(delays) else ""
    return " to ".join(dict.fromkeys(texts)) + missing


def report(watch, groups, spoilt, mended):
    print("| What | notification: alert | end | poll, fault: alert | end | poll, part: alert | end | rule |")
    print("|---|---|---|---|---|---|---|---|")
    for cases, servers in groups:
        for number, case in enumerate(cases):
            cells = [span([watch.delay(server.instance, names, case.dn, there, times[server][number])
                           for server in servers])
                     for names in (["TavoFault"], FAULT_RULES, [case.alert])
                     for there, times in ((True, spoilt), (False, mended))]
            print(f"| {case.part}: {case.event} | {' | '.join(cells)} | {case.alert} |", flush=True)


def act_on(servers, done):
    """{server: times}"""
    begin = time.monotonic()
    times = {}
    for number, server in enumerate(servers):
        time.sleep(max(0, begin + number * STAGGER - time.monotonic()))
        times[server] = server.act(done)
    return times


def main():
    count = int(sys.argv[1]) if len(sys.argv) > 1 else 3
    directory = pathlib.Path(tempfile.mkdtemp(prefix="tavo-"))
    running = []

    def start(kind, *arguments, **settings):
        running.append(kind(*arguments, **settings))
        return running[-1]

    try:
        alertmanager = start(Alertmanager, directory)
        log = start(NotificationLog, directory)
        exporter = start(Exporter, directory)
        numbers = itertools.count(1)
        groups = [(cases, [start(Watched, directory, next(numbers), cases, log) for _ in range(how_many)])
                  for cases, how_many in ((parts(), count), (CONTROLLER, 1), (MISSING, 1), (HANGING, 1), (AGENT, 1))]
        servers = [server for _, members in groups for server in members]
        names = directory / "instances"
        names.write_text("".join(f"{server.source} {server.instance}\n" for server in servers))
        start(Bridge, directory, log, alertmanager, options=["--instances", names])
        start(Prometheus, directory, exporter, alertmanager, [server.instance for server in servers])
        watch = start(Watch, alertmanager)
        # An old fault of each server tells that it has been scraped. TavoPartGone needs that.
        old = "sys/rack-unit-1/adaptor-5"
        wait_until(lambda: all(watch.delay(server.instance, FAULT_RULES, old, True, 0) for server in servers),
                   300, "the first scrape of all servers")
        time.sleep(120)
        spoilt = act_on(servers, "spoil")
        print(f"spoilt at {time.strftime('%H:%M:%S')}", flush=True)
        time.sleep(BROKEN)
        mended = act_on(servers, "mend")
        print(f"mended at {time.strftime('%H:%M:%S')}", flush=True)
        time.sleep(REPAIRED)
        report(watch, groups, spoilt, mended)
    finally:
        for program in reversed(running):
            program.stop()
        shutil.rmtree(directory, ignore_errors=True)


if __name__ == "__main__":
    main()
