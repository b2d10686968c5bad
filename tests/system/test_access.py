"""The recipes of docs/access.md, each with the agent that it is for: the daemon alone, and behind snmpd."""

import re
import shutil
import subprocess

import pytest

from agents import ROOT, free_port, wait_until
from documents import recipe
from oids import DAEMON_BASE, FAULT_TABLE, OBJECTS, PROCESSOR_DN
from server import SCENARIO, Server, ServedDaemon
from test_run_sh_managers import ask, port, serve  # noqa: F401 (fixtures)

SECRETS = ["-a", "SHA-256", "-A", "an authentication secret", "-x", "AES", "-X", "a privacy secret"]
FAULT = f"{FAULT_TABLE}.1.5.11"
FAULTS_COMPLETE = f"{DAEMON_BASE}.1.8.6.0"
SYSTEM = "1.3.6.1.2.1.1"
PROCESSOR = f"{PROCESSOR_DN}.1"
MODES = pytest.mark.parametrize("mode", [[], ["--agentx"]], ids=["alone", "agentx"])


@pytest.fixture
def agent(serve, directory, port):  # noqa: F811
    """agent(recipe, option, ...) serves with this configuration; the result is its address."""
    def start_agent(configuration, *options):
        file = directory / "access.conf"
        file.write_text(configuration)
        serve("--port", str(port), "--config", str(file), *options)
        return f"127.0.0.1:{port}"
    return start_agent


def as_user(name, *level):
    return ["-v3", "-u", name, *(level or ["-l", "authPriv", *SECRETS])]


@MODES
def test_community_reads_its_subtree(agent, mode):
    address = agent(recipe("access.md", "community of some hosts"), *mode)
    community = ["-v2c", "-c", "a-word-of-your-own"]
    assert "cpu-1" in ask(address, *community, oid=PROCESSOR).stdout
    assert "No Such Object" in ask(address, *community, oid=f"{SYSTEM}.1.0").stdout
    assert ask(address, "-v2c", "-c", "public").returncode == 1


@MODES
def test_user_must_encrypt(agent, mode):
    address = agent(recipe("access.md", "user"), *mode)
    assert "cpu-1" in ask(address, *as_user("monitor")).stdout
    assert "61453.1.3301" in ask(address, *as_user("monitor"), oid=f"{SYSTEM}.2.0").stdout
    unencrypted = ask(address, *as_user("monitor", "-l", "authNoPriv", *SECRETS[:4]))
    assert "authorizationError" in unencrypted.stdout + unencrypted.stderr
    wrong = ["-l", "authPriv", *SECRETS[:3], "another secret", *SECRETS[4:]]
    assert "Authentication failure" in ask(address, *as_user("monitor", *wrong)).stderr


@MODES
def test_view_shows_faults_and_the_system(agent, mode):
    address = agent(recipe("access.md", "user with a view"), *mode)
    wait_until(lambda: "fan-module-1-3" in ask(address, *as_user("alerts"), oid=FAULT).stdout, what="the faults")
    assert "61453.1.3301" in ask(address, *as_user("alerts"), oid=f"{SYSTEM}.2.0").stdout
    assert "INTEGER: 1" in ask(address, *as_user("alerts"), oid=FAULTS_COMPLETE).stdout
    assert "No Such Object" in ask(address, *as_user("alerts"), oid=PROCESSOR).stdout


@MODES
def test_configuration_says_which_server_it_is(agent, mode):
    address = agent(recipe("access.md", "who am I") + recipe("access.md", "user"), *mode)
    values = [ask(address, *as_user("monitor"), "-Oqv", oid=f"{SYSTEM}.{column}.0").stdout for column in (5, 6, 4)]
    assert [value.strip().strip('"') for value in values] == ["server-7", "Rack 12, unit 30",
                                                              "The people who mend servers"]


def test_view_names_every_group_of_tables():
    text = (ROOT / "docs/access.md").read_text()
    groups = re.search(r"The groups below .*? are (.*?)\. What", text, re.DOTALL)[1]
    named = {int(number) for number in re.findall(r"\b(\d+)\s[a-z]", groups)}
    walked = (ROOT / "tests/system/golden" / f"{SCENARIO.stem}.txt").read_text()
    assert named == {int(group) for group in re.findall(rf"^\.{re.escape(OBJECTS)}\.(\d+)\.", walked, re.M)}


def test_passphrases_in_the_state_file_become_keys(start, directory):
    state = directory / "snmp-subagentd.conf"
    line = next(line for line in recipe("access.md", "user").splitlines() if line.startswith("createUser"))
    state.write_text(f"{line}\n")
    daemon = start(ServedDaemon, start(Server), speed=20, configuration="rouser monitor authPriv\n")
    assert "cpu-1" in ask(daemon.address, *as_user("monitor")).stdout
    assert "secret" not in state.read_text()
    assert "usmUser" in state.read_text()


class Certificates:
    """Certificates for an agent and a manager, and the directories in which each finds them."""

    def __init__(self, directory):
        self.paths = {name: directory / f"{name}-tls" for name in ("agent", "manager")}
        for name, path in self.paths.items():
            (path / "tls/certs").mkdir(parents=True)
            (path / "tls/private").mkdir()
            subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj",
                            f"/CN={name}", "-keyout", path / f"tls/private/{name}.key", "-out",
                            path / f"tls/certs/{name}.crt"], check=True, capture_output=True)
        for name, other in (("agent", "manager"), ("manager", "agent")):
            shutil.copy(self.paths[name] / f"tls/certs/{name}.crt", self.paths[other] / "tls/certs")

    def fingerprint(self, name):
        printed = subprocess.run(["openssl", "x509", "-noout", "-fingerprint", "-sha256", "-in",
                                  self.paths[name] / f"tls/certs/{name}.crt"], check=True, capture_output=True,
                                 text=True)
        return printed.stdout.strip().partition("=")[2]


def test_dtls_knows_a_manager_by_its_certificate(start, directory):
    if not shutil.which("openssl"):
        pytest.skip("the program openssl is missing, which makes the certificates")
    certificates = Certificates(directory)
    stranger = directory / "stranger"
    stranger.mkdir()
    configuration = recipe("access.md", "DTLS")
    for name in ("agent", "manager"):
        configuration = configuration.replace(f"{name.upper()}-FINGERPRINT", certificates.fingerprint(name))
    address = f"dtlsudp:127.0.0.1:{free_port()}"
    start(ServedDaemon, start(Server), speed=20, configuration=configuration, options=["--listen", address],
          SNMPCONFPATH=str(certificates.paths["agent"]))

    def get(identity, path):
        command = ["snmpget", "-v3", "--defSecurityModel=tsm", "-u", "monitor", "-l", "authPriv", "-r", "0", "-t", "3",
                   "-T", f"our_identity={identity}", "-T", "their_identity=agent", "-On", address, PROCESSOR]
        return subprocess.run(command, capture_output=True, text=True, check=False, timeout=60,
                              env={"PATH": "/usr/bin:/bin", "MIBS": "", "SNMPCONFPATH": str(path),
                                   "SNMP_PERSISTENT_DIR": str(directory)})

    known = get("manager", certificates.paths["manager"])
    assert "cpu-1" in known.stdout, known.stderr
    unknown = Certificates(stranger)
    shutil.copy(certificates.paths["agent"] / "tls/certs/agent.crt", unknown.paths["manager"] / "tls/certs")
    assert "cpu-1" not in get("manager", unknown.paths["manager"]).stdout
