"""Debian's packages, as tests use them; scripts/debian_programs.py says why they are not installed.

Where a package cannot be had, the test is skipped, and pytest -rs says why.
"""

import sys

import pytest

from agents import BUILD, ROOT

sys.path.insert(0, str(ROOT / "scripts"))

import debian_programs  # noqa: E402


def need(program, package):
    """The path of the program."""
    return _or_skip(debian_programs.find, program, package, BUILD)


def command_of(program, package):
    """The words that run the program, with its package's data."""
    return _or_skip(debian_programs.command, program, package, BUILD)


def unpacked(*packages):
    """A directory with these packages, and with all that they need and the machine lacks."""
    return _or_skip(debian_programs.unpacked, BUILD, *packages, with_needs=True)


def files_of(package):
    """A directory with this package's files, whether or not it is installed."""
    return _or_skip(debian_programs.unpacked, BUILD, package)


def libraries(place):
    """The environment in which programs below `place` find their libraries."""
    return {"LD_LIBRARY_PATH": ":".join(str(path) for path in place.glob("usr/lib/*-linux-*") if path.is_dir())}


def _or_skip(get, *arguments, **options):
    try:
        return get(*arguments, **options)
    except debian_programs.Missing as missing:
        pytest.skip(str(missing))
