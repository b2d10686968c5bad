"""Counts instructions: callgrind's counts hardly change from run to run, unlike times."""

import os
import re
import shutil
import subprocess
import sys
import tempfile


# malloc() takes each block from its per-thread cache. Otherwise its share depends on how the heap has come to lie, and
# changes by hundreds of instructions with code that has nothing to do with it.
STEADY_MALLOC = {"GLIBC_TUNABLES": "glibc.malloc.tcache_count=10000:glibc.malloc.tcache_max=65536"}


def require():
    """Ends the program with status 77, which skips a test, when there is no valgrind."""
    if not shutil.which("valgrind"):
        print("skipped: valgrind is not installed")
        sys.exit(77)


def instructions_per_unit(function, *command):
    """What the process executes while `function` runs, divided by the number that the program prints."""
    with tempfile.TemporaryDirectory() as directory:
        result = subprocess.run(
            ["valgrind", "--tool=callgrind", "--collect-atstart=no", f"--toggle-collect={function}",
             f"--callgrind-out-file={directory}/out", *map(str, command)],
            capture_output=True, text=True, check=True, env={**os.environ, **STEADY_MALLOC})
    counted = re.search(r"Collected : (\d+)", result.stderr)
    return int(counted[1]) / int(result.stdout)
