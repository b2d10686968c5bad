"""Runs programs for scripts that must clean up after themselves, whatever ends them.

Importing this blocks the signals that end a script, in it and in the scripts that it starts. A script handles them only
where it waits, so no signal is lost, and none interrupts the clean-up. Commands in the foreground get them unblocked.
"""

import os
import pathlib
import signal
import subprocess
import sys

ENDING = {signal.SIGTERM, signal.SIGINT, signal.SIGHUP}
_own = set()  # ids of the processes that this module has started
_ordinary_mask = signal.pthread_sigmask(signal.SIG_BLOCK, ENDING | {signal.SIGCHLD}) - ENDING - {signal.SIGCHLD}


class Ended(Exception):
    """A signal asks the script to end. `status` is the exit status for it: 128 plus the signal's number."""

    def __init__(self, number):
        super().__init__(f"ended by signal {number}")
        self.status = 128 + number


def pause(seconds):
    """Sleeps. Raises Ended when a signal asks the script to end."""
    info = signal.sigtimedwait(ENDING, seconds)
    if info is not None:
        raise Ended(info.si_signo)


def _restore_signals():
    # In the child, before it runs the program. The default action makes a signal end the child meanwhile, as it should.
    for number in ENDING:
        signal.signal(number, signal.SIG_DFL)
    signal.pthread_sigmask(signal.SIG_SETMASK, _ordinary_mask)


def start(command, **settings):
    """Starts a server program. It gets a session of its own, so that Ctrl-C does not end it before its users, and
    SIGTERM if the script is killed."""
    bound_to_us = ["setpriv", "--pdeathsig", "TERM", "--", *command]
    process = subprocess.Popen(bound_to_us, start_new_session=True, preexec_fn=_restore_signals, **settings)
    _own.add(process.pid)
    return process


class Server:
    """A server program that is not to end by itself. Its output goes to NAME.log in `logs`."""

    def __init__(self, name, command, logs, **settings):
        self.name = name
        self.log = pathlib.Path(logs) / f"{name}.log"
        with open(self.log, "wb") as log:
            self.process = start(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log, **settings)

    def check(self):
        """Ends the script if the program has ended."""
        if self.process.poll() is not None:
            sys.exit(f"{self.name} ended with status {exit_status(self.process)}:\n{self.end_of_log()}")

    def end_of_log(self):
        return "\n".join(self.log.read_text(errors="replace").splitlines()[-20:])


def stop(process, patience):
    """Asks a program to end, and kills it after `patience` seconds."""
    process.terminate()
    try:
        process.wait(patience)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()


def _reap_orphans():
    """The first process of a PID namespace becomes the parent of all that lose theirs, and nobody else reaps them."""
    if os.getpid() != 1:
        return
    for child in map(int, pathlib.Path("/proc/self/task/1/children").read_text(encoding="ascii").split()):
        if child not in _own:
            os.waitpid(child, os.WNOHANG)


def exit_status(process):
    """The exit status as a shell reports it."""
    return process.returncode if process.returncode >= 0 else 128 - process.returncode


def run(command, signal_child=os.kill, ordinary=True):
    """Runs a command in the foreground, with the terminal, standard input and Ctrl-C. Returns its exit status.

    A signal that asks this script to end is passed on as SIGTERM with signal_child(pid, number). Ctrl-C on a terminal
    is not: it reaches the command anyway, which decides what it means. ordinary=False leaves the signals blocked, for a
    command that is a script with this module.
    """
    process = subprocess.Popen(command, preexec_fn=_restore_signals if ordinary else None)
    _own.add(process.pid)
    on_terminal = os.isatty(sys.stdin.fileno())
    while process.poll() is None:
        number = signal.sigwait(ENDING | {signal.SIGCHLD})
        _reap_orphans()
        if number != signal.SIGCHLD and (number != signal.SIGINT or not on_terminal):
            signal_child(process.pid, signal.SIGTERM)
    return exit_status(process)
