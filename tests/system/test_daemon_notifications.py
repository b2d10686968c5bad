"""Notifications sent from a module's thread reach the managers: each of them, once, in order."""

import os
import re
import signal
import time

from agents import (ROOT, SNMPD, TEST_BASE, TEST_MODULES, Daemon, Master, Program, TrapCollector, free_port, snmpget,
                    wait_until)

MASTER_CONFIGURATION = ROOT / "host/snmpd-master.conf"
NOTIFIER = TEST_MODULES / "notifier.so"


def numbers(collector):
    """The numbers of the notifications received, in the order of arrival."""
    return [int(number) for number in re.findall(rf"{re.escape(TEST_BASE)}\.2\.0 = Gauge32: (\d+)", collector.log())]


def wait_for_count(collector, count):
    wait_until(lambda: len(numbers(collector)) >= count, what=f"{count} notifications")


def test_ten_thousand_arrive_once_and_in_order(start):
    collector = start(TrapCollector)
    master = start(Master, MASTER_CONFIGURATION, trap_destination=collector.destination)
    daemon = start(Daemon, module=NOTIFIER, master=master)
    begin = time.monotonic()
    daemon.order("send 1 10000 960")
    wait_for_count(collector, 10_000)
    print(f"10,000 notifications in {time.monotonic() - begin:.1f} s")
    assert numbers(collector) == list(range(1, 10_001))
    assert snmpget(daemon.address, f"{TEST_BASE}.1.0") == [f".{TEST_BASE}.1.0 = INTEGER: 10000"]


def test_requests_are_answered_during_a_stream(start):
    collector = start(TrapCollector)
    master = start(Master, MASTER_CONFIGURATION, trap_destination=collector.destination)
    daemon = start(Daemon, module=NOTIFIER, master=master)
    ordered = answered = 0
    while answered <= 10:
        if len(numbers(collector)) == ordered:
            assert ordered < 20_000, f"only {answered} requests answered meanwhile"
            daemon.order(f"send {ordered + 1} 5000 960")
            ordered += 5000
        snmpget(daemon.address, f"{TEST_BASE}.1.0")
        answered += len(numbers(collector)) < ordered
    wait_for_count(collector, ordered)
    print(f"{answered} requests answered while {ordered} notifications streamed")


def test_absent_master_delays_but_loses_nothing(start):
    collector = start(TrapCollector)
    master = start(Master, MASTER_CONFIGURATION, trap_destination=collector.destination)
    daemon = start(Daemon, module=NOTIFIER, master=master)
    daemon.order("send 1 5 100")
    wait_for_count(collector, 5)

    master.kill()
    daemon.wait_for_log("AgentX master disconnected us")
    daemon.order("send 6 2000 100")
    daemon.wait_for_log("sent number 2005\n")
    assert numbers(collector) == [1, 2, 3, 4, 5]

    returned = time.monotonic()
    start(Master, MASTER_CONFIGURATION, udp_port=master.port, trap_destination=collector.destination)
    # It takes a second or two. net-snmp on its own would look for the master every 15 s.
    wait_until(lambda: snmpget(daemon.address, f"{TEST_BASE}.1.0") == [f".{TEST_BASE}.1.0 = INTEGER: 2005"], 12,
               "the daemon's return")
    print(f"back {time.monotonic() - returned:.2f} s after the master was started")
    wait_for_count(collector, 2005)
    assert numbers(collector) == list(range(1, 2006))


def test_nothing_is_lost_if_master_dies_in_a_burst(start):
    collector = start(TrapCollector)
    master = start(Master, MASTER_CONFIGURATION, trap_destination=collector.destination)
    # All that the dead master leaves behind has room.
    daemon = start(Daemon, module=NOTIFIER, master=master, options=["--notification-limit", "5000"])
    ordered = seen_at_its_death = 0
    while seen_at_its_death == ordered:  # try again if all of them arrived before the kill
        daemon.order(f"send {ordered + 1} 5000 960")
        ordered += 5000
        wait_for_count(collector, ordered - 4800)
        master.kill()
        # Otherwise the new master's first notifications could overtake the old one's last on another connection.
        collector.wait_for_end_of_connections()
        seen_at_its_death = len(set(numbers(collector)))
        master = start(Master, MASTER_CONFIGURATION, udp_port=master.port, trap_destination=collector.destination)
    wait_until(lambda: ordered in numbers(collector), what="the last notification")
    seen = numbers(collector)
    # Notifications that the master forwarded but did not acknowledge are sent again: at most one burst of 50.
    print(f"{seen_at_its_death} of {ordered} when the master died, {len(seen) - len(set(seen))} sent again")
    assert set(seen) == set(range(1, ordered + 1))
    assert len(seen) - len(set(seen)) <= 50
    assert list(dict.fromkeys(seen)) == list(range(1, ordered + 1))


