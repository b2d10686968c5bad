#!/usr/bin/python3
"""fleet_bench.py [SERVERS [INTERVAL [MINUTES]]]: what it costs to scrape many servers with one Prometheus.

Boots so many simulated servers (default: 100), scrapes all every INTERVAL seconds (default: 60) for so many minutes
(default: 10) with the files of contrib/prometheus, and prints how long scrapes take and what agents and monitors need
of this machine. It says what else kept the machine busy meanwhile: on a busy one the figures are too high.
"""

import json
import os
import pathlib
import re
import socket
import statistics
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tests/system"))

from agents import BUILD, free_port  # noqa: E402
from monitors import fetch  # noqa: E402
from server import children_of  # noqa: E402

KINDS = ["snmp-subagentd", "bmcsim", "prometheus-snmp-exporter", "prometheus", "prometheus-alertmanager"]
TICKS = os.sysconf("SC_CLK_TCK")


class Usage:
    """Processor seconds and memory of all processes of each kind, and processor seconds of the whole machine."""

    def __init__(self, root):
        self.time = time.monotonic()
        self.seconds = dict.fromkeys(KINDS, 0.0)
        self.memory = dict.fromkeys(KINDS, 0)  # in KiB; what processes share is divided among them
        self._add(root)
        # user, nice, system, irq and softirq
        busy = [int(text) for text in pathlib.Path("/proc/stat").read_text().split("\n", 1)[0].split()[1:]]
        self.machine = (sum(busy) - busy[3] - busy[4]) / TICKS

    def _add(self, process):
        try:
            kind, fields = re.match(r"\d+ \((.*)\) (.*)", pathlib.Path(f"/proc/{process}/stat").read_text()).groups()
            for name in KINDS:
                if kind == name[:15]:
                    user, system = fields.split()[11:13]
                    self.seconds[name] += (int(user) + int(system)) / TICKS
                    share = pathlib.Path(f"/proc/{process}/smaps_rollup").read_text()
                    self.memory[name] += int(re.search(r"^Pss: +(\d+)", share, re.MULTILINE)[1])
            for child in children_of(process):
                self._add(child)
        except (FileNotFoundError, ProcessLookupError):
            pass  # it has ended


class Monitored:
    """The servers with the monitors around them; stopped by leaving the context."""

    def __init__(self, servers, interval):
        port = free_port(count=servers)
        monitor_port = free_port(socket.SOCK_STREAM, count=3)
        self.prometheus = f"127.0.0.1:{monitor_port}"
        command = [ROOT / "scripts/monitor", "--build", BUILD, "--port", port, "--fleet", servers,
                   "--monitor-port", monitor_port, "--interval", interval, "--",
                   ROOT / "scripts/fleet", "--build", BUILD, "--port", port, "--count", servers]
        self.process = subprocess.Popen([str(word) for word in command], stdout=subprocess.PIPE, text=True)

    def __enter__(self):
        for line in self.process.stdout:
            if "Ctrl-C stops" in line:
                return self
        sys.exit(self.process.wait())

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()

    def values(self, query):
        """The values of all series that an instant query finds, or of all their samples"""
        reply = json.loads(fetch(self.prometheus, f"/api/v1/query?query={query}"))
        return [float(value) for series in reply["data"]["result"]
                for _, value in series.get("values") or [series["value"]]]


def milliseconds_for_page(monitored, times=20):
    """Of the page of all servers: until it is there, and of a processor in Prometheus."""
    before = Usage(monitored.process.pid)
    for _ in range(times):
        fetch(monitored.prometheus, "/consoles/tavo.html")
    after = Usage(monitored.process.pid)
    return [1e3 * spent / times for spent in (after.time - before.time,
                                              after.seconds["prometheus"] - before.seconds["prometheus"])]


def main():
    given = sys.argv[1:]
    servers, interval, minutes = map(int, given + ["100", "60", "10"][len(given):])
    begin = time.monotonic()
    with Monitored(servers, interval) as monitored:
        print(f"{servers} servers up and scraped once after {time.monotonic() - begin:.0f} s; "
              f"from now on every {interval} s, measured for {minutes} min", flush=True)
        time.sleep(interval)
        before = Usage(monitored.process.pid)
        time.sleep(60 * minutes)
        after = Usage(monitored.process.pid)
        scrapes = sorted(monitored.values(f"scrape_duration_seconds[{minutes}m]"))
        failed = monitored.values(f"up[{minutes}m]").count(0)
        page, page_processor = milliseconds_for_page(monitored)
        own = fetch(monitored.prometheus, "/metrics")
    series = float(re.search(r"^prometheus_tsdb_head_series (\S+)", own, re.MULTILINE)[1])
    span = after.time - before.time
    print(f"{len(scrapes)} scrapes, {failed} failed: median {statistics.median(scrapes) * 1e3:.0f} ms, "
          f"p99 {scrapes[int(len(scrapes) * 0.99)] * 1e3:.0f} ms, max {scrapes[-1] * 1e3:.0f} ms")
    for kind in KINDS:
        cores = (after.seconds[kind] - before.seconds[kind]) / span
        print(f"{kind}: {cores:.3f} of a processor, {after.memory[kind] / 1024:.0f} MiB")
    ours = sum(after.seconds.values()) - sum(before.seconds.values())
    print(f"{series:.0f} series in Prometheus; the page of all servers takes {page:.0f} ms, "
          f"{page_processor:.0f} ms of a processor")
    others = (after.machine - before.machine - ours) / span
    print(f"all else on the machine: {others:.2f} of {os.cpu_count()} processors")


if __name__ == "__main__":
    main()
