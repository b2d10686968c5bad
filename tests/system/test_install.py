"""What `cmake --install` installs: the files of each component, and a daemon, a simulator and MIB modules that work."""

import os
import pathlib
import re
import subprocess
import sys

import pytest

from agents import BUILD, ROOT, Daemon, snmp
from server import Server, descendant

SETTINGS = dict(re.findall(r"^(\w+):\w+=(.*)$", (BUILD / "CMakeCache.txt").read_text(), re.MULTILINE))
COMPONENTS = ["module", "daemon", "simulator", "mibs", "monitoring", "doc"]
PREFIX = pathlib.PurePath(SETTINGS["CMAKE_INSTALL_PREFIX"])
LIBRARIES = PREFIX / SETTINGS["CMAKE_INSTALL_LIBDIR"]
DOCUMENTS = PREFIX / "share/doc/snmpextmibmodule"
TABLES = "1.3.6.1.4.1.61453.4.207"

# What each component consists of.
FILES = {
    "module": [LIBRARIES / "libsnmpextmibmodule.so", LIBRARIES / "pkgconfig/snmpextmibmodule.pc",
               PREFIX / "share/man/man7/libsnmpextmibmodule.7",
               *(DOCUMENTS / "examples/platform" / file.name for file in ROOT.glob("examples/platform/*")),
               *(PREFIX / "include/snmpextmibmodule/platform" / header.name for header in ROOT.glob("platform/*.h"))],
    "daemon": [PREFIX / "sbin/snmp-subagentd", PREFIX / "lib/systemd/system/snmp-subagentd.service",
               PREFIX / "lib/tmpfiles.d/snmp-subagentd.conf", PREFIX / "lib/sysusers.d/snmp-subagentd.conf",
               DOCUMENTS / "examples/snmp-subagentd.conf", DOCUMENTS / "examples/snmp-subagentd.apparmor",
               PREFIX / "share/man/man8/snmp-subagentd.8", PREFIX / "share/man/man5/snmp-subagentd.conf.5",
               pathlib.PurePath("/etc/snmp/snmpd.conf.d/subagentd.conf")],
    "simulator": [PREFIX / "bin/bmcsim", LIBRARIES / "libbmcsim.so", PREFIX / "share/bmcsim/scenarios/rack-server.yaml",
                  PREFIX / "share/man/man1/bmcsim.1",
                  *(PREFIX / "libexec/bmcsim" / tool for tool in ("datactl", "flatkv", "slotutil", "ipmitool"))],
    "mibs": [*(PREFIX / "share/snmp/mibs" / mib.name for mib in ROOT.glob("mibs/TAVO-*")),
             *(PREFIX / "share/snmpextmibmodule/mibs" / mib.name for mib in ROOT.glob("mibs/base/*"))],
    "doc": [*(DOCUMENTS / name for name in ("README.md", "CHANGELOG.md", "CONTRIBUTING.md", "SECURITY.md", "LICENSE")),
            *(DOCUMENTS / "docs" / document.name for document in ROOT.glob("docs/*.md")),
            *(DOCUMENTS / "docs/images" / image.name for image in ROOT.glob("docs/images/*"))],
}


class Image:
    """The root directory into which components are installed."""

    def __init__(self, root):
        self.root = root

    def install(self, component):
        subprocess.run(["cmake", "--install", BUILD, "--component", component], check=True, capture_output=True,
                       env={**os.environ, "DESTDIR": str(self.root)})

    def path(self, path):
        return self.root / path.relative_to("/")

    def files(self):
        return {"/" / path.relative_to(self.root) for path in self.root.rglob("*")
                if path.is_symlink() or not path.is_dir()}


@pytest.fixture
def image(directory):
    return Image(directory / "image")


@pytest.mark.parametrize("component", FILES)
def test_component_has_these_files(image, component):
    image.install(component)
    assert image.files() == {pathlib.Path(path) for path in FILES[component]}


def test_no_component_is_left_out(image):
    for component in COMPONENTS:
        image.install(component)
    everything = Image(image.root.with_name("everything"))
    subprocess.run(["cmake", "--install", BUILD], check=True, capture_output=True,
                   env={**os.environ, "DESTDIR": str(everything.root)})
    assert everything.files() == image.files()


