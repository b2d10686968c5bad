"""scripts/release refuses a tree that is not ready, and says why; scripts/sbom lists what is in the packages.

With TAVO_PACKAGES=build, a release is built.
"""

import hashlib
import json
import os
import re
import shutil
import subprocess

import pytest

from agents import BUILD, ROOT

VERSION = "98.7.6"
OLD = re.search(r"^project\(\w+ VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)[1]
# Where the version stands, and what a release makes of each place.
PLACES = {
    "CMakeLists.txt": (f"VERSION {OLD}", f"VERSION {VERSION}"),
    "CHANGELOG.md": ("## [Unreleased]\n", f"## [Unreleased]\n\n## [{VERSION}] - 2030-01-02\n"),
    "debian/changelog": (f"snmpextmibmodule ({OLD})", f"snmpextmibmodule ({VERSION})"),
    "SECURITY.md": (f"| {OLD.rpartition('.')[0]}.x | yes |", f"| {VERSION.rpartition('.')[0]}.x | yes |"),
    "contrib/buildroot/snmpextmibmodule/snmpextmibmodule.mk": (f"_VERSION = {OLD}", f"_VERSION = {VERSION}"),
    "contrib/buildroot/snmpextmibmodule/snmpextmibmodule.hash": (f"-{OLD}.tar", f"-{VERSION}.tar"),
}
RECIPES = "contrib/yocto/snmpextmibmodule_{}.bb"
EVERYTHING = os.environ.get("TAVO_PACKAGES") == "build"


class Clone:
    """A clone of this tree, ready to be released as VERSION."""

    def __init__(self, place):
        self.place = place
        listed = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, capture_output=True, check=True).stdout
        packed = subprocess.run(["tar", "-c", "--null", "--files-from=-"], cwd=ROOT, input=listed, capture_output=True,
                                check=True).stdout
        subprocess.run(["tar", "-x"], cwd=place, input=packed, check=True)
        for name, (old, new) in PLACES.items():
            self.replace(name, old, new)
        (place / RECIPES.format(OLD)).rename(place / RECIPES.format(VERSION))
        self.git("init", "--quiet")
        self.commit()

    def git(self, *words):
        identity = ["-c", "user.name=Someone", "-c", "user.email=someone@example.org", "-c", "core.hooksPath=/dev/null"]
        done = subprocess.run(["git", *identity, *words], cwd=self.place, capture_output=True, text=True, check=True)
        return done.stdout

    def commit(self):
        self.git("add", "--all")
        self.git("commit", "--quiet", "--message", "Release")

    def replace(self, name, old, new):
        text = (self.place / name).read_text()
        assert old in text, f"{name}: {old}"
        (self.place / name).write_text(text.replace(old, new, 1))

    def release(self, *words):
        return subprocess.run([self.place / "scripts/release", *words], capture_output=True, text=True, check=False)


@pytest.fixture
def clone(tmp_path):
    place = tmp_path / "clone"
    place.mkdir()
    return Clone(place)


def checked(clone, *words):
    return clone.release("--dry-run", "--without-tests", *words, VERSION)


def test_a_tree_that_is_ready_may_be_released(clone):
    done = checked(clone)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout == f"{VERSION} could be released; --dry-run builds nothing\n"
    assert clone.git("tag") == "" and clone.git("status", "--porcelain") == ""


@pytest.mark.parametrize("name, old, new, says", [
    ("CMakeLists.txt", f"VERSION {VERSION}", f"VERSION {OLD}", "CMakeLists.txt has another version"),
    ("CHANGELOG.md", f"## [{VERSION}] - 2030-01-02", f"## [{VERSION}]", f"no entry '## [{VERSION}] - YYYY-MM-DD'"),
    ("CHANGELOG.md", "## [Unreleased]\n", "## [Unreleased]\n\n- a change\n", "lists changes as unreleased"),
    ("debian/changelog", VERSION, OLD, "not every file that says the version says the same"),
    ("SECURITY.md", VERSION.rpartition(".")[0], "0.9", "not every file that says the version says the same"),
    ("contrib/buildroot/snmpextmibmodule/snmpextmibmodule.mk", VERSION, OLD, "not every file that says the version"),
], ids=["version", "no-date", "unreleased", "debian", "security", "buildroot"])
def test_what_is_not_ready_is_named(clone, name, old, new, says):
    clone.replace(name, old, new)
    clone.commit()
    done = checked(clone)
    assert done.returncode == 1
    assert says in done.stderr


def test_uncommitted_changes_are_refused(clone):
    (clone.place / "a-new-file").touch()
    done = checked(clone)
    assert (done.returncode, done.stderr) == (
        1, "release: there are uncommitted changes or files that git does not know\n")


def test_a_second_tag_is_refused(clone):
    clone.git("tag", f"v{VERSION}")
    done = checked(clone)
    assert (done.returncode, done.stderr) == (1, f"release: the tag v{VERSION} exists already\n")


@pytest.mark.parametrize("words, says", [
    ([], "a version has three numbers"), (["1.2"], "not '1.2'"), (["1.2.3", "1.2.4"], "one version is enough"),
    (["--nonsense", "1.2.3"], "unknown option '--nonsense'"), (["--output"], "--output needs a value")])
def test_wrong_words_are_refused(words, says):
    done = subprocess.run([ROOT / "scripts/release", *words], capture_output=True, text=True, check=False)
    assert done.returncode == 2 and says in done.stderr


