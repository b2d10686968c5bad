"""Fixtures for the system tests; the programs themselves are in agents.py."""

import shutil
import sys
import tempfile
import pathlib

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).parent))


@pytest.fixture
def directory():
    """A directory for one test, with a path short enough for Unix sockets. Its logs are printed when the test fails."""
    path = pathlib.Path(tempfile.mkdtemp(prefix="tavo-"))
    yield path
    shutil.rmtree(path, ignore_errors=True)


@pytest.fixture
def start(directory):
    """start(Daemon, ...): starts a program of agents.py in the test's directory and stops it at the test's end."""
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
