#!/usr/bin/python3
"""clang_tidy.py SOURCE_DIR BUILD_DIR DIRECTORY...: fails when clang-tidy reports anything in the tracked C and C++
sources below these directories, or in the headers that they include.

A source takes seconds, so clean ones are remembered in BUILD_DIR/tidy, under a digest of everything that the result
depends on: the source and all that it includes, the compile command, .clang-tidy and clang-tidy's version.
"""

import concurrent.futures
import functools
import hashlib
import json
import pathlib
import shlex
import shutil
import subprocess
import sys

JOBS = 2
SKIPPED = 77


def without_precompiled_header(command):
    """clang cannot read g++'s precompiled headers, and the sources include what they need anyway."""
    while "-include" in command:
        at = command.index("-include")
        command = command[:at] + command[at + 2 :]
    return [argument for argument in command if argument != "-Winvalid-pch"]


def read_files(build):
    """The files that the compiler read for each object file, by the object's path in the build tree."""
    listing = subprocess.run(["ninja", "-C", build, "-t", "deps"], check=True, capture_output=True, text=True).stdout
    found = {}
    for block in listing.split("\n\n"):
        first, *rest = block.splitlines() or [""]
        found[first.split(":")[0]] = [build / line.strip() for line in rest if line.startswith("    ")]
    return found


def commands(build):
    """{absolute path of a source: (its compile command, the files that the compiler read)} for all sources built.

    Writes the commands to BUILD_DIR/tidy as well, where clang-tidy looks for them.
    """
    entries = json.loads((build / "compile_commands.json").read_text())
    for entry in entries:
        entry["arguments"] = without_precompiled_header(shlex.split(entry.pop("command")))
    (build / "tidy" / "compile_commands.json").write_text(json.dumps(entries))
    read = read_files(build)
    known = {}
    for arguments, file in ((entry["arguments"], entry["file"]) for entry in entries):
        output = arguments[arguments.index("-o") + 1]
        if output in read:
            known[file] = arguments, read[output]
    return known


def tracked(source, directories):
    patterns = [f"{directory}/*.{suffix}" for directory in directories for suffix in ("c", "cpp")]
    listing = subprocess.run(
        ["git", "ls-files", "-z", "--", *patterns], cwd=source, check=True, capture_output=True, text=True
    )
    return [name for name in listing.stdout.split("\0") if name]


@functools.cache
def file_digest(path):
    return hashlib.sha256(path.read_bytes()).digest()


def digest(command, files, settings):
    parts = [settings, "\0".join(command).encode(), *(file_digest(path) for path in files)]
    return hashlib.sha256(b"".join(parts)).hexdigest()


def is_clean(path, command, files, settings, build):
    clean = build / "tidy" / digest(command, files, settings)
    if clean.exists():
        return True
    run = subprocess.run(["clang-tidy", "--quiet", "-p", build / "tidy", path], capture_output=True, text=True)
    if run.returncode == 0:
        clean.touch()
        return True
    print(run.stdout + run.stderr, flush=True)
    return False


def main(source, build, directories):
    if shutil.which("clang-tidy") is None:
        print("skipped: clang-tidy is not installed")
        return SKIPPED
    (build / "tidy").mkdir(exist_ok=True)
    version = subprocess.run(["clang-tidy", "--version"], check=True, capture_output=True)
    settings = version.stdout + (source / ".clang-tidy").read_bytes()

    known = commands(build)
    paths = [str(source / name) for name in tracked(source, directories)]
    for path in paths:
        if path not in known:
            print("not compiled by this build:", path)
    paths = [path for path in paths if path in known]
    if not paths:
        print("there is no source to check")
        return 1
    with concurrent.futures.ThreadPoolExecutor(JOBS) as pool:
        clean = list(pool.map(lambda path: is_clean(path, *known[path], settings, build), paths))
    print(f"{len(paths)} sources checked, {clean.count(False)} not clean")
    return 0 if all(clean) else 1


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve(), sys.argv[3:]))
