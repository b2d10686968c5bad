"""What managers receive: each kind of notification, with each configuration that docs/notifications.md describes."""

import calendar
import re
import signal
import time

import pytest

from agents import ROOT, SNMPTRAPD, Master, Program, free_port, snmp, snmpget, wait_for_sigwait, wait_until
from oids import CLEARED, FAULT_TABLE, PROCESSOR_DN, RAISED
from rebuilds import timed_lines
from server import SCENARIO, ServedDaemon, Server

FAULT_ENTRY = f".{FAULT_TABLE}.1"
TRAP_OID = ".1.3.6.1.6.3.1.1.4.1.0"
START_UP = ".1.3.6.1.6.3.1.1.5.2"

# {documented sender: documented receiver}
SENDERS = {"v2c trap": "v2c", "v2c inform": "v2c", "v3 trap": "v3 trap", "v3 inform": "v3 inform"}


def documented(title, address):
    """The configuration with this title in docs/notifications.md, for a receiver at this address."""
    text = (ROOT / "docs/notifications.md").read_text()
    block = re.search(rf"```\n# {re.escape(title)}\n(.*?)```", text, re.DOTALL)[1]
    return block.replace("192.0.2.10:162", address)


class Receiver(Program):
    """snmptrapd. It prints one line per notification, with the name, type and value of each varbind."""

    def __init__(self, directory, sender):
        self.address = f"127.0.0.1:{free_port()}"
        name = sender.replace(" ", "-")
        file = directory / f"{name}.conf"
        file.write_text(documented(f"receiver, {SENDERS[sender]}", self.address))
        persistent = directory / name
        persistent.mkdir()
        super().__init__(directory, name, [SNMPTRAPD, "-f", "-C", "-c", file, "-n", "-On", "-Lo", "-F", "GOT %V|%v\\n",
                                           f"udp:{self.address}"], SNMP_PERSISTENT_DIR=str(persistent))
        self.wait_for_log("NET-SNMP version")

    def received(self):
        """[[(name, "TYPE: value") of each varbind but the time stamp] for each notification of the daemon]."""
        lines = [line.removeprefix("GOT ") for line in self.log().splitlines()
                 if line.startswith("GOT ") and ".61453." in line]  # a master sends some of its own
        return [[tuple(varbind.strip().split(" = ", 1)) for varbind in line.split("|")][1:] for line in lines]

    def faults_received(self):
        """received() without the test notifications. An orderly stop sends one, too."""
        return [notification for notification in self.received()
                if notification[1] != (f"{FAULT_ENTRY}.1.1", "Gauge32: 0")]

    def wait_for(self, count, received=None):
        """Waits for `count` notifications, and returns all that have arrived."""
        received = received or self.received
        wait_until(lambda: len(received()) >= count, what=f"{count} notifications at {self.log_file}")
        return received()


def date_and_time(seconds):
    """A DateAndTime of eight octets, as snmptrapd prints it."""
    year, month, day, hour, minute, second = time.gmtime(seconds)[:6]
    octets = [year >> 8, year & 0xFF, month, day, hour, minute, second, 0]
    return "Hex-STRING: " + " ".join(f"{octet:02X}" for octet in octets)


def seconds_of(value):
    """The reverse of date_and_time()."""
    octets = bytes.fromhex(value.removeprefix("Hex-STRING: "))
    return calendar.timegm((octets[0] << 8 | octets[1], *octets[2:7]))


def fault_varbinds(kind, severity, last_time, occurrences, description, object_prefix=""):
    """The thirteen varbinds of fault 7, in order."""
    def column(number):
        return f"{FAULT_ENTRY}.{number}.7"

    return [
        (TRAP_OID, f"OID: {kind}"),
        (column(1), "Gauge32: 7"),
        (column(11), f'STRING: "{description}"'),
        (column(4), f"OID: .{PROCESSOR_DN}.2"),
        (column(5), f'STRING: "{object_prefix}sys/rack-unit-1/board/cpu-2"'),
        (column(10), date_and_time(1_700_000_000)),
        (column(14), date_and_time(last_time)),
        (column(9), "INTEGER: 1001"),
        (column(22), "INTEGER: 5"),
        (column(7), "INTEGER: 17"),
        (column(20), f"INTEGER: {severity}"),
        (column(16), f"Counter32: {occurrences}"),
        (column(13), f"Counter64: {7 << 32}"),
    ]


