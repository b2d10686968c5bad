"""Programs of Debian's packages that are not to be installed, because that would start services on all addresses."""

import fcntl
import os
import shutil
import subprocess

import pytest

from agents import BUILD


def unpacked(package):
    """The directory in the build tree for this package, and for those that were needed with it."""
    return BUILD / "debian" / package


def need(program, *packages):
    """The path of the program. Unless it is installed, the packages are unpacked, once per build tree.

    Where that fails, the test is skipped.
    """
    place = unpacked(packages[0])
    path = f"{os.environ['PATH']}:/usr/sbin:{place}/usr/bin:{place}/usr/sbin"
    place.mkdir(parents=True, exist_ok=True)
    with open(place / "lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        found = shutil.which(program, path=path)
        if found is None:
            fetch = subprocess.run("apt-get download -q " + " ".join(packages) +
                                   " && for file in *.deb; do dpkg -x $file . || exit; done",
                                   shell=True, cwd=place, capture_output=True, text=True)
            found = shutil.which(program, path=path)
    if found is None:
        why = fetch.stderr.strip().splitlines()[-1:]
        pytest.skip(f"{program} is missing, and {' '.join(packages)} cannot be fetched: {why}")
    return found


def with_data(package, command):
    """The command, which then finds the package's data in /usr/share even if the package is not installed."""
    data = unpacked(package) / "usr/share"
    if not data.exists():
        return command
    namespaces = ["--mount"] if os.geteuid() == 0 else ["--mount", "--map-root-user"]
    overlay = 'mount -t overlay overlay -o "lowerdir=$0:/usr/share" /usr/share && exec "$@"'
    return ["unshare", *namespaces, "sh", "-c", overlay, data, *command]
