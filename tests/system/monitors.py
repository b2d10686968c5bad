"""Debian's programs of Prometheus, as tests use them."""

import re
import socket
import subprocess
import urllib.request

from agents import ROOT, Program, free_port
from debian import command_of, need

PROMETHEUS = ROOT / "contrib/prometheus"


def run(program, package, *arguments):
    """Runs a program that ends. Returns its exit status and output."""
    command = [*command_of(program, package), *map(str, arguments)]
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    return done.returncode, done.stdout


def fetch(address, path, timeout=60):
    """What the server at HOST:PORT answers, as a text. Raises urllib.error.HTTPError."""
    with urllib.request.urlopen(f"http://{address}{path}", timeout=timeout) as answer:
        return answer.read().decode()


class Exporter(Program):
    def __init__(self, directory):
        self.address = f"127.0.0.1:{free_port(socket.SOCK_STREAM)}"
        super().__init__(directory, "exporter", [
            need("prometheus-snmp-exporter", "prometheus-snmp-exporter"),
            f"--config.file={PROMETHEUS / 'snmp-0.21.yml'}", f"--web.listen-address={self.address}"])
        self.wait_for_log("Listening on")

    def scrape(self, target):
        """{name: [(labels, value)]} of the server at this address"""
        metrics = {}
        for line in fetch(self.address, f"/snmp?module=tavo&target={target}").splitlines():
            if not line.startswith("#"):
                name, labels, value = re.fullmatch(r'(\w+)(?:{(.*)})? (\S+)', line).groups()
                pairs = dict(re.findall(r'(\w+)="((?:[^"\\]|\\.)*)"', labels or ""))
                metrics.setdefault(name, []).append((pairs, float(value)))
        return metrics
