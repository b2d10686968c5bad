"""A machine that scripts/machine boots, with which a test talks while it runs."""

import json
import pathlib
import shutil
import socket
import subprocess

import pytest

from agents import ROOT, Program, wait_until

MACHINE = ROOT / "scripts/machine"
EMULATORS = {"amd64": "qemu-system-x86_64", "armhf": "qemu-system-arm"}


def require(arch, *programs):
    """Skips the test if no such machine can be had, or one of the programs is missing that it takes."""
    for program in (EMULATORS[arch], *programs):
        if not shutil.which(program):
            packages = "machine" if arch == "amd64" else "cross"
            pytest.skip(f"{program} is missing: scripts/install-packages {packages} installs it")
    if subprocess.run([ROOT / "scripts/sysroot", "--bootable", arch]).returncode != 0:
        pytest.skip("Debian's kernel cannot be had, see above")


class EmulatedMachine(Program):
    """Runs `command` on a machine of its own. What it prints is log(). To stop it is to switch it off.

    `config` is more of QEMU's options, `memory` in MiB, `options` are more of those of scripts/machine. `ipmi` are the
    commands of ipmi_sim that describe a management controller.
    """

    def __init__(self, directory, command=("sleep", "infinity"), config="", ipmi=None, memory=1024, name="machine",
                 options=()):
        self._control = pathlib.Path(directory) / name
        self._control.mkdir()
        options = ["--control", self._control, "--memory", memory, *options]
        for option, text in (("--config", config), ("--ipmi", ipmi)):
            if text:
                file = self._control / f"described{option}"
                file.write_text(text)
                options += [option, file]
        super().__init__(directory, name, [MACHINE, *options, "--", *command])
        # In the order in which the machine makes them. A socket that nobody listens at yet refuses.
        self._monitor = wait_until(lambda: self._connected("monitor"), what="the machine's monitor").makefile("rw")
        self._shell = wait_until(lambda: self._connected("shell"), what="the machine's shell").makefile("rw")
        json.loads(self._monitor.readline())
        self.monitor("qmp_capabilities")

    def _connected(self, name):
        assert self.process.poll() is None, self.log()
        client = socket.socket(socket.AF_UNIX)
        try:
            client.connect(str(self._control / name))
        except OSError:
            client.close()
            return None
        client.settimeout(600)
        return client

    def run(self, command, check=True):
        """What a shell command prints on the machine, in this tree. It waits until the machine has booted."""
        self._shell.write(f"({command}) </dev/null 2>&1; echo; echo end of output $?\n")
        self._shell.flush()
        printed = []
        while True:
            line = self._shell.readline()
            assert line, f"the machine went off:\n{self.log()}"
            if line.startswith("end of output "):
                break
            printed.append(line)
        output = "".join(printed)[:-1]
        if check and line.split()[-1] != "0":
            raise AssertionError(f"{command} exited with {line.split()[-1]}:\n{output}")
        return output

    def monitor(self, command, **arguments):
        """Gives QEMU's monitor a command. Events that it sends meanwhile are dropped."""
        self._monitor.write(json.dumps({"execute": command, "arguments": arguments}) + "\n")
        self._monitor.flush()
        while True:
            answer = json.loads(self._monitor.readline())
            if "error" in answer:
                raise AssertionError(f"{command} {arguments}: {answer['error']['desc']}")
            if "return" in answer:
                return answer["return"]

    def controller(self, *commands):
        """Gives the management controller's simulator commands."""
        with open(self._control / "ipmi", "w") as pipe:
            pipe.write("".join(command + "\n" for command in commands))
