"""The Debian packages: built twice alike, without a complaint of lintian; and a bare Debian on which they are
installed, serve, are upgraded, removed and purged, under systemd and with all restrictions of the unit.

TAVO_PACKAGES=build runs all of this. It builds the packages of what git knows of this tree, which takes minutes. With
TAVO_PACKAGES=DIR, the packages in DIR are installed and so on. With armhf in TAVO_MACHINES, the same is done with those
for 32-bit Arm, on an emulated machine.
"""

import json
import os
import pathlib
import re
import shutil
import subprocess
import time

import pytest

from agents import ROOT, wait_until
from debian_machine import PACKAGES, ContainedDebian, EmulatedDebian
from oids import BASE, FAULT_TABLE
from server import FRONT_ENDS
from test_walk import cells, golden

WANTED = os.environ.get("TAVO_PACKAGES")
pytestmark = pytest.mark.skipif(WANTED is None, reason="builds packages for minutes: only with TAVO_PACKAGES=build")

DAEMON = "snmp-subagentd.service"
SIMULATOR = """
[Service]
ExecStart=/usr/bin/bmcsim serve /etc/still.yaml
# It opens its socket to its own user alone.
ExecStartPost=/usr/bin/bmcsim ctl --wait 60 ping
ExecStartPost=/bin/chmod a+rw /var/bmcsim/socket
"""
JOINED = f"""
[Unit]
JoinsNamespaceOf=bmcsim.service
[Service]
PrivateTmp=yes
"""
# Debian shows the system group only to the community public.
SITE = """
rocommunity site 127.0.0.1
trap2sink udp:127.0.0.1:1162 public
"""
MANAGER = """
[Service]
Environment=MIBS= SNMP_PERSISTENT_DIR=/tmp
ExecStart=/usr/sbin/snmptrapd -f -C -c /etc/manager.conf -n -On -Lo udp:127.0.0.1:1162
"""

# By architecture: what scripts/package is told, the kinds of packages that it builds then, and the machine on which they
# are installed.
OPTIONS = {"amd64": [], "armhf": ["--arch", "armhf"]}
KINDS = {"amd64": ["amd64", "all"], "armhf": ["armhf"]}
MACHINES = {"amd64": ContainedDebian, "armhf": EmulatedDebian}


@pytest.fixture(scope="module")
def commit():
    """Of the tree as it is, but for files that git does not know."""
    stash = subprocess.run(["git", "stash", "create"], cwd=ROOT, capture_output=True, text=True, check=True).stdout
    return stash.strip() or "HEAD"


def build(commit, place, *options, before=(), **environment):
    """Builds the packages, and returns the seconds that this took."""
    begun = time.monotonic()
    done = subprocess.run([*before, ROOT / "scripts/package", "--without-tests", *options, "--output", place, commit],
                          capture_output=True, text=True, check=False, env={**os.environ, **environment})
    assert done.returncode == 0, done.stderr
    return time.monotonic() - begun


@pytest.fixture(scope="module", params=["amd64", "armhf"])
def arch(request):
    if request.param == "armhf" and "armhf" not in os.environ.get("TAVO_MACHINES", "").split():
        pytest.skip("ten minutes or more: TAVO_MACHINES=armhf asks for it")
    return request.param


@pytest.fixture(scope="module")
def packages(commit, arch, tmp_path_factory):
    """The directory of the packages."""
    if WANTED != "build":
        place = pathlib.Path(WANTED)
        if not list(place.glob(f"*_{arch}.deb")):
            pytest.skip(f"{place} has no packages for {arch}")
        return place
    if shutil.which("dh") is None:
        pytest.skip("debhelper is not installed (scripts/install-packages packaging)")
    if arch != "amd64" and (os.geteuid() != 0 or shutil.which("mmdebstrap") is None):
        pytest.skip("a cross build needs root and mmdebstrap (scripts/install-packages cross)")
    place = tmp_path_factory.mktemp("packages")
    print(f"\nbuilt in {build(commit, place, *OPTIONS[arch]):.0f} s")
    return place


def test_lintian_has_no_complaint(packages, arch):
    if shutil.which("lintian") is None:
        pytest.skip("lintian is not installed (scripts/install-packages packaging)")
    [changes] = packages.glob(f"*_{arch}.changes")
    done = subprocess.run(["lintian", "--allow-root", "--fail-on", "error,warning", changes], capture_output=True,
                          text=True, check=False)
    assert (done.returncode, done.stdout) == (0, "")


@pytest.mark.skipif(WANTED != "build", reason="the packages in a directory have been built already")
@pytest.mark.parametrize("arch", ["amd64"], indirect=True)
def test_second_build_is_the_same(packages, commit, tmp_path):
    build(commit, tmp_path, before=["faketime", "-f", "+400d"], TZ="Pacific/Auckland", LC_ALL="C.UTF-8",
          CCACHE_DISABLE="1")
    names = sorted(package.name for package in packages.glob("*.deb"))
    assert len(names) == 10
    print(f"\n{len(names)} packages, {sum((packages / name).stat().st_size for name in names):,} octets")
    assert [name for name in names if (packages / name).read_bytes() != (tmp_path / name).read_bytes()] == []


