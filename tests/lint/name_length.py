#!/usr/bin/python3
"""name_length.py SOURCE_DIR: fails when the name of a test is longer than 50 characters.

Longer names tell a story and do not fit a line of ctest's output. In C++ the second argument of TEST, TEST_F or TEST_P
counts, in Python the function's name.
"""

import pathlib
import re
import subprocess
import sys

LIMIT = 50
CPP_TEST = re.compile(r"\b(?:TYPED_)?TEST(?:_[FP])?\(\s*\w+,\s*(\w+)\)")
PYTEST_TEST = re.compile(r"^\s*(?:async )?def (test_\w+)\(", re.MULTILINE)


def names(path):
    pattern = PYTEST_TEST if path.suffix == ".py" else CPP_TEST
    return pattern.findall(path.read_text())


def tracked_tests(source):
    listing = subprocess.run(["git", "ls-files", "-z", "--", "tests/*.cpp", "tests/*.py"], cwd=source, check=True,
                             capture_output=True, text=True).stdout
    return [pathlib.Path(name) for name in listing.split("\0") if name]


def main(source):
    checked = 0
    too_long = []
    for path in tracked_tests(source):
        found = names(source / path)
        checked += len(found)
        too_long += [f"{path}: {name} has {len(name)} characters" for name in found if len(name) > LIMIT]
    print(*too_long, f"{checked} names checked, {len(too_long)} longer than {LIMIT} characters", sep="\n")
    return 1 if too_long or not checked else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1])))