def binaries(image):
    for component in ("module", "daemon", "simulator"):
        image.install(component)
    return [path for path in map(image.path, sorted(image.files()))
            if path.is_file() and not path.is_symlink() and path.read_bytes()[:4] == b"\x7fELF"]


def test_nothing_has_a_run_path(image):
    found = binaries(image)
    assert len(found) == 4
    for binary in found:
        dynamic = subprocess.run(["readelf", "--dynamic", binary], capture_output=True, text=True, check=True).stdout
        assert "NEEDED" in dynamic
        assert not re.search(r"\((RPATH|RUNPATH)\)", dynamic), dynamic


@pytest.mark.skipif(SETTINGS["CMAKE_BUILD_TYPE"] == "Debug", reason="a build for the sanitizers is not hardened")
def test_what_is_installed_is_hardened(image):
    files = ";".join(map(str, binaries(image)))
    run = subprocess.run([sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider",
                          ROOT / "tests/hardening_test.py"],
                         capture_output=True, text=True, env={**os.environ, "BINARIES": files}, check=False)
    assert run.returncode == 0, run.stdout


def test_installed_daemon_serves_installed_simulator(image, start):
    binaries(image)
    image.install("mibs")
    server = start(Server, scenario=image.path(PREFIX / "share/bmcsim/scenarios/rack-server.yaml"),
                   programs=image.path(PREFIX / "bin"))
    daemon = start(Daemon, platforms=["libbmcsim.so"],
                   program=[*server.entered(), image.path(PREFIX / "sbin/snmp-subagentd")],
                   LD_LIBRARY_PATH=str(image.path(LIBRARIES)))

    loaded = pathlib.Path(f"/proc/{descendant(daemon.pid, 'snmp-subagentd')}/maps").read_text()
    for library in ("libsnmpextmibmodule.so", "libbmcsim.so"):
        assert f" {image.path(LIBRARIES / library)}\n" in loaded
    mibs = ":".join(str(image.path(PREFIX / "share" / place)) for place in ("snmp/mibs", "snmpextmibmodule/mibs"))
    walk = snmp("snmpwalk", daemon.address, TABLES, options=["-M", mibs, "-m", "ALL", "-OS"])
    assert "TAVO-PROCESSOR-MIB::tavoProcessorUnitModel.1 = STRING: Processor model A" in walk
    assert len(walk) > 1500


def test_simulated_tools_work(image):
    image.install("simulator")
    tool = image.path(PREFIX / "libexec/bmcsim/datactl")
    result = subprocess.run([tool, "get=inventoryCPU"], capture_output=True, text=True, check=False,
                            env={**os.environ, "BMCSIM_SOCKET": str(image.root / "nobody")})
    assert (result.returncode, result.stderr) == (
        1, f"datactl: the simulator does not answer at {image.root}/nobody\n")


def test_unit_starts_the_installed_daemon(image):
    image.install("daemon")
    unit = image.path(PREFIX / "lib/systemd/system/snmp-subagentd.service").read_text()
    program = re.search(r"^ExecStart=(\S+)", unit, re.MULTILINE)[1]
    assert os.access(image.path(pathlib.PurePath(program)), os.X_OK)
    assert not re.search(r"@\w+@", unit)


def test_platform_library_builds_with_the_headers(image, directory):
    image.install("module")
    (directory / "platform.c").write_text("".join(
        f'#include "platform/{header.name}"\n' for header in sorted(ROOT.glob("platform/*.h"))))
    flags = subprocess.run(["pkg-config", "--cflags", "snmpextmibmodule"], capture_output=True, text=True, check=True,
                           env={**os.environ, "PKG_CONFIG_SYSROOT_DIR": str(image.root),
                                "PKG_CONFIG_PATH": str(image.path(LIBRARIES / "pkgconfig"))}).stdout.split()
    subprocess.run(["cc", "-std=c99", "-Wall", "-Wextra", "-Werror", "-pedantic", *flags, "-c", "platform.c"],
                   cwd=directory, check=True)
