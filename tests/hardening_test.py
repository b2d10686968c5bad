"""What is shipped is hardened. BINARIES: the files, separated by semicolons."""

import os
import pathlib
import re
import subprocess

import pytest

BINARIES = [pathlib.Path(path) for path in os.environ["BINARIES"].split(";")]


def readelf(binary, *options):
    return subprocess.run(["readelf", "--wide", *options, binary], capture_output=True, text=True, check=True).stdout


def imports(binary):
    """The functions that the binary takes from libraries, without versions."""
    symbols = readelf(binary, "--dyn-syms")
    return {name.partition("@")[0] for name in re.findall(r" UND (\S+)", symbols)}


@pytest.mark.parametrize("binary", BINARIES, ids=lambda path: path.name)
class TestHardening:
    def test_its_place_in_memory_is_random(self, binary):
        assert re.search(r"Type:\s+DYN ", readelf(binary, "--file-header"))

    def test_its_stack_cannot_be_executed(self, binary):
        assert re.search(r"GNU_STACK.* RW +0", readelf(binary, "--program-headers"))

    def test_all_relocations_become_read_only(self, binary):
        assert "GNU_RELRO" in readelf(binary, "--program-headers")
        assert re.search(r"\(FLAGS_1\).*\bNOW\b", readelf(binary, "--dynamic"))

    def test_its_stack_is_protected(self, binary):
        assert "__stack_chk_fail" in imports(binary)

    def test_its_library_calls_are_checked(self, binary):
        checked = {name for name in imports(binary) if re.fullmatch(r"__\w+_chk", name)} - {"__stack_chk_fail"}
        assert checked, "no call was compiled with _FORTIFY_SOURCE"

    def test_a_loader_refuses_what_it_cannot_unpack(self, binary):
        """glibc before 2.36 ignores packed relocations, but not this version, which it lacks."""
        packed = ".relr.dyn" in readelf(binary, "--section-headers")
        assert not packed or "GLIBC_ABI_DT_RELR" in readelf(binary, "--version-info")
