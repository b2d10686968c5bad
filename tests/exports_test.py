"""The built module exports the names in exports.txt, each of its kind (D data, F function), and no others."""

import os
import pathlib
import subprocess

EXPECTED = pathlib.Path(__file__).with_name("exports.txt")


def exported(module):
    listing = subprocess.run(
        ["nm", "--dynamic", "--defined-only", "--format=posix", module], check=True, capture_output=True, text=True
    )
    names = set()
    for line in listing.stdout.splitlines():
        name, letter = line.split()[:2]
        kind = {"T": "F", "D": "D", "B": "D", "R": "D"}.get(letter, letter)
        names.add(f"{kind} {name}")
    return names


def expected():
    return EXPECTED.read_text().splitlines()


def test_the_list_is_sorted_and_names_nothing_twice():
    names = [line.split()[1] for line in expected()]
    assert expected() == sorted(expected())
    assert len(names) == len(set(names))


def test_every_listed_name_is_exported():
    assert set(expected()) - exported(os.environ["MODULE"]) == set()


def test_nothing_else_is_exported():
    assert exported(os.environ["MODULE"]) - set(expected()) == set()
