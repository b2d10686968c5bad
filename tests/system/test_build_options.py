"""What can be left out of a build, and that its libraries are then not looked for; builds for other processors."""

import re
import subprocess

import pytest

from agents import ROOT

MODULE_ONLY = {"TAVO_BUILD_DAEMON": "OFF", "TAVO_BUILD_SIMULATOR": "OFF", "TAVO_BUILD_TESTS": "OFF",
               "TAVO_BUILD_BENCH": "OFF"}
# Each optional library, what needs it, and what else must be there so that only this library can be missed.
NEEDED_BY = [("CLI11", {"TAVO_BUILD_DAEMON": "ON"}),
             ("nlohmann_json", {"TAVO_BUILD_SIMULATOR": "ON"}),
             ("yaml-cpp", {"TAVO_BUILD_SIMULATOR": "ON"}),
             ("CLI11", {"TAVO_BUILD_SIMULATOR": "ON"}),
             ("GTest", {"TAVO_BUILD_DAEMON": "ON", "TAVO_BUILD_SIMULATOR": "ON", "TAVO_BUILD_TESTS": "ON"})]


class Tree:
    """A build tree that cannot find the libraries in `hidden`."""

    def __init__(self, directory, settings, hidden=()):
        self.directory = directory / "tree"
        settings = {**MODULE_ONLY, **settings, **{f"CMAKE_DISABLE_FIND_PACKAGE_{name}": "ON" for name in hidden}}
        self.result = subprocess.run(
            ["cmake", "-G", "Ninja", "-S", ROOT, "-B", self.directory,
             *(f"-D{name}={value}" for name, value in settings.items())],
            capture_output=True, text=True, check=False)

    def looked_for(self):
        """The settings of the tree that name a library or a package of CMake's."""
        assert self.result.returncode == 0, self.result.stderr
        return set(re.findall(r"^(\w+)_(?:LIBRARY|DIR):(?:FILEPATH|PATH)=",
                              (self.directory / "CMakeCache.txt").read_text(), re.MULTILINE))

    def rules(self):
        assert self.result.returncode == 0, self.result.stderr
        return (self.directory / "build.ninja").read_text()

    def linked(self):
        """The libraries that programs are linked with. A library that CMake has looked for is a path there."""
        listed = re.findall(r"^  LINK_LIBRARIES = (.*)$", self.rules(), re.MULTILINE)
        return set(re.findall(r"(?:^|\s)(?:-l|\S*/lib)([\w-]+)", "\n".join(listed)))

    def commands(self):
        """The commands of a whole build."""
        assert self.result.returncode == 0, self.result.stderr
        return subprocess.run(["ninja", "-C", self.directory, "-t", "commands", "all"], capture_output=True, text=True,
                              check=True).stdout


def test_module_alone_needs_net_snmp_only(directory):
    tree = Tree(directory, {}, {library for library, _ in NEEDED_BY})
    rules = tree.rules()
    assert "libsnmpextmibmodule.so" in rules
    for name in ("snmp-subagentd.dir", "bmcsim.dir", "unit_tests.dir", "table_walk_bench.dir", "-Werror"):
        assert name not in rules


def test_a_build_without_a_type_is_optimised(directory):
    compilers = [line for line in Tree(directory, {}).commands().splitlines() if "table_walk.cpp.o -c" in line]
    assert len(compilers) == 1 and " -O2 " in compilers[0]


def test_benchmarks_need_no_other_library(directory):
    tree = Tree(directory, {"TAVO_BUILD_BENCH": "ON"}, {library for library, _ in NEEDED_BY})
    assert "table_walk_bench.dir" in tree.rules()


def test_the_simulator_without_ipmi_needs_no_freeipmi(directory):
    simulator = {"TAVO_BUILD_SIMULATOR": "ON"}
    (directory / "with").mkdir()
    tree = Tree(directory / "with", simulator)
    assert "FREEIPMI" in tree.looked_for() and "ipmi_device.cpp" in tree.rules() and "freeipmi" in tree.rules()

    tree = Tree(directory, {**simulator, "TAVO_IPMI": "OFF"})
    assert tree.looked_for() >= {"PCI", "UDEV"} and "FREEIPMI" not in tree.looked_for()
    assert "without_ipmi.cpp" in tree.rules()
    for name in ("freeipmi", "ipmi_device.cpp"):
        assert name not in tree.rules()


def test_an_image_needs_no_library_for_hardware(directory):
    tree = Tree(directory, {"TAVO_BUILD_DAEMON": "ON"})
    assert tree.looked_for() == {"CLI11"}
    assert "netsnmp" in tree.linked()
    assert tree.linked() <= {"netsnmp", "netsnmpagent", "netsnmpmibs", "dl"}


def test_the_unit_for_systemd_can_be_left_out(directory):
    tree = Tree(directory, {"TAVO_BUILD_DAEMON": "ON", "TAVO_SYSTEMD": "OFF"})
    assert "systemd" not in tree.rules()
    install = (tree.directory / "cmake_install.cmake").read_text()
    assert "snmp-subagentd.tmpfiles" not in install and "snmp-subagentd.service" not in install


@pytest.mark.parametrize("library, wanted", NEEDED_BY, ids=lambda value: value if isinstance(value, str) else "")
def test_what_is_wanted_names_its_library(directory, library, wanted):
    tree = Tree(directory, wanted, {library})
    assert tree.result.returncode != 0
    assert library in tree.result.stderr


@pytest.mark.parametrize("missing", ["TAVO_BUILD_DAEMON", "TAVO_BUILD_SIMULATOR", "TAVO_IPMI"])
def test_tests_without_what_they_test_are_refused(directory, missing):
    everything = {"TAVO_BUILD_DAEMON": "ON", "TAVO_BUILD_SIMULATOR": "ON", "TAVO_BUILD_TESTS": "ON"}
    tree = Tree(directory, {**everything, missing: "OFF"})
    assert tree.result.returncode != 0
    assert "configure with -DTAVO_BUILD_TESTS=OFF as well" in " ".join(tree.result.stderr.split())


class TestCrossBuild:
    """CMAKE_SYSTEM_NAME makes CMake treat any build as one for another machine."""

    def test_it_runs_nothing_that_it_has_built(self, directory):
        tree = Tree(directory, {"CMAKE_SYSTEM_NAME": "Linux"})
        assert "The tables are not checked" in tree.result.stdout
        assert "exports.checked" in tree.commands()
        assert "describe_tables" not in tree.commands()

    def test_an_emulator_checks_the_tables(self, directory):
        tree = Tree(directory, {"CMAKE_SYSTEM_NAME": "Linux", "CMAKE_CROSSCOMPILING_EMULATOR": "/usr/bin/an-emulator"})
        assert "not checked" not in tree.result.stdout
        check = f"/usr/bin/an-emulator {tree.directory}/describe_tables {tree.directory}/tables.json"
        assert check in tree.commands()