def check_licences(bill):
    """Of bmcsim, the daemon, and what both are made of and linked with."""
    declared = {package["name"]: package["licenseDeclared"] for package in bill["packages"]}
    expected = {"libfreeipmi17": "GPL-3.0-or-later", "libpci3": "GPL-2.0-or-later", "libudev1": "LGPL-2.1-or-later",
                "libstdc++6": "GPL-3.0-or-later WITH GCC-exception-3.1", "libcli11-dev": "BSD-3-Clause",
                "nlohmann-json3-dev": "MIT"}
    assert {name: declared[name] for name in expected} == expected
    concluded = {file["fileName"]: file["licenseConcluded"] for file in bill["files"]}
    assert [name for name, licence in concluded.items() if licence == "GPL-3.0-or-later"] == ["./usr/bin/bmcsim"]
    assert concluded["./usr/sbin/snmp-subagentd"] == "Apache-2.0"


def bill_of(directory, programs):
    """What scripts/sbom says of a package with these programs: {path in the package: file}."""
    for name, program in programs.items():
        place = directory / "tree" / name
        place.parent.mkdir(parents=True)
        subprocess.run(["strip", "-o", place, program], check=True)
    (directory / "tree/DEBIAN").mkdir()
    (directory / "tree/DEBIAN/control").write_text(
        "Package: programs\nVersion: 1\nArchitecture: amd64\nMaintainer: Someone <a@example.org>\nDescription: some\n")
    subprocess.run(["dpkg-deb", "-Znone", "--build", directory / "tree", directory / "programs.deb"], check=True,
                   capture_output=True)
    (directory / "programs.buildinfo").write_text(
        "Version: 1\nInstalled-Build-Depends: libcli11-dev (= 2.3), nlohmann-json3-dev (= 3.11)\n")
    return subprocess.run([ROOT / "scripts/sbom", directory], capture_output=True, text=True, check=False)


def test_a_program_has_its_libraries_licence(tmp_path):
    done = bill_of(tmp_path, {"usr/bin/bmcsim": BUILD / "bmcsim", "usr/sbin/snmp-subagentd": BUILD / "snmp-subagentd",
                              "usr/lib/libbmcsim.so": BUILD / "libbmcsim.so"})
    assert (done.returncode, done.stderr) == (0, "")
    check_licences(json.loads(done.stdout))


def test_a_library_without_a_licence_is_refused(tmp_path):
    done = bill_of(tmp_path, {"usr/bin/other": shutil.which("openssl")})
    assert done.returncode == 1
    assert done.stderr.startswith("sbom: usr/bin/other is linked with libssl.so."), done.stderr
    assert done.stderr.endswith(", whose licence is not in the list\n"), done.stderr


def check_bill(bill, directory):
    """References lead somewhere, hashes are those of the packages, and the libraries are there with versions."""
    assert (bill["spdxVersion"], bill["dataLicense"]) == ("SPDX-2.3", "CC0-1.0")
    elements = {"SPDXRef-DOCUMENT", *(element["SPDXID"] for element in (*bill["packages"], *bill["files"]))}
    assert len(elements) == 1 + len(bill["packages"]) + len(bill["files"])
    for relation in bill["relationships"]:
        assert {relation["spdxElementId"], relation["relatedSpdxElement"]} <= elements
    packages = {package["name"]: package for package in bill["packages"]}
    for package in bill["packages"]:
        assert package["versionInfo"]
        if package["filesAnalyzed"]:
            archive = (directory / package["packageFileName"]).read_bytes()
            assert package["checksums"][0]["checksumValue"] == hashlib.sha256(archive).hexdigest()
    linked = {relation["relatedSpdxElement"] for relation in bill["relationships"]
              if relation["spdxElementId"] == "SPDXRef-Package-snmp-subagentd" and
              relation["relationshipType"] == "DYNAMIC_LINK"}
    assert {packages[name]["SPDXID"] for name in ("libsnmp40", "libstdc++6", "libc6")} <= linked
    assert {"libcli11-dev", "nlohmann-json3-dev"} <= set(packages), "compiled in"
    check_licences(bill)
    assert packages["bmcsim"]["licenseConcluded"] == "Apache-2.0 AND GPL-3.0-or-later"
    assert packages["snmp-subagentd"]["licenseConcluded"] == "Apache-2.0"


@pytest.mark.skipif(not EVERYTHING, reason="builds packages for minutes: only with TAVO_PACKAGES=build")
def test_a_release_is_complete(clone, tmp_path):
    if shutil.which("dh") is None:
        pytest.skip("debhelper is not installed (scripts/install-packages packaging)")
    done = clone.release("--without-tests", "--tag", "--output", tmp_path / "out", VERSION)
    assert (done.returncode, done.stderr) == (0, "")
    assert clone.git("tag") == f"v{VERSION}\n"
    sums = subprocess.run(["sha256sum", "--check", "--quiet", "SHA256SUMS"], cwd=tmp_path / "out", check=False)
    assert sums.returncode == 0
    names = {path.name for path in (tmp_path / "out").iterdir()}
    listed = {line.split()[1] for line in (tmp_path / "out/SHA256SUMS").read_text().splitlines()}
    assert names == listed | {"SHA256SUMS"}
    assert len([name for name in names if name.endswith(".deb")]) == 10
    sources = tmp_path / "out" / f"snmpextmibmodule-{VERSION}.tar.gz"
    again = subprocess.run(["git", "archive", "--format=tar.gz", f"--prefix=snmpextmibmodule-{VERSION}/", "HEAD"],
                           cwd=clone.place, capture_output=True, check=True).stdout
    assert sources.read_bytes() == again
    check_bill(json.loads((tmp_path / "out" / f"snmpextmibmodule-{VERSION}.spdx.json").read_text()), tmp_path / "out")
