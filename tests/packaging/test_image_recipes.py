"""What can be checked of the recipes for Yocto and Buildroot without either: what they say agrees with the tree."""

import hashlib
import os
import pathlib
import re
import subprocess

import pytest

from agents import ROOT
from test_debian import TMPFILES, installed, lines  # noqa: F401

RECIPE = next(ROOT.glob("contrib/yocto/*.bb"))
YOCTO = RECIPE.read_text()
BUILDROOT = ROOT / "contrib/buildroot/snmpextmibmodule"
MAKEFILE = (BUILDROOT / "snmpextmibmodule.mk").read_text()
CMAKE = "".join((ROOT / name).read_text() for name in ("CMakeLists.txt", "cmake/module.cmake"))
INIT_SCRIPT = BUILDROOT / "S60snmp-subagentd"
SYSUSERS = lines(ROOT / "host/snmp-subagentd.sysusers")[0]
# What Yocto's variables stand for.
VARIABLES = {"libdir": "usr/lib", "nonarch_libdir": "usr/lib", "sbindir": "usr/sbin", "sysconfdir": "etc",
             "datadir": "usr/share", "systemd_system_unitdir": "usr/lib/systemd/system", "localstatedir": "var"}


def test_licences_are_the_one_of_the_tree():
    text = (ROOT / "LICENSE").read_bytes()
    assert f"LICENSE;md5={hashlib.md5(text).hexdigest()}" in YOCTO
    assert f"sha256  {hashlib.sha256(text).hexdigest()}  LICENSE" in (BUILDROOT / "snmpextmibmodule.hash").read_text()
    assert 'LICENSE = "Apache-2.0"' in YOCTO and "LICENSE = Apache-2.0" in MAKEFILE


@pytest.mark.parametrize("text", [YOCTO, MAKEFILE], ids=["yocto", "buildroot"])
def test_options_of_the_build_exist(text):
    options = set(re.findall(r"^ *(?:option|find_program)\((\w+)", CMAKE, re.MULTILINE))
    used = set(re.findall(r"-D(TAVO_\w+)", text))
    assert len(used) == 5 and used <= options


def test_recipes_build_what_belongs_on_a_controller():
    """So they need neither the simulated server's libraries nor those for real hardware (test_build_options.py)."""
    wanted = {"-DTAVO_BUILD_SIMULATOR=OFF", "-DTAVO_BUILD_TESTS=OFF", "-DTAVO_BUILD_BENCH=OFF"}
    for text in (YOCTO, MAKEFILE):
        assert wanted <= set(re.findall(r"-D\w+=OFF", text))
    assert re.search(r'^DEPENDS = "(.*)"$', YOCTO, re.MULTILINE)[1].split() == ["cli11", "net-snmp"]
    assert re.search(r"_DEPENDENCIES = (.*?)( \$.*)?$", MAKEFILE, re.MULTILINE)[1].split() == ["cli11", "netsnmp"]
    selected = set(re.findall(r"^\tselect (\w+)", (BUILDROOT / "Config.in").read_text(), re.MULTILINE))
    assert selected == {"BR2_PACKAGE_CLI11", "BR2_PACKAGE_NETSNMP", "BR2_PACKAGE_NETSNMP_SERVER"}


def test_a_linker_that_packs_can_be_asked_for():
    """A tool of the host's, which nobody gets who does not ask for it. No other lld is taken that is there by chance."""
    on, off, build, *more = re.search(r'^PACKAGECONFIG\[lld\] = "(.*)"$', YOCTO, re.MULTILINE)[1].split(",")
    assert (on, off) == ("-DTAVO_LLD=${STAGING_BINDIR_NATIVE}/ld.lld", "-DTAVO_LLD=OFF")
    assert (build, more) == ("lld-native", [])
    assert "lld" not in re.search(r'^PACKAGECONFIG \?\?= "(.*)"$', YOCTO, re.MULTILINE)[1]
    assert re.search(r"_DEPENDENCIES = .* \$\(if \$\(BR2_PACKAGE_HOST_LLD\),host-lld\)$", MAKEFILE, re.MULTILINE)
    assert "-DTAVO_LLD=$(if $(BR2_PACKAGE_HOST_LLD),$(HOST_DIR)/bin/ld.lld,OFF)" in MAKEFILE


def test_yocto_packages_hold_what_is_installed(installed):  # noqa: F811
    patterns = re.sub(r"\$\{(\w+)\}", lambda name: VARIABLES.get(name[1], name[0]),
                      " ".join(re.findall(r'^FILES:\S+ = "([^"]*)"', YOCTO, re.MULTILINE))).replace("\\", "").split()
    # The rest is in the packages that Yocto makes of every recipe: -dev and -doc.
    left = {name for name in (path.replace("lib/x86_64-linux-gnu", "lib") for path in installed)
            if not any(name == pattern or name.startswith(pattern + "/") for pattern in patterns)}
    simulator = re.compile(r"usr/(bin|lib/libbmcsim|libexec|share/bmcsim)")
    assert {name for name in left if not simulator.match(name)} == {
        name for name in left if re.match(r"usr/(share/(man|doc)|include|lib/pkgconfig)/", name)}
    for pattern in patterns:
        assert any(name.replace("lib/x86_64-linux-gnu", "lib").startswith(pattern) for name in installed), pattern


@pytest.mark.parametrize("text", [YOCTO, MAKEFILE, INIT_SCRIPT.read_text()], ids=["yocto", "buildroot", "init-script"])
def test_the_user_is_the_units(text):
    _, name, _, _, home = re.fullmatch(r'(u) (\S+) (-) "(.*)" (\S+)', SYSUSERS).groups()
    assert name in text
    assert home in text.replace("${localstatedir}", "/var").replace("$DAEMON", name)


def test_the_init_script_makes_the_units_links():
    names = re.search(r"for name in (.*?); do", INIT_SCRIPT.read_text().replace("\\\n", " "), re.DOTALL)[1].split()
    assert names == [pathlib.PurePath(line.split()[1]).name for line in lines(TMPFILES) if line.startswith("L+ ")]


def test_shell_parts_parse():
    install = re.search(r"^do_install:append\(\) {\n(.*?)^}", YOCTO, re.MULTILINE | re.DOTALL)[1]
    for script in (INIT_SCRIPT.read_text(), install.replace("${", "$")):
        assert subprocess.run(["sh", "-n"], input=script, capture_output=True, text=True, check=False).stderr == ""
    assert os.access(INIT_SCRIPT, os.X_OK)


def test_variables_of_buildroot_have_its_prefix():
    names = re.findall(r"^(?:define )?(\w+)(?: =|$)", MAKEFILE, re.MULTILINE)
    assert len(names) > 8 and all(name.startswith("SNMPEXTMIBMODULE_") for name in names if name != "endef")
    options = re.findall(r"^config (\w+)", (BUILDROOT / "Config.in").read_text(), re.MULTILINE)
    assert options[0] == "BR2_PACKAGE_SNMPEXTMIBMODULE"
    assert set(re.findall(r"BR2_PACKAGE_SNMP\w+", MAKEFILE)) <= set(options)
