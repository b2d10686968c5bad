"""Finds programs whose Debian packages would start a service on all addresses when they are installed."""

import fcntl
import os
import re
import shutil
import subprocess


class Missing(Exception):
    """A program is not installed, and its package cannot be fetched."""


def find(program, package, build):
    """The path of the program. If it is not installed, the package is unpacked in the directory `build`/debian, once.

    Raises Missing.
    """
    found = shutil.which(program, path=f"{os.environ['PATH']}:{_programs(build / 'debian' / package)}")
    if found is None:
        found = shutil.which(program, path=_programs(unpacked(build, package)))
    if found is None:
        raise Missing(f"{program} is missing, and not in the package {package}")
    return found


def unpacked(build, *packages, with_needs=False):
    """The directory below `build`/debian in which these packages are unpacked, once.

    With `with_needs`, so is all that they need and the machine lacks. Takes no root and starts nothing. Raises Missing.
    """
    place = build / "debian" / packages[0]
    complete = place / ".complete"
    place.mkdir(parents=True, exist_ok=True)
    with open(place.with_suffix(".lock"), "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)  # another program may be at it
        if not complete.exists():
            if with_needs:
                plan = _apt_get(place, "install", "--simulate", "--no-install-recommends", *packages)
                packages = re.findall(r"^Inst (\S+)", plan, re.MULTILINE)
            if packages:
                _apt_get(place, "download", *packages)
            for archive in place.glob("*.deb"):
                subprocess.run(["dpkg", "-x", archive, place], check=True)
                archive.unlink()
            complete.touch()
    return place


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


def _apt_get(place, what, *arguments):
    """What apt-get prints. Raises Missing."""
    def run():
        return subprocess.run(["apt-get", what, "-q", *arguments], cwd=place, capture_output=True, text=True, check=False,
                              env={**os.environ, "LC_ALL": "C"})

    done = run()
    if done.returncode != 0 and os.geteuid() == 0:
        # A new machine may not have the lists of packages.
        subprocess.run(["apt-get", "update", "-q"], capture_output=True, check=False)
        done = run()
    if done.returncode != 0:
        why = (done.stderr.strip().splitlines() or ["no reason is given"])[-1]
        raise Missing(f"{place.name} cannot be fetched: {why}")
    return done.stdout
