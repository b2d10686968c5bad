"""A server and a daemon to which a test can do what the world does: full disks, missing processes, wrong clocks."""

import contextlib
import mmap
import os
import pathlib
import random
import signal
import struct
import subprocess
import time

from agents import BUILD, snmpget, wait_until
from datagrams import Collector, varbinds
from oids import CLEARED, FAULT_TABLE, PROCESSOR_DN, RAISED
from rebuilds import quiet_scenario
from server import UNREFRESHED_CLASS, ServedDaemon, Server, children_of, has_ended
from test_bad_tools import TABLES, values

SPEED = 60
SNAPSHOT = "/var/stor_info_data"
FAULT_INDEX = f"{FAULT_TABLE}.1.1"
UPTIME = "1.3.6.1.2.1.1.3.0"
TRAP_OID = "1.3.6.1.6.3.1.1.4.1.0"


def can_become_others():
    """Whether this is root, and not just in a namespace that knows no other user."""
    return os.geteuid() == 0 and pathlib.Path("/proc/self/uid_map").read_text().split() == ["0", "0", "4294967295"]


class World:
    """A quiet server, and the daemon that a user without any right runs on it."""

    parts = ("memory", "processor", "adapter")  # all whose tables come from tools and dumps

    def __init__(self, directory):
        self.directory = directory
        # No other process on this machine belongs to that user: limits of processes count them.
        self.user = random.randrange(100_000, 1_000_000) if can_become_others() else None
        self._as_user = [] if self.user is None else ["setpriv", f"--reuid={self.user}", f"--regid={self.user}",
                                                      "--clear-groups"]
        directory.chmod(0o777)
        self._clock_file = directory / "clock"
        self._clock_file.write_bytes(bytes(8))
        with open(self._clock_file, "r+b") as opened:
            self._clock = mmap.mmap(opened.fileno(), 8)
        self._hold = directory / "hold"
        self.collector = Collector()
        self.server = Server(directory, scenario=quiet_scenario(directory))
        # What an image gives to the user.
        self.server.run("chmod", "-R", "a+rwX", "/var/bmcsim", "/var/pmbus", "/var/vessa")
        self.server.run("chmod", "a+w", "/var", "/var/tvmcWarmStartup")
        self.start_daemon()
        self.well = values(self.daemon)

    def start_daemon(self):
        self._uptime = 0
        self.daemon = ServedDaemon(
            self.directory, self.server, speed=SPEED, tool_timeout=5, before=self._as_user,
            preloads=[BUILD / "test-programs" / name for name in ("set_clock.so", "held_reads.so")],
            configuration=f"trap2sink {self.collector.destination} public\n", SET_CLOCK=str(self._clock_file),
            HELD_FILE=SNAPSHOT, HELD_READS=str(self._hold))
        self.server.wait_for_listeners()

    def stop(self):
        self.daemon.stop()
        self.server.stop()
        self.collector.stop()

    def shell(self, script):
        """Runs a script on the server, as root."""
        return self.server.run("sh", "-ec", script).stdout

    # What the world does.

    def set_clock(self, seconds):
        """Sets the daemon's time of day to `seconds` after the true one."""
        self._clock[:] = struct.pack("<q", seconds)

    def limit(self, what, most):
        """Gives the daemon this soft limit (`what`: an option of prlimit)."""
        # Not as root, who may lack the right to change the limits of others.
        subprocess.run([*self._as_user, "prlimit", f"--pid={self.daemon.pid}", f"--{what}={most}:"], check=True)

    def take_descriptors(self):
        """Leaves the daemon no descriptor that it has not open already."""
        taken = {int(name) for name in os.listdir(f"/proc/{self.daemon.pid}/fd")}
        self.limit("nofile", next(number for number in range(1024) if number not in taken))

    def hold_the_next_read(self):
        """The daemon will stop in the middle of the snapshot."""
        self._hold.touch()

    def wait_for_the_held_read(self):
        wait_until(self._hold.with_suffix(".held").exists, what="a read of the snapshot")

    def let_it_read_on(self):
        self._hold.with_suffix(".held").unlink()

    @contextlib.contextmanager
    def stopped_daemon(self):
        """The daemon does nothing in this context. The tools that it runs go on."""
        os.kill(self.daemon.pid, signal.SIGSTOP)
        try:
            yield
        finally:
            os.kill(self.daemon.pid, signal.SIGCONT)
            self.daemon.process.send_signal(signal.SIGCONT)  # nsenter stops with its child

    # What the daemon does.

    def ask_for_rebuilds(self, parts=parts):
        """Has the tables of storage and of these parts rebuilt. Leaves the faults as they were."""
        for number, kind in enumerate(parts, 1):
            self.server.ctl("fault", "raise", str(number), f"class={kind}")
            self.server.ctl("fault", "clear", str(number))
        self.server.ctl("storage-event", "7")

    def wait_for_the_end_of_a_refresh(self):
        """Waits until the tools for the next periodic refresh have ended. The next pass is some 0.2 s away then."""
        def last():
            """When the shell opened the LEDs' dump, the last one of a periodic refresh."""
            return self.shell("stat -c %.Y /var/LedInv")
        before = last()
        wait_until(lambda: last() != before and not children_of(self.daemon.pid), what="a periodic refresh")

    def wait_for_the_end_of_tools(self):
        """Waits until all tools have ended that the daemon runs now."""
        wait_until(lambda: all(map(has_ended, children_of(self.daemon.pid))), what="the end of the tools")

    def tables_that_differ(self):
        """The tables that do not show what they show when all is well, apart from the fault table."""
        differing = set(self.well) ^ set(values(self.daemon))
        return {name for name, table in TABLES.items() if name != "tavoFaultTable" and
                any(line.startswith(f".{table['oid']}.") for line in differing)}

    def wait_until_well(self):
        wait_until(lambda: not self.tables_that_differ() and values(self.daemon) == self.well, 30,
                   "all values as when all is well")

    def must_answer(self):
        assert snmpget(self.daemon.address, f"{PROCESSOR_DN}.1", timeout=5) == [
            line for line in self.well if line.startswith(f".{PROCESSOR_DN}.1 ")]

    def wait_for_silence(self):
        """Waits until the notifications for the faults of ask_for_rebuilds() have arrived."""
        seen = -1
        while seen != len(self.collector.datagrams):
            seen = len(self.collector.datagrams)
            time.sleep(0.2)

    def must_notify(self, ask=True):
        """A fault is notified once when it comes and once when it goes, and the agent's uptime does not jump.

        With `ask`, its row comes and goes, too.
        """
        self.wait_for_silence()
        before = len(self.collector.datagrams)
        number = 1000 + before
        for count, (verb, settings, kind) in enumerate(
                (("raise", [f"class={UNREFRESHED_CLASS}"], RAISED), ("clear", [], CLEARED)), 1):
            self.server.ctl("fault", verb, str(number), *settings)
            wait_until(lambda: len(self.collector.datagrams) >= before + count, 10, f"the notification: {verb}")
            sent = varbinds(self.collector.datagrams[-1])
            assert (sent[TRAP_OID], sent[f"{FAULT_INDEX}.{number}"]) == (kind, number)
            assert self._uptime <= sent[UPTIME] < self._uptime + 12 * 3600 * 100
            self._uptime = sent[UPTIME]
            if ask:
                shown = snmpget(self.daemon.address, f"{FAULT_TABLE}.1.2.{number}", timeout=5)
                assert ("No Such" not in shown[0]) == (verb == "raise"), shown
        time.sleep(0.1)
        assert len(self.collector.datagrams) == before + 2, "each once"
