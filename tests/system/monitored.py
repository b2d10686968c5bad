"""./run.sh --monitor, as tests use it."""

import json
import os
import socket
import subprocess
import urllib.parse

from agents import ROOT, free_port, wait_until
from debian import need
from monitors import fetch
from test_run_sh import QUICK, run

PROGRAMS = ["prometheus-snmp-exporter", "prometheus", "prometheus-alertmanager"]  # packages of the same names


class Monitored:
    """./run.sh --monitor that is up."""

    def __init__(self, *options, count=1, **environment):
        for program in PROGRAMS:
            need(program, program)
        served = free_port(count=count)
        self.ports = list(range(served, served + count))
        first = free_port(socket.SOCK_STREAM, count=3)
        self.prometheus, self.exporter, self.alertmanager = (f"127.0.0.1:{first + number}" for number in range(3))
        self.process = subprocess.Popen(
            [ROOT / "run.sh", *QUICK, "--monitor", "--monitor-port", str(first), "--port", str(served), *options],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
            env={**os.environ, **environment})
        self.printed = ""
        for line in self.process.stdout:
            self.printed += line
            if "Ctrl-C stops" in line:
                return
        raise AssertionError(f"run.sh exited with {self.process.wait(60)}: {self.printed}")

    def address(self, number=0):
        return f"127.0.0.1:{self.ports[number]}"

    def page(self, number=None, **parameters):
        """The HTML of the page of all servers, or of one."""
        if number is not None:
            parameters["instance"] = self.address(number)
        query = "&".join(f"{name}={value}" for name, value in parameters.items())
        return fetch(self.prometheus, f"/consoles/tavo.html?{query}")

    def wait_for_page(self, condition, what, number=None):
        return wait_until(lambda: condition(self.page(number)), what=what)

    def ctl(self, *words, number=0):
        done = run("--port", str(self.ports[number]), "--exec", " ".join(["bmcsim ctl", *words]))
        assert done.returncode == 0, done.stderr
        return done.stdout

    def query(self, text):
        """[(labels, value)] of an instant query"""
        reply = json.loads(fetch(self.prometheus, "/api/v1/query?query=" + urllib.parse.quote(text)))
        return [(series["metric"], float(series["value"][1])) for series in reply["data"]["result"]]

    def stop(self):
        self.process.terminate()
        status = self.process.wait(60)
        self.process.stdout.close()
        return status
