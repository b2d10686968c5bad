"""Running programs from scripts that have to clear up afterwards, whatever ends them.

Importing this blocks the signals that end a script, for it and for the scripts that it starts: they are looked at where
the script waits, so none is lost and none cuts the clearing up short. A command run in the foreground gets them back.
"""

import os
import signal
import subprocess
import sys

ENDING = {signal.SIGTERM, signal.SIGINT, signal.SIGHUP}
_ordinary_mask = signal.pthread_sigmask(signal.SIG_BLOCK, ENDING | {signal.SIGCHLD}) - ENDING - {signal.SIGCHLD}


class Ended(Exception):
    """A signal asks the script to end. As the exit status it is 128 and the signal's number."""

    def __init__(self, number):
        super().__init__(f"ended by signal {number}")
        self.status = 128 + number


def pause(seconds):
    """Sleeps; a signal that ends the script is raised as Ended."""
    info = signal.sigtimedwait(ENDING, seconds)
    if info is not None:
        raise Ended(info.si_signo)


def _back_to_ordinary():
    # What is in force between here and the new program is the default: the signal ends the child, as it should.
    for number in ENDING:
        signal.signal(number, signal.SIG_DFL)
    signal.pthread_sigmask(signal.SIG_SETMASK, _ordinary_mask)


def start(command, **settings):
    """Starts a program that serves others, in a session of its own: a terminal's Ctrl-C must not take it away before
    those that use it."""
    return subprocess.Popen(command, start_new_session=True, preexec_fn=_back_to_ordinary, **settings)


def stop(process, patience):
    """Asks a program to end and makes it after `patience` seconds."""
    process.terminate()
    try:
        process.wait(patience)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()


def exit_status(process):
    """As a shell tells it."""
    return process.returncode if process.returncode >= 0 else 128 - process.returncode


def run(command, signal_child=os.kill, ordinary=True):
    """Runs a command as in the foreground: terminal, standard input and Ctrl-C are its own. Returns its exit status.

    Signals that ask this script to end end the command, by signal_child(pid, number). On a terminal that sends its
    Ctrl-C to both, the command alone decides what it means. ordinary=False hands the command blocked signals, for a
    script that waits for them as this one does.
    """
    process = subprocess.Popen(command, preexec_fn=_back_to_ordinary if ordinary else None)
    on_terminal = os.isatty(sys.stdin.fileno())
    while process.poll() is None:
        number = signal.sigwait(ENDING | {signal.SIGCHLD})
        if number != signal.SIGCHLD and (number != signal.SIGINT or not on_terminal):
            signal_child(process.pid, signal.SIGTERM)
    return exit_status(process)
