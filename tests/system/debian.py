"""Debian's programs for tests. Those that are not installed are unpacked, once per build tree.

To install their packages would start services on all addresses. Where a package cannot be had, the test is skipped, and
pytest -rs says why.
"""

import fcntl
import os
import re
import shutil
import subprocess

import pytest

from agents import BUILD


def unpacked(*packages):
    """A directory with these packages, and with all that they need and the machine lacks."""
    place = BUILD / "debian" / packages[0]
    complete = place / "complete"
    place.mkdir(parents=True, exist_ok=True)
    with open(place.with_suffix(".lock"), "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)  # another test may be at it
        if not complete.exists():
            plan = apt_get(place, "install", "--simulate", "--no-install-recommends", *packages)
            missing = re.findall(r"^Inst (\S+)", plan, re.MULTILINE)
            if missing:
                apt_get(place, "download", *missing)
            for archive in sorted(place.glob("*.deb")):
                subprocess.run(["dpkg", "-x", archive, place], check=True)
                archive.unlink()
            complete.touch()
    return place


def apt_get(place, *arguments):
    done = subprocess.run(["apt-get", "-q", *arguments], cwd=place, capture_output=True, text=True, check=False,
                          env={**os.environ, "LC_ALL": "C"})
    if done.returncode != 0:
        pytest.skip(f"{place.name} cannot be fetched: {done.stderr.strip().splitlines()[-1:]}")
    return done.stdout


def need(program, *packages):
    """The path of the program, the first of whose packages is its own."""
    found = shutil.which(program)
    if found is None:
        place = unpacked(*packages)
        found = shutil.which(program, path=":".join(str(place / bin) for bin in ("usr/bin", "usr/sbin", "bin", "sbin")))
        assert found, f"{packages} have no {program}"
    return found


def libraries(place):
    """The environment in which programs below `place` find their libraries."""
    return {"LD_LIBRARY_PATH": ":".join(str(path) for path in place.glob("usr/lib/*-linux-*") if path.is_dir())}
