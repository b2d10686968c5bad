"""Finds programs whose Debian packages would start a service on all addresses when they are installed."""

import fcntl
import os
import shutil
import subprocess


class Missing(Exception):
    """A program is not installed, and its package cannot be fetched."""


def find(program, package, build):
    """The path of the program. If it is not installed, the package is unpacked in the directory `build`/debian, once.

    Unpacking takes no root and starts nothing. Raises Missing.
    """
    place = build / "debian" / package
    path = f"{os.environ['PATH']}:{_programs(place)}"
    found = shutil.which(program, path=path)
    if found is None:
        place.mkdir(parents=True, exist_ok=True)
        with open(place.with_suffix(".lock"), "w", encoding="ascii") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            found = shutil.which(program, path=path) or _unpack(program, package, place)
    return found


def command(program, package, build):
    """The words that run the program, like find(), but so that it finds the package's data in /usr/share."""
    found = find(program, package, build)
    share = build / "debian" / package / "usr/share"
    if not found.startswith(f"{share.parent}/"):
        return [found]
    as_root = [] if os.geteuid() == 0 else ["--map-root-user"]
    # In a new user namespace the signal of a parent's death is forgotten.
    return ["unshare", "--mount", *as_root, "sh", "-c",
            'mount --bind "$0" /usr/share && exec setpriv --pdeathsig TERM -- "$@"', str(share), found]


def _programs(place):
    return f"{place}/usr/bin:{place}/usr/sbin"


def _unpack(program, package, place):
    fetch = ["apt-get", "download", "-q", package]
    fetched = subprocess.run(fetch, cwd=place, capture_output=True, text=True, check=False)
    if fetched.returncode != 0 and os.geteuid() == 0:
        # A new machine may not have the lists of packages.
        subprocess.run(["apt-get", "update", "-q"], capture_output=True, check=False)
        fetched = subprocess.run(fetch, cwd=place, capture_output=True, text=True, check=False)
    if fetched.returncode != 0:
        why = (fetched.stderr.strip().splitlines() or ["no reason is given"])[-1]
        raise Missing(f"{program} is missing, and its package {package} cannot be fetched: {why}")
    for archive in place.glob("*.deb"):
        subprocess.run(["dpkg", "-x", archive, place], check=True)
        archive.unlink()
    found = shutil.which(program, path=_programs(place))
    if found is None:
        raise Missing(f"{program} is missing, and not in the package {package}")
    return found
