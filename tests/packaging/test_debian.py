"""What is cheap to check of debian/: each file that is installed is in one package, and what is said twice agrees."""

import os
import pathlib
import re
import shutil
import subprocess

import pytest

from agents import BUILD, ROOT

DEBIAN = ROOT / "debian"
CONTROL = (DEBIAN / "control").read_text()
PACKAGES = re.findall(r"^Package: (\S+)", CONTROL, re.MULTILINE)
SETTINGS = dict(re.findall(r"^(\w+):\w+=(.*)$", (BUILD / "CMakeCache.txt").read_text(), re.MULTILINE))
TMPFILES = ROOT / "host/snmp-subagentd.tmpfiles"


def lines(file):
    """The lines of a file of debhelper's, without comments."""
    return [line for line in file.read_text().splitlines() if line and not line.startswith("#")]


@pytest.fixture(scope="module")
def installed(tmp_path_factory):
    """The files that `cmake --install` installs, as Debian's build of them."""
    image = tmp_path_factory.mktemp("image")
    subprocess.run(["cmake", "--install", BUILD], check=True, capture_output=True,
                   env={**os.environ, "DESTDIR": str(image)})
    libraries = f"usr/{SETTINGS['CMAKE_INSTALL_LIBDIR']}/"
    # In Debian, what is made for one architecture is in a directory of that.
    private = re.compile(rf"{libraries}(?!systemd/|sysusers\.d/|tmpfiles\.d/)")
    names = (str(path.relative_to(image)) for path in image.rglob("*") if path.is_symlink() or not path.is_dir())
    return {private.sub("usr/lib/x86_64-linux-gnu/", name) for name in names}


def claimed(installed, pattern):
    """The installed files that a line of debian/*.install means."""
    return {name for name in installed for place in (pathlib.PurePath(name), *pathlib.PurePath(name).parents)
            if place.match(f"/{pattern}") or place.match(pattern) and len(place.parts) == pattern.count("/") + 1}


def test_each_file_is_in_one_package(installed):
    owners = {}
    for file in [*sorted(DEBIAN.glob("*.install")), DEBIAN / "not-installed"]:
        for line in lines(file):
            found = claimed(installed, line.split()[0])
            assert found, f"{file.name}: nothing is installed as {line}"
            for name in found:
                owners.setdefault(name, []).append(file.stem)
    assert {name: packages for name, packages in owners.items() if len(packages) > 1} == {}
    assert installed - set(owners) == set()


def test_each_package_has_its_files():
    assert sorted(file.stem for file in DEBIAN.glob("*.install")) == sorted(PACKAGES)


@pytest.mark.skipif(not shutil.which("dh_compress"),
                    reason="debhelper is not installed (scripts/install-packages packaging)")
def test_pages_and_examples_keep_their_names(tmp_path):
    """Pages link to each other, and the example's Makefile names its sources."""
    shutil.copytree(DEBIAN, tmp_path / "debian")
    package = tmp_path / "debian/snmpextmibmodule-doc"
    subprocess.run(["cmake", "--install", BUILD], check=True, capture_output=True,
                   env={**os.environ, "DESTDIR": str(package)})
    for path in lines(DEBIAN / "not-installed"):
        (package / path).unlink()
    subprocess.run(["make", "-f", "debian/rules", "override_dh_compress"], cwd=tmp_path, check=True)
    compressed = {str(path.relative_to(package / "usr/share")) for path in package.rglob("*.gz")}
    assert compressed == {f"man/man{page.suffix[1:]}/{page.name}.gz" for page in ROOT.glob("man/*")}


@pytest.mark.parametrize("script", sorted(DEBIAN.glob("*.p*r*")), ids=lambda path: path.name)
def test_maintainer_scripts_are_sound(script):
    assert subprocess.run(["sh", "-n", script], capture_output=True, text=True, check=False).stderr == ""
    assert script.read_text().startswith("#!/bin/sh\nset -e\n") and "#DEBHELPER#" in script.read_text()


