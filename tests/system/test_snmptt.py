"""What contrib/snmptt makes of notifications, with the real snmptrapd, SNMPTT and daemon."""

import signal

from agents import ROOT, SNMPTRAPD, Program, free_port, wait_until
from alerting import send_start_up
from debian import need
from server import ServedDaemon, Server

SEVERITIES = ["Informational", "Condition", "Warning", "Minor", "Major", "Critical"]
INI = """\
[General]
mode = standalone
multiple_event = 1
net_snmp_perl_enable = 0
dns_enable = 0
remove_backslash_from_quotes = 1
[Logging]
log_enable = 1
log_format = $N|$s|$aA|$Fz
log_file = {log}
syslog_enable = 0
[TrapFiles]
snmptt_conf_files = <<END
{configuration}
END
"""


class Translator(Program):
    """snmptrapd, which hands each notification to snmptt."""

    def __init__(self, directory):
        self.address = f"127.0.0.1:{free_port()}"
        self._sentences = directory / "sentences"
        ini = directory / "snmptt.ini"
        ini.write_text(INI.format(log=self._sentences, configuration=ROOT / "contrib/snmptt/snmptt.conf.tavo"))
        file = directory / "snmptrapd.conf"
        file.write_text(f"authCommunity log,execute public\ntraphandle default {need('snmptt', 'snmptt')} --ini={ini}\n")
        super().__init__(directory, "snmptrapd", [SNMPTRAPD, "-f", "-C", "-c", file, "-n", "-On", "-Lo",
                                                  f"udp:{self.address}"])
        self.wait_for_log("NET-SNMP version")

    def sentences(self):
        """[(event, severity, sender, sentence)] of all notifications so far"""
        text = self._sentences.read_text() if self._sentences.exists() else ""
        return [tuple(line[len("Sun Nov 22 14:20:23 2026 "):].split("|")) for line in text.splitlines()]

    def wait_for(self, count):
        wait_until(lambda: len(self.sentences()) >= count, what=f"{count} sentences")
        return self.sentences()


def test_each_notification_is_a_sentence(start):
    translator = start(Translator)
    server = start(Server)
    # snmptrapd acknowledges an inform only after snmptt has ended.
    daemon = start(ServedDaemon, server, configuration=f"trap2sink {translator.address} public\n")
    server.wait_for_listeners()
    words = ["info", "condition", "warning", "minor", "major", "critical"]
    for number, word in enumerate([*words, "7"], 1):
        server.ctl("fault", "raise", str(number), "class=fan", "unit=2", f"severity={word}", "code=1002", "cause=238",
                   "occurrences=3", 'description=Fan 1 is "slow"')
        translator.wait_for(number)
    server.ctl("fault", "clear", "5", "class=fan")
    translator.wait_for(8)
    daemon.signal(signal.SIGUSR1)
    translator.wait_for(9)
    send_start_up(translator.address, daemon.directory)
    fan = "sys/rack-unit-1/fan-module-1-2/fan-1"
    text = 'Fan 1 is "slow"'
    numbers = "(code 1002, cause 238, occurrences 3)"
    assert translator.wait_for(10) == [
        *[("tavoFaultRaised", severity, "127.0.0.1",
           f"Fault {number} of {fan}, {word}: {text} {numbers}")
          for number, (word, severity) in enumerate(zip(words, SEVERITIES), 1)],
        ("tavoFaultRaised", "Warning", "127.0.0.1", f"Fault 7 of {fan}, severity 7: {text} {numbers}"),
        ("tavoFaultCleared", "Normal", "127.0.0.1", f"Fault 5 of {fan} is over: {text}"),
        ("tavoTestNotification", "Informational", "127.0.0.1", "The server tests its notifications: Test Fault"),
        ("tavoServerStarted", "Informational", "127.0.0.1",
         "The server was booted; it repeats the faults that are still active")]
