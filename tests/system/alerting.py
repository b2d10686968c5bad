"""From a notification to an alert: snmptrapd and tavo-alerts, as contrib/snmptrapd sets them up, and Alertmanager."""

import json
import re
import signal
import socket
import subprocess

from agents import ROOT, SNMPTRAPD, Program, environment, free_port, wait_until
from debian import command_of
from monitors import fetch
from oids import CLEARED, FAULT_TABLE, RAISED

SNMPTRAPD_FILES = ROOT / "contrib/snmptrapd"
ROUTES = "route: {receiver: nobody}\nreceivers: [{name: nobody}]\n"
START_UP = "1.3.6.1.6.3.1.1.5.2"
FAULT_ENTRY = f"{FAULT_TABLE}.1"


def send(address, directory, kind, *varbinds, uptime=100, source=None):
    """Sends an SNMPv2c inform with these (name, type, value), as a server would."""
    command = ["snmpinform", "-v2c", "-c", "public", *([f"--clientaddr={source}"] if source else []), address,
               str(uptime), kind, *(word for varbind in varbinds for word in varbind)]
    subprocess.run(command, check=True, capture_output=True, env=environment(directory))


def send_start_up(address, directory):
    """Sends what a server sends after a cold start."""
    send(address, directory, START_UP, (f"{FAULT_ENTRY}.10.0", "x", "07E70B0E160D1400"),
         ("1.3.6.1.6.3.1.1.4.3.0", "o", "1.3.6.1.4.1.61453.1.3301"))


class Alertmanager(Program):
    """Alertmanager at `url`, with these routes. It is restarted at the same `port`."""

    def __init__(self, directory, port=None, routes=ROUTES, name="alertmanager"):
        self.port = port or free_port(socket.SOCK_STREAM)
        self._address = f"127.0.0.1:{self.port}"
        self.url = f"http://{self._address}"
        file = directory / f"{name}.yml"
        file.write_text(routes)
        super().__init__(directory, name, [
            *command_of("prometheus-alertmanager", "prometheus-alertmanager"), f"--config.file={file}",
            f"--web.listen-address={self._address}", "--cluster.listen-address=",
            f"--storage.path={directory / name}"])
        self.wait_for_log("Listening")

    def alerts(self):
        """The alerts that are active."""
        return json.loads(fetch(self._address, "/api/v2/alerts", timeout=10))

    def labels(self):
        """[the labels of each active alert]"""
        return [alert["labels"] for alert in self.alerts()]

    def wait_for(self, condition, what, timeout=10):
        """Waits until the list of the labels meets the condition, and returns the list."""
        def met():
            labels = self.labels()
            return [labels] if condition(labels) else None
        return wait_until(met, timeout, what)[0]


class NotificationLog(Program):
    """snmptrapd as contrib/snmptrapd has it. It listens at `address` on UDP and writes to `file`."""

    def __init__(self, directory, address=None):
        self.address = address or f"127.0.0.1:{free_port()}"
        self.file = directory / "notifications"
        unit = (SNMPTRAPD_FILES / "snmptrapd-override.conf").read_text()
        options = re.search(r"(?m)^ExecStart=/usr/sbin/snmptrapd (.*)/var/log/tavo/notifications ", unit)[1]
        words = [word.replace('""', "") for word in options.split()]
        super().__init__(directory, "snmptrapd", [SNMPTRAPD, *words, self.file, "-C", "-c",
                                                  SNMPTRAPD_FILES / "snmptrapd.conf", f"udp:{self.address}"])
        wait_until(lambda: self.file.exists() and "NET-SNMP version" in self.file.read_text(), what="snmptrapd")

    def send(self, kind, *varbinds, **settings):
        send(self.address, self.directory, kind, *varbinds, **settings)

    def send_fault(self, index, severity=6, dn="sys/rack-unit-1", description="Broken", more=(), **settings):
        """Sends what a server sends when a fault is raised or, with severity 0, cleared, and `more` varbinds."""
        def column(number, kind, value):
            return f"{FAULT_ENTRY}.{number}.{index}", kind, str(value)
        self.send(CLEARED if severity == 0 else RAISED, column(1, "u", index), column(11, "s", description),
                  column(5, "s", dn), column(20, "i", severity), *more, **settings)

    def rotate(self, name):
        """Renames the file, as logrotate does."""
        self.file.rename(self.file.with_name(name))
        self.signal(signal.SIGHUP)
        wait_until(self.file.exists, what="the next file")


class Bridge(Program):
    """tavo-alerts between this snmptrapd and these Alertmanagers."""

    def __init__(self, directory, log, *alertmanagers, options=()):
        super().__init__(directory, "tavo-alerts", [
            SNMPTRAPD_FILES / "tavo-alerts", "--notifications", log.file, "--state", directory / "state.json",
            *(word for alertmanager in alertmanagers for word in ("--alertmanager", alertmanager.url)), *options])
        self.wait_for_log("following")
