#!/usr/bin/python3
"""clang_tidy.py SOURCE_DIR BUILD_DIR: fails when clang-tidy has something to say about a tracked C or C++ source that
the build compiles, or about the headers it includes.

A source takes seconds, so what was found clean is remembered in BUILD_DIR/tidy, under a digest of everything the result
depends on: the preprocessed text with its comments, the compile command, .clang-tidy and clang-tidy's version.
"""

import concurrent.futures
import hashlib
import json
import pathlib
import shlex
import shutil
import subprocess
import sys

JOBS = 2
SKIPPED = 77


def commands(build):
    """The compile command of each source, by its absolute path."""
    entries = json.loads((build / "compile_commands.json").read_text())
    return {entry["file"]: (shlex.split(entry["command"]), entry["directory"]) for entry in entries}


def tracked(source):
    listing = subprocess.run(
        ["git", "ls-files", "-z", "--", "*.c", "*.cpp"], cwd=source, check=True, capture_output=True, text=True
    )
    return [name for name in listing.stdout.split("\0") if name]


def digest(command, directory, settings):
    preprocess = command[: command.index("-o")] + ["-E", "-CC", command[-1]]
    text = subprocess.run(preprocess, cwd=directory, check=True, capture_output=True)
    return hashlib.sha256(settings + "\0".join(command).encode() + text.stdout).hexdigest()


def check(path, command, directory, settings, build):
    """What clang-tidy says; empty when the source is clean."""
    clean = build / "tidy" / digest(command, directory, settings)
    if clean.exists():
        return ""
    run = subprocess.run(["clang-tidy", "--quiet", "-p", build, path], capture_output=True, text=True)
    if run.returncode == 0:
        clean.touch()
        return ""
    return run.stdout + run.stderr


def main(source, build):
    if shutil.which("clang-tidy") is None:
        print("skipped: clang-tidy is not installed")
        return SKIPPED
    version = subprocess.run(["clang-tidy", "--version"], check=True, capture_output=True)
    settings = version.stdout + (source / ".clang-tidy").read_bytes()
    (build / "tidy").mkdir(exist_ok=True)

    known = commands(build)
    paths = [str(source / name) for name in tracked(source)]
    for path in paths:
        if path not in known:
            print("not compiled by this build:", path)
    paths = [path for path in paths if path in known]
    if not paths:
        print("no source to check")
        return 1
    with concurrent.futures.ThreadPoolExecutor(JOBS) as pool:
        results = list(pool.map(lambda path: check(path, *known[path], settings, build), paths))
    dirty = [result for result in results if result]
    print("".join(dirty), f"{len(paths)} sources checked, {len(dirty)} not clean", sep="\n")
    return 1 if dirty else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve()))