def test_full_queue_drops_the_oldest_and_logs_how_many(start):
    collector = start(TrapCollector)
    master = start(Master, MASTER_CONFIGURATION, trap_destination=collector.destination)
    daemon = start(Daemon, module=NOTIFIER, master=master, options=["--notification-limit", "100"])
    master.kill()
    daemon.wait_for_log("AgentX master disconnected us")
    daemon.order("send 1 150 10")
    daemon.wait_for_log("sent number 150\n")
    start(Master, MASTER_CONFIGURATION, udp_port=master.port, trap_destination=collector.destination)
    wait_for_count(collector, 100)
    assert numbers(collector) == list(range(51, 151))
    daemon.wait_for_log(r"notification queue full \(100\): \d+ dropped, 50 since the start")


def test_notifications_arrive_after_sighup(start):
    collector = start(TrapCollector)
    master = start(Master, MASTER_CONFIGURATION, trap_destination=collector.destination)
    daemon = start(Daemon, module=NOTIFIER, master=master)
    daemon.signal(signal.SIGHUP)
    daemon.wait_for_state("READY=1", count=2)
    assert "RELOADING=1" in daemon.states
    daemon.order("send 1 10 100")
    wait_for_count(collector, 10)
    assert numbers(collector) == list(range(1, 11))


def test_standalone_agent_sends_to_its_destinations(start):
    collector = start(TrapCollector)
    daemon = start(Daemon, module=NOTIFIER, configuration=f"trap2sink {collector.destination} public\n")
    daemon.order("send 1 1000 960")
    wait_for_count(collector, 1000)
    assert numbers(collector) == list(range(1, 1001))


def test_only_v1_managers_miss_a_counter64(start):
    """Of the four kinds, two have one. net-snmp logs that it cannot make SNMPv1 traps of these, whoever wants them."""
    collector = start(TrapCollector)
    daemon = start(Daemon, module=NOTIFIER, configuration="".join(
        f"{sink} {collector.destination} public\n" for sink in ("trapsink", "trap2sink", "informsink")))
    daemon.order("kinds")
    daemon.order("send 1 1 0")
    wait_for_count(collector, 3)
    received = [line for line in collector.received() if "61453" in line]
    of_each_form = {form: sum(form in line for line in received) for form in ("TRAP, SNMP v1", "TRAP2, ", "INFORM, ")}
    assert of_each_form == {"TRAP, SNMP v1": 2 + 1, "TRAP2, ": 4 + 1, "INFORM, ": 4 + 1}
    assert daemon.log().count("v1 traps can't carry Counter64 varbinds") == 2


def test_every_kind_matches_net_snmp_on_the_wire(start, directory):
    def without_times(collector):
        wait_until(lambda: len(module_notifications(collector)) == 4, what="four notifications")
        return [re.sub(r"Timeticks: \(\d+\) [\d:.]+", "", line) for line in module_notifications(collector)]

    def module_notifications(collector):
        return [line for line in collector.received() if "61453" in line]

    # In Debian's snmpd, the module's thread calls net-snmp's own functions.
    collector = start(TrapCollector)
    control = directory / "control"
    os.mkfifo(control)
    configuration = directory / "snmpd.conf"
    configuration.write_text(f"dlmod subagent_modules {NOTIFIER}\ntrap2sink {collector.destination} public\n")
    stock = start(Program, "stock", [SNMPD, "-f", "-C", "-c", configuration, "-Lo", f"udp:127.0.0.1:{free_port()}"],
                  TEST_MODULE_CONTROL=str(control))
    stock.wait_for_log("NET-SNMP version")
    control.write_text("kinds\n")
    expected = without_times(collector)
    stock.stop()

    collector = start(TrapCollector)
    alone = start(Daemon, module=NOTIFIER, configuration=f"trap2sink {collector.destination} public\n")
    alone.order("kinds")
    assert without_times(collector) == expected
    alone.stop()

    collector = start(TrapCollector)
    master = start(Master, MASTER_CONFIGURATION, trap_destination=collector.destination)
    subagent = start(Daemon, module=NOTIFIER, master=master)
    subagent.order("kinds")
    assert [values(line) for line in without_times(collector)] == [values(line) for line in expected]


def values(line):
    """The values to compare in a received notification. A master may add varbinds of its own around them."""
    compared = (f"{TEST_BASE}.9.0", "1.3.6.1.6.3.1.1.4.1.0", "1.3.6.1.6.3.1.1.4.3.0")  # ours, snmpTrapOID, enterprise
    return [re.findall(rf"\.{re.escape(oid)} = ([^\t]*)", line) for oid in compared]


def test_sighup_adds_a_new_destination(start):
    collector = start(TrapCollector)
    daemon = start(Daemon, module=NOTIFIER)
    file = daemon.directory / "subagentd.conf"
    file.write_text(file.read_text() + f"trap2sink {collector.destination} public\n")
    daemon.signal(signal.SIGHUP)
    daemon.wait_for_state("READY=1", count=2)
    daemon.order("send 1 3 10")
    wait_for_count(collector, 3)
    assert numbers(collector) == [1, 2, 3]
