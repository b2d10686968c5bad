"""The project's version stands in CMakeLists.txt; what must repeat it, because people read it there, does."""

import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]
VERSION = re.search(r"^project\(\w+ VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)[1]


def test_changelog_begins_with_the_version():
    releases = re.findall(r"^## \[(\d[\d.]*)\]", (ROOT / "CHANGELOG.md").read_text(), re.MULTILINE)
    assert releases[0] == VERSION


def test_debian_packages_have_the_version():
    newest = (ROOT / "debian/changelog").read_text().partition("\n")[0]
    assert re.fullmatch(rf"snmpextmibmodule \({re.escape(VERSION)}(?:[+-].*)?\) bookworm; urgency=\w+", newest)


def test_recipes_for_images_have_the_version():
    assert [path.name for path in ROOT.glob("contrib/yocto/*.bb")] == [f"snmpextmibmodule_{VERSION}.bb"]
    buildroot = ROOT / "contrib/buildroot/snmpextmibmodule"
    makefile = (buildroot / "snmpextmibmodule.mk").read_text()
    assert re.findall(r"^SNMPEXTMIBMODULE_VERSION = (.*)$", makefile, re.MULTILINE) == [VERSION]
    assert f"  snmpextmibmodule-{VERSION}.tar.gz\n" in (buildroot / "snmpextmibmodule.hash").read_text()


def test_security_policy_supports_the_version():
    supported = re.findall(r"^\| ([\d.]+)\.x \| yes \|$", (ROOT / "SECURITY.md").read_text(), re.MULTILINE)
    assert VERSION.rpartition(".")[0] in supported