def with_version(package, version, place):
    """The same package as another version."""
    tree = place / package.stem
    subprocess.run(["dpkg-deb", "--raw-extract", package, tree], check=True)
    control = tree / "DEBIAN/control"
    old = re.search(r"^Version: (.*)$", control.read_text(), re.MULTILINE)[1]
    text = re.sub(rf"^Version: {re.escape(old)}$", f"Version: {version}", control.read_text(), flags=re.MULTILINE)
    control.write_text(text.replace(f"(= {old})", f"(= {version})"))
    file = place / package.name.replace(old, version)
    subprocess.run(["dpkg-deb", "--root-owner-group", "--build", tree, file], check=True, stdout=subprocess.DEVNULL)
    return file


class Story:
    """A bare machine, and what its administrator does with the packages."""

    def __init__(self, machine, packages):
        self.machine = machine
        self.packages = packages
        self.machine.boot(packages)

    def platform(self):
        """Where the unit looks for the platform's library: beside the simulated one."""
        files = self.machine.run("dpkg", "--listfiles", "bmcsim").stdout
        return re.search("^(.*/)libbmcsim.so$", files, re.MULTILINE)[1] + "libbmcplatform.so"

    def serve_hardware(self):
        """What the packaged program says of this machine, and what it could not read. Its register stays."""
        self.machine.run("systemd-run", "--unit=hardware", "bmcsim", "serve", "--hardware")
        # It may wait for what does not answer.
        self.machine.run("bmcsim", "ctl", "--wait", "60", "ping")
        shown = self.machine.run("bmcsim", "ctl", "show", "--json").stdout
        self.machine.run("systemctl", "stop", "hardware")
        return json.loads(shown), self.machine.log("hardware")

    def add_platform(self):
        """The simulated server in the platform's place, one whose readings do not change."""
        machine = self.machine
        scenario = machine.read("/usr/share/bmcsim/scenarios/rack-server.yaml")
        machine.write("/etc/still.yaml", re.sub(r"drift: \d+", "drift: 0", scenario))
        machine.write("/etc/systemd/system/bmcsim.service", SIMULATOR)
        links = [f"ln -s /usr/libexec/bmcsim/{tool} /usr/local/bin/{tool}" for tool in FRONT_ENDS]
        machine.run("sh", "-ec", "; ".join([*links, f"ln -s libbmcsim.so {self.platform()}"]))
        machine.run("systemctl", "daemon-reload")
        machine.run("systemctl", "start", "bmcsim")
        machine.run("bmcsim", "ctl", "--wait", "10", "ping")

    def remove_platform(self):
        self.machine.run("systemctl", "stop", "bmcsim")
        self.machine.run("rm", "-r", "/etc/still.yaml", "/etc/systemd/system/bmcsim.service", PACKAGES,
                         self.platform(), *(f"/usr/local/bin/{tool}" for tool in FRONT_ENDS))
        # The simulated server's files in the platform's places, which its package leaves: they might be a platform's.
        self.machine.run("rm", "-rf", "/var/pmbus", "/var/vessa", "/var/stor_info_data")

    def start_master(self):
        self.machine.write("/etc/snmp/snmpd.conf.d/site.conf", SITE)
        self.machine.write("/etc/manager.conf", "disableAuthorization yes\n")
        self.machine.write("/etc/systemd/system/manager.service", MANAGER)
        self.machine.run("systemctl", "daemon-reload")
        self.machine.run("systemctl", "restart", "snmpd", "manager")

    def remove_master(self):
        self.machine.run("systemctl", "stop", "manager")
        self.machine.run("rm", "/etc/snmp/snmpd.conf.d/site.conf", "/etc/manager.conf",
                         "/etc/systemd/system/manager.service")

    def process(self):
        return int(self.machine.unit("MainPID")[0])

    def status(self, name):
        """A line of the daemon's /proc/PID/status."""
        return self.machine.run("sed", "-n", rf"s/^{name}:\s*//p", f"/proc/{self.process()}/status").stdout.strip()

    def walk(self, root=BASE):
        return cells(self.machine.run("snmpwalk", "-v2c", "-c", "site", "-On", "-t", "30", "127.0.0.1", root,
                                      check=False).stdout.splitlines())

    def answers(self):
        return self.machine.run("snmpgetnext", "-v2c", "-c", "site", "-On", "-r", "0", "-t", "5", "127.0.0.1", BASE,
                                check=False).stdout.startswith(f".{BASE}.")

    def print_sizes(self):
        for package in self.packages:
            unpacked = subprocess.run(["dpkg-deb", "--field", package, "Installed-Size"], check=True,
                                      capture_output=True, text=True).stdout.strip()
            print(f"{package.name}: {package.stat().st_size / 1024:.0f} KiB packed, {unpacked} KiB unpacked")

    def wait_for_every_value(self, timeout):
        wait_until(lambda: len(self.walk(f"{FAULT_TABLE}.1.2")) == 4, timeout * self.machine.slowness, "the faults")
        assert self.walk() == golden()

    def sd_trigger(self):
        """Whether the simulated SD-card service reaches the daemon."""
        return "1 of 1" in self.machine.run("bmcsim", "ctl", "sd-trigger", "1", check=False).stdout


