"""Fixtures of the system tests. The programs that they start are in agents.py and server.py."""

import shutil
import sys
import tempfile
import pathlib

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).parent))


@pytest.fixture
def directory():
    """A directory for one test. Its path is short enough for Unix sockets."""
    path = pathlib.Path(tempfile.mkdtemp(prefix="tavo-"))
    yield path
    shutil.rmtree(path, ignore_errors=True)


@pytest.fixture
def start(directory):
    """start(Daemon, ...) starts a program in the test's directory. It is stopped when the test ends.

    The ends of all logs are printed then; pytest shows them if the test fails.
    """
    running = []

    def start_program(kind, *arguments, **settings):
        program = kind(directory, *arguments, **settings)
        running.append(program)
        return program

    yield start_program
    for program in reversed(running):
        program.stop()
    for log in sorted(directory.glob("*.log")):
        print(f"--- end of {log.name} ---\n{log.read_text(errors='replace')[-2000:]}")
