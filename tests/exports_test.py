"""The built module exports exactly the names in exports.txt, each of the kind given there (D data, F function), and imports
nothing that throws."""

import os
import pathlib
import re
import subprocess

import pytest

EXPECTED = pathlib.Path(__file__).resolve().parent.parent / "module" / "exports.txt"


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def exported(library):
    names = set()
    for line in output_of("nm", "--dynamic", "--defined-only", "--format=posix", library).splitlines():
        name, letter = line.split()[:2]
        name = name.split("@")[0]
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


@pytest.mark.skipif(os.environ.get("BUILD_TYPE") == "Debug", reason="sanitizers' builds are compiled with exceptions")
def test_nothing_is_imported_that_throws():
    # The module is loaded by programs that catch nothing, and is built without tables for unwinding.
    imports = re.findall(r"\S+$", output_of("nm", "--dynamic", "--undefined-only", os.environ["MODULE"]), re.MULTILINE)
    throwing = r"_Zn[wa]|_ZSt\d+__throw|__cxa_(throw|rethrow|allocate_exception|begin_catch)|__gxx_personality|_Unwind_"
    assert "snmp_log" in imports
    assert [name for name in imports if re.match(throwing, name)] == []


@pytest.mark.skipif("QEMU_LD_PREFIX" in os.environ, reason="ldd tells nothing about another machine's libraries")
def test_only_trap_version_id_is_also_in_net_snmp():
    # net-snmp is loaded first, so a lookup of the shared name finds net-snmp's. The module itself is linked to its own.
    module = os.environ["MODULE"]
    libraries = re.findall(r"libnetsnmp(?:agent)?\.so\S* => (/\S+)", output_of("ldd", module))
    assert len(libraries) == 2, libraries
    names = [line.split()[1] for line in expected()]
    defined = {entry.split()[1] for library in libraries for entry in exported(library)}
    assert defined & set(names) == {"trap_version_id"}