@pytest.fixture
def story(tmp_path_factory, packages, arch):
    chosen = [package for kind in KINDS[arch] for package in sorted(packages.glob(f"*_{kind}.deb"))
              if "-dbgsym_" not in package.name]
    machine = MACHINES[arch](tmp_path_factory.mktemp("m"))
    try:
        yield Story(machine, chosen)
        print("--- end of the daemon's log ---", machine.log()[-2000:], sep="\n")
    finally:
        machine.stop()


def test_installed_upgraded_removed_purged(story, tmp_path):
    machine = story.machine
    before = machine.files()

    story.print_sizes()
    begun = time.monotonic()
    machine.install(*story.packages)
    print(f"booted in {machine.seconds_to_boot:.0f} s, installed in {time.monotonic() - begun:.0f} s")
    assert machine.unit("ActiveState", "ConditionResult", "UnitFileState") == ["inactive", "no", "enabled"]
    assert "Missing" not in machine.log()

    hardware, unread = story.serve_hardware()
    assert "server" in hardware
    # This machine has no management controller: the program says so, and serves the rest.
    assert re.search(r"^bmcsim: not read: IPMI: /dev/ipmi0: ", unread, re.MULTILINE), unread

    story.add_platform()
    story.start_master()
    begun = time.monotonic()
    machine.run("systemctl", "start", DAEMON)
    wait_until(story.answers, 60 * machine.slowness, "an answer")
    seconds = time.monotonic() - begun
    print(f"first answer {seconds:.1f} s after the service's start: {machine.seconds_to_boot + seconds:.0f} s from "
          "power-on, but for the installation")
    user = machine.run("id", "-u", "snmp-subagentd").stdout.strip()
    assert story.status("Uid").split() == [user] * 4
    assert [story.status(name) for name in ("CapBnd", "NoNewPrivs", "Seccomp")] == ["0" * 16, "1", "2"]
    # The first start of this boot is a cold one: the faults are listed after a minute.
    story.wait_for_every_value(120)
    print(f"{len(story.walk())} values served")
    assert "cannot write" not in machine.log()
    wait_until(story.sd_trigger, what="the SD-card socket")

    machine.run("bmcsim", "ctl", "fault", "raise", "77", "class=4")
    wait_until(lambda: re.search(rf"{BASE}\.0\.1\s.*{FAULT_TABLE}\.1\.1\.77 = ", machine.log("manager")),
               what="the notification")
    machine.run("bmcsim", "ctl", "fault", "clear", "77")

    machine.write(f"/etc/systemd/system/{DAEMON}.d/platform.conf", JOINED)
    machine.run("systemctl", "daemon-reload")
    machine.run("systemctl", "restart", DAEMON)
    assert not story.sd_trigger(), "one private /tmp is not the other"
    machine.write("/etc/systemd/system/bmcsim.service", SIMULATOR + "PrivateTmp=yes\n")
    machine.run("systemctl", "daemon-reload")
    machine.run("systemctl", "restart", "bmcsim")
    machine.run("systemctl", "restart", DAEMON)
    wait_until(story.sd_trigger, what="the SD-card socket in the joined /tmp")
    story.wait_for_every_value(30)  # at once: this is a warm start

    settings = "/etc/snmp/snmpd.conf.d/subagentd.conf"
    machine.write(settings, machine.read(settings) + "# ours\n")
    pid = story.process()
    machine.install(*(with_version(package, "99.0", tmp_path) for package in story.packages))
    assert story.process() not in (0, pid) and machine.read(settings).endswith("# ours\n")
    story.wait_for_every_value(30)

    names = [package.name.partition("_")[0] for package in story.packages]
    machine.run("rm", "-r", f"/etc/systemd/system/{DAEMON}.d")
    story.remove_master()
    story.remove_platform()
    machine.run("apt-get", "-qq", "remove", "--yes", *names)
    left = machine.files() - before
    print("left by a removal:", *sorted(left))
    assert machine.unit("LoadState") == ["not-found"]
    assert "etc/snmp/snmpd.conf.d/subagentd.conf" in left
    machine.run("dpkg", "--purge", *names)
    machine.run("apt-get", "-qq", "autoremove", "--yes", "--purge")
    assert machine.files() - before == set()
    assert machine.run("id", "-un", "snmp-subagentd").stdout == "snmp-subagentd\n", "files elsewhere may be its own"
