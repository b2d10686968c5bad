"""The simulated server, booted in its own namespaces, and the daemon that runs on it with the real module."""

import contextlib
import os
import pathlib
import re
import signal
import subprocess

import pytest

from agents import BUILD, ROOT, SERVER_BUILD, Daemon, Program, wait_until

BOOT = ROOT / "simulator/boot"
MODULE = BUILD / "libsnmpextmibmodule.so"
PLATFORM = BUILD / "libbmcsim.so"
SCENARIO = ROOT / "simulator/scenarios/rack-server.yaml"
FRONT_ENDS = ["datactl", "flatkv", "slotutil", "ipmitool"]
# Fault classes for which the simulator has no word.
UNREFRESHED_CLASS = 4  # no table is rebuilt for it
STORAGE_CLASS = 209  # 208 to 211 all mean storage
SD_TRIGGER = "Got the trigger from VELT"  # logged once per rebuild of the SD-card tables


def children_of(pid):
    return [int(child) for task in pathlib.Path(f"/proc/{pid}/task").glob("*/children")
            for child in task.read_text().split()]


def has_ended(pid):
    """Whether there is no such process any more, or its parent has only to be told."""
    try:
        return pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(") ")[2].startswith("Z")
    except (FileNotFoundError, ProcessLookupError):
        return True


def descendant(pid, name):
    """The id of the live process of this name: `pid` itself, or one that it has started. None if there is none yet."""
    try:
        comm, state = re.match(r"\d+ \((.*)\) (\w)", pathlib.Path(f"/proc/{pid}/stat").read_text()).groups()
        if comm == name[:15] and state != "Z":
            return pid
        return next(filter(None, (descendant(child, name) for child in children_of(pid))), None)
    except (FileNotFoundError, ProcessLookupError):
        return None


def tools_that_run(daemon):
    """Processes of the tools on the daemon's server, zombies included."""
    def runs_there(path):
        try:
            return (path.joinpath("comm").read_text().strip() in FRONT_ENDS and
                    os.readlink(path / "ns/pid") == os.readlink(f"/proc/{daemon.pid}/ns/pid"))
        except (FileNotFoundError, ProcessLookupError, PermissionError):
            return False
    return [path.name for path in pathlib.Path("/proc").glob("[0-9]*") if runs_there(path)]


def at_speed(speed, preloads=()):
    """The words to put before a command so that its clock runs `speed` times as fast, and these libraries are in it."""
    if "QEMU_LD_PREFIX" in os.environ:
        pytest.skip("the daemon is emulated, so this machine's libfaketime cannot be loaded into it")
    library = next(pathlib.Path("/usr/lib").glob("*/faketime/libfaketimeMT.so.1"))
    return ["env", "LD_PRELOAD=" + ":".join(map(str, [*preloads, library])), f"FAKETIME=+0 x{speed}"]


class Server(Program):
    """A booted server. Unless `cold`, the boot is warm, and the daemon sends no start-up notification.

    `programs` is the directory that bmcsim is in.
    """

    def __init__(self, directory, scenario=SCENARIO, cold=False, programs=SERVER_BUILD):
        self.state = pathlib.Path(directory) / "server"
        self._programs = programs
        command = [BOOT, "--build", programs, "--bind", directory, "--state", self.state, "--scenario", scenario]
        super().__init__(directory, "server", [*command, *(["--cold"] if cold else []), "--", "sleep", "infinity"])
        wait_until(lambda: self.process.poll() is None and
                   self.run("bmcsim", "ctl", "ping", check=False).returncode == 0, what="the simulated server")

    def entered(self, *command):
        """The command line that runs `command` on the server."""
        return [BOOT, "--build", self._programs, "--enter", self.state, "--", *command]

    def run(self, *command, check=True):
        result = subprocess.run([str(word) for word in self.entered(*command)], capture_output=True, text=True)
        if check and result.returncode != 0:
            raise AssertionError(f"{command} exited with {result.returncode}: {result.stdout}{result.stderr}")
        return result

    def ctl(self, *words):
        return self.run("bmcsim", "ctl", *words).stdout

    def wait_for_listeners(self, count=1):
        """Waits until `count` daemons listen for faults and for storage events.

        A daemon starts to listen some time after it is ready, and fills its fault table before.
        """
        listening = f"broadcaster: {count} listeners\nstorage events: {count} listeners\n"
        wait_until(lambda: self.ctl("show", "faults").endswith(listening), what=listening)

    def wait_for_sd_listener(self, daemon):
        """Waits until the daemon listens for changes of the SD cards. Makes it rebuild their tables once."""
        wait_until(lambda: "1 of 1" in self.ctl("sd-trigger", "1"), what="the SD-card socket")
        daemon.wait_for_log(SD_TRIGGER)

    def kill_services(self):
        """Kills bmcsim: the server's services vanish, its files stay."""
        os.kill(descendant(self.pid, "bmcsim"), signal.SIGKILL)
        wait_until(lambda: descendant(self.pid, "bmcsim") is None, what="the end of bmcsim")

    def services(self, scenario=SCENARIO):
        """The command line that starts the services again, with another scenario if wanted."""
        return self.entered("bmcsim", "serve", scenario)


class ServedDaemon(Daemon):
    """The daemon on a booted server, with the real module. `tool_timeout` is in seconds of this machine's clock.

    `before`: words to put before the daemon's command. With a speed, `preloads` are libraries to load into it.
    """

    def __init__(self, directory, server, speed=None, module=MODULE, platforms=(PLATFORM,), tool_timeout=30,
                 before=(), preloads=(), **settings):
        program = [*server.entered(), *before, *(at_speed(speed, preloads) if speed else []), BUILD / "snmp-subagentd"]
        if speed:  # the tools themselves run no faster
            program += ["--tool-timeout", int(tool_timeout * speed)]
        super().__init__(directory, module=module, platforms=platforms, program=program, **settings)

    @property
    def pid(self):
        def found():
            if self.process.poll() is not None:
                raise ProcessLookupError(f"the daemon exited with {self.process.returncode}:\n{self.log()}")
            return descendant(self.process.pid, "snmp-subagentd")
        return wait_until(found, what="the daemon's process")

    def signal(self, number):
        os.kill(self.pid, number)

    def stop(self):
        # The program that entered the namespaces does not forward signals.
        with contextlib.suppress(ProcessLookupError, subprocess.TimeoutExpired):
            self.signal(signal.SIGTERM)
            self.process.wait(60)
        return super().stop()

    def resident_kib(self):
        status = pathlib.Path(f"/proc/{self.pid}/status").read_text()
        return next(int(line.split()[1]) for line in status.splitlines() if line.startswith("VmRSS:"))