def columns(severity, last_time, description, previous):
    """All columns of fault 7, as snmpget prints them."""
    values = {
        2: 'STRING: "sys/rack-unit-1/board/cpu-2/fault-1001"',
        3: 'STRING: "fault-1001"',
        4: f"OID: .{PROCESSOR_DN}.2",
        5: 'STRING: "sys/rack-unit-1/board/cpu-2"',
        6: "INTEGER: 1",
        7: "INTEGER: 17",
        8: 'STRING: "unknown"',
        9: "INTEGER: 1001",
        10: date_and_time(1_700_000_000),
        11: f'STRING: "{description}"',
        12: "INTEGER: 6",
        13: f"Counter64: {7 << 32}",
        14: date_and_time(last_time),
        15: "INTEGER: 0",
        16: "Counter32: 3",
        17: f"INTEGER: {severity}",
        18: f"INTEGER: {previous}",
        19: "INTEGER: 1001",
        20: f"INTEGER: {severity}",
        21: 'STRING: "C"',
        22: "INTEGER: 5",
    }
    return [f"{FAULT_ENTRY}.{number}.7 = {value}" for number, value in values.items()]


def row(daemon, index):
    """All columns of a fault."""
    return [line.strip() for line in snmpget(daemon.address, *[f"{FAULT_ENTRY}.{n}.{index}" for n in range(2, 23)])]


# net-snmp repeats informs and AgentX packets that are not acknowledged within a second of its clock. A slow receiver
# would get them twice.
PATIENCE = "\n[snmp] timeout 1200\n[snmp] retries 0\n"


def start_daemon(start, route, server, sender_configuration, configuration="", **settings):
    """The daemon on its own ("alone"), or behind a master that sends its notifications ("agentx")."""
    master = None
    if route == "alone":
        configuration += sender_configuration
    else:
        text = (ROOT / "host/snmpd-master.conf").read_text() + "\n" + sender_configuration + PATIENCE
        master_configuration = server.directory / "master-with-receivers.conf"
        master_configuration.write_text(text)
        master = start(Master, master_configuration)
    return start(ServedDaemon, server, master=master, configuration=configuration + PATIENCE, TZ="UTC", **settings)


@pytest.mark.parametrize("route", ["alone", "agentx"])
def test_fault_changes_reach_every_kind_of_receiver(start, directory, route):
    with_serial_number = route == "alone"
    prefix = "[Serial No: SERIAL-0001] " if with_serial_number else ""
    server = start(Server)
    if with_serial_number:
        server.run("touch", "/var/snmpSerialNoEnabled")
    receivers = {sender: start(Receiver, sender) for sender in SENDERS}
    daemon = start_daemon(start, route, server,
                          "\n".join(documented(f"sender, {sender}", receiver.address)
                                    for sender, receiver in receivers.items()))
    server.wait_for_listeners()
    time_before = int(time.time())

    server.ctl("fault", "raise", "7", "class=processor", "unit=2", "severity=minor", "cause=17", "code=1001", "tag=67",
               "occurrences=3", "dn=sys/rack-unit-1/board/cpu-2/fault-1001", "rn=fault-1001",
               "description=Processor 2 has failed", "first-time=1700000000", "last-time=1700003600")
    for receiver in receivers.values():
        receiver.wait_for(1)
    raised = fault_varbinds(f".{RAISED}", 4, 1_700_003_600, 3, "Processor 2 has failed", prefix)
    assert row(daemon, 7) == columns(4, 1_700_003_600, "Processor 2 has failed", 0)

    server.ctl("fault", "update", "7", "severity=critical", "description=Processor 2 is too hot",
               "last-time=1700007200")
    for receiver in receivers.values():
        receiver.wait_for(2)
    updated = fault_varbinds(f".{RAISED}", 6, 1_700_007_200, 3, "Processor 2 is too hot", prefix)
    assert row(daemon, 7) == columns(6, 1_700_007_200, "Processor 2 is too hot", 4)

    server.ctl("fault", "clear", "7")
    for sender, receiver in receivers.items():
        received = receiver.wait_for(3)
        assert received[:2] == [raised, updated], sender
        last_time = seconds_of(received[2][6][1])
        assert time_before <= last_time <= time.time(), sender
        assert received[2] == fault_varbinds(f".{CLEARED}", 0, last_time, 3, "Processor 2 is too hot", prefix), sender
        assert len(received) == 3, f"{sender}: each change must be notified once"
    wait_until(lambda: "No Such Instance" in snmpget(daemon.address, f"{FAULT_ENTRY}.2.7")[0],
               what="the removal of the row")