def test_build_needs_the_packages_of_run_sh():
    needed = {name for name in re.findall(r"^ ([\w+-]+)(?: \(.*\))?,$", CONTROL.partition("\n\n")[0], re.MULTILINE)}
    script = (ROOT / "scripts/install-packages").read_text()
    to_build = re.search(r"# to build\n([^#]*)", script)[1].split()
    assert set(to_build) - {"g++"} <= needed


@pytest.mark.parametrize("package, licence", [("libcli11-dev", "BSD-3-clause"), ("nlohmann-json3-dev", "Expat")])
def test_what_is_compiled_in_has_its_notice(package, licence):
    """As the package says it, but for the lines' lengths and the kind of quotes."""
    known = pathlib.Path("/usr/share/doc", package, "copyright").read_text()
    notice = re.search(r"^Copyright: (.*)", known, re.MULTILINE)[1]
    text = re.search(rf"^License: {licence}\n((?: .*\n)+)", known, re.MULTILINE)[1]
    ours = " ".join(word for word in (DEBIAN / "copyright").read_text().split() if word != ".")
    assert f"Copyright (c) {notice}" in ours
    assert " ".join(word for word in text.replace("``AS IS''", '"AS IS"').split() if word != ".") in ours


def test_the_linker_that_packs_on_arm_is_there():
    """Else armhf's module would be 3.8 KiB larger, without a word."""
    package, architectures = re.search(r"^ (lld-\d+):native \[(.*)\],$", CONTROL.partition("\n\n")[0],
                                       re.MULTILINE).groups()
    assert architectures == "armhf"
    names = re.search(r"find_program\(TAVO_LLD NAMES ([^)]*)", (ROOT / "cmake/module.cmake").read_text())[1].split()
    assert f"ld.{package}" in names
    assert package in (ROOT / "scripts/install-packages").read_text().split()


def test_packed_relocations_ask_for_their_glibc():
    """dh_shlibdeps goes by the names that are imported, and glibc 2.34 has them all."""
    needed = subprocess.run(["readelf", "--version-info", BUILD / "libsnmpextmibmodule.so"], capture_output=True,
                            text=True, check=True).stdout
    [paragraph] = (text for text in CONTROL.split("\n\n") if text.startswith("Package: libsnmpextmibmodule\n"))
    assert ("GLIBC_ABI_DT_RELR" in needed) == ("libc6 (>= 2.36)" in paragraph)


@pytest.mark.parametrize("words, says", [
    (["--nonsense"], "unknown option '--nonsense'"), (["--output"], "--output needs a value"),
    (["--arch", "vax"], "--arch takes armhf"), (["no-such-commit"], "there is no commit 'no-such-commit'")])
def test_scripts_package_refuses_wrong_words(words, says):
    done = subprocess.run([ROOT / "scripts/package", *words], capture_output=True, text=True, check=False)
    assert done.returncode == 2 and says in done.stderr


def test_options_of_the_build_exist():
    options = set(re.findall(r"^option\((\w+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE))
    used = set(re.findall(r"-D(TAVO_\w+)", (DEBIAN / "rules").read_text()))
    assert used and used <= options


def test_each_dump_and_the_marker_has_its_link():
    links = [line.split() for line in lines(TMPFILES) if line.startswith("L+ ")]
    for _, path, *_, target in links:
        assert target == path.replace("/var/", "/run/snmp-subagentd/")
    sources = "".join((ROOT / name).read_text() for name in ("host/dump_files.cpp", "core/marker.h"))
    assert {path for _, path, *_ in links} == set(re.findall(r'"(/var/\w+)"', sources))


def test_the_unit_waits_for_the_library_that_it_names():
    unit = (BUILD / "snmp-subagentd.service").read_text()
    library = re.search(r"--platform (\S+)", unit)[1]
    conditions = re.findall(r"^ConditionPathExists=\|(\S+)", unit, re.MULTILINE)
    assert len(conditions) == 2 and {pathlib.PurePath(path).name for path in conditions} == {library}