@pytest.mark.parametrize("route", ["alone", "agentx"])
def test_cold_start_is_notified_once_a_warm_one_never(start, route):
    server = start(Server, cold=True)
    receiver = start(Receiver, "v2c trap")
    sender = documented("sender, v2c trap", receiver.address)

    begin = time.time()
    daemon = start_daemon(start, route, server, sender, speed=20, configuration="[snmp] logTimestamp yes\n")
    received = receiver.wait_for(5)
    assert received[0][0] == (TRAP_OID, f"OID: {START_UP}")
    assert received[0][1][0] == f"{FAULT_ENTRY}.10.0"
    sent = seconds_of(received[0][1][1])
    initiated = next(seconds for seconds, text in timed_lines(daemon.log()) if text == "EventThread initiated")
    assert sent - initiated >= 60 - 1, "a minute, give or take the second to which both are rounded"
    assert begin <= sent <= begin + 20 * (time.time() - begin) + 1
    assert received[0][2] == (".1.3.6.1.6.3.1.1.4.3.0", "OID: .1.3.6.1.4.1.61453.1.3301")
    assert [notification[:2] for notification in received[1:]] == [
        [(TRAP_OID, f"OID: .{RAISED}"), (f"{FAULT_ENTRY}.1.{index}", f"Gauge32: {index}")]
        for index in (11, 17, 23, 31)]
    assert server.run("stat", "-c", "%s", "/var/tvmcWarmStartup").stdout == "0\n"
    daemon.stop()
    server.wait_for_listeners(0)

    daemon = start_daemon(start, route, server, sender)
    server.wait_for_listeners()
    assert len(snmp("snmpwalk", daemon.address, f"{FAULT_TABLE}.1.2")) == 4
    server.ctl("fault", "raise", "77", "class=processor")
    assert receiver.wait_for(6, receiver.faults_received)[5][1] == (f"{FAULT_ENTRY}.1.77", "Gauge32: 77")


def test_sigusr1_and_stop_send_a_test_notification(start):
    server = start(Server)
    receiver = start(Receiver, "v2c trap")
    daemon = start(ServedDaemon, server, configuration=documented("sender, v2c trap", receiver.address))
    for count in (1, 2):
        daemon.signal(signal.SIGUSR1)
        receiver.wait_for(count)
    # If the thread were still sending the second one, it would find its run flag cleared and not send the last one.
    daemon.wait_for_log("Called Test Trap", count=2)
    wait_for_sigwait(daemon.pid, signal.SIGUSR1)
    daemon.stop()
    received = receiver.wait_for(3)
    assert received[0] == received[1] == received[2]
    assert received[0][:3] == [(TRAP_OID, f"OID: .{CLEARED}"), (f"{FAULT_ENTRY}.1.1", "Gauge32: 0"),
                               (f"{FAULT_ENTRY}.11.1", 'STRING: "Test Fault"')]
    assert received[0][3:] == [
        (f"{FAULT_ENTRY}.4.1", "OID: .0.0.0"), (f"{FAULT_ENTRY}.5.1", 'STRING: "sys/rack-unit-1/test-entity"'),
        (f"{FAULT_ENTRY}.10.1", '""'), (f"{FAULT_ENTRY}.14.1", '""'), (f"{FAULT_ENTRY}.9.1", "INTEGER: 0"),
        (f"{FAULT_ENTRY}.22.1", "INTEGER: 5"), (f"{FAULT_ENTRY}.7.1", "INTEGER: 0"),
        (f"{FAULT_ENTRY}.20.1", "INTEGER: 0"), (f"{FAULT_ENTRY}.16.1", "Counter32: 1"),
        (f"{FAULT_ENTRY}.13.1", f"Counter64: {1 << 32}")]


def test_restarted_fault_engine_is_loaded_anew(start, directory):
    server = start(Server)
    receiver = start(Receiver, "v2c trap")
    daemon = start(ServedDaemon, server, configuration=documented("sender, v2c trap", receiver.address))
    server.wait_for_listeners()
    server.ctl("fault", "raise", "77", "class=processor")
    receiver.wait_for(1)

    # The same server, but only two of its four faults are left, and one is new.
    text = SCENARIO.read_text()
    head, faults = text.split("\nfaults:\n")
    _, tail = faults.split("\n\n", 1)
    others = directory / "other-faults.yaml"
    kept = "  - {index: 17, class: memory, unit: 19, severity: critical}\n  - {index: 31, class: 209}\n"
    others.write_text(f"{head}\nfaults:\n{kept}  - {{index: 90, class: fan, unit: 2}}\n\n{tail}")

    server.kill_services()
    services = start(Program, "services", server.services(others))
    daemon.wait_for_log("Cleared 5 event nodes\n")
    daemon.wait_for_log("Removed 5 fault entries\n")
    daemon.wait_for_log("FE End Index 3\n")
    received = receiver.wait_for(4)
    assert services.process.poll() is None
    assert [notification[:2] for notification in received[1:]] == [
        [(TRAP_OID, f"OID: .{RAISED}"), (f"{FAULT_ENTRY}.1.{index}", f"Gauge32: {index}")] for index in (17, 31, 90)]
    wait_until(lambda: [line.split(" = ")[0] for line in snmp("snmpwalk", daemon.address, f"{FAULT_TABLE}.1.2")] ==
               [f"{FAULT_ENTRY}.2.{index}" for index in (17, 31, 90)], what="the new table")

    server.ctl("fault", "clear", "90")
    assert receiver.wait_for(5)[4][:2] == [(TRAP_OID, f"OID: .{CLEARED}"), (f"{FAULT_ENTRY}.1.90", "Gauge32: 90")]
