"""What the daemon listens on is what docs/operations.md says, and nothing else.

The chassis link's port is fixed, so these tests run in a network namespace of their own.
"""

import contextlib
import ipaddress
import os
import pathlib
import re
import socket
import struct

import pytest

from agents import ROOT, Master, free_port
from server import ServedDaemon, Server
from test_chassis_link import PORT, SPEED, LinkedDaemon, client, private_network  # noqa: F401, used by its name

LISTENS, UNCONNECTED = "0A", "07"  # states of TCP and UDP sockets in /proc/net
ACCEPTS = 0x10000  # a flag of a Unix socket
DATAGRAMS = "0002"
SD_SOCKET = "unix /tmp/snmp_velt_sock"
CHASSIS_LINK = f"tcp 0.0.0.0:{PORT}"
SINK = "trap2sink 127.0.0.1:9 public\n"
# How the rows of the document begin. Each is seen by a test below.
DOCUMENTED = ["each address of `--listen`", "`/tmp/snmp_velt_sock`", f"TCP port {PORT}", "UDP, a port of its own"]


def inodes(daemon):
    """Those of the daemon's sockets."""
    links = set()
    for descriptor in pathlib.Path(f"/proc/{daemon.pid}/fd").iterdir():
        with contextlib.suppress(FileNotFoundError):  # closed meanwhile
            links.add(os.readlink(descriptor))
    return {link[8:-1] for link in links if link.startswith("socket:[")}


def listed(daemon, table):
    """The words of each socket's line in a table of the kernel's."""
    return [line.split() for line in pathlib.Path(f"/proc/{daemon.pid}/net/{table}").read_text().splitlines()[1:]]


def in_words(digits):
    """ADDRESS:PORT from the kernel's digits, which show the address in words of the machine's own order."""
    host, port = digits.split(":")
    packed = b"".join(struct.pack("=I", int(host[at:at + 8], 16)) for at in range(0, len(host), 8))
    first, last = map(int, pathlib.Path("/proc/sys/net/ipv4/ip_local_port_range").read_text().split())
    number = int(port, 16)
    return f"{ipaddress.ip_address(packed)}:{'its own' if first <= number <= last else number}"


def doors(daemon):
    """The addresses by which others reach the daemon, in order. A port that the kernel has chosen is "its own"."""
    held = inodes(daemon)
    found = {}
    for table, is_open in (("tcp", LISTENS), ("tcp6", LISTENS), ("udp", UNCONNECTED), ("udp6", UNCONNECTED)):
        for _, local, _, state, *more in listed(daemon, table):
            found[more[5]] = f"{table} {in_words(local)}" if state == is_open else None
    for _, _, _, flags, kind, _, inode, *name in listed(daemon, "unix"):
        is_door = int(flags, 16) & ACCEPTS or (name and kind == DATAGRAMS)
        found[inode] = " ".join(["unix", *name]) if is_door else None
    held &= inodes(daemon)
    return sorted(filter(None, (found.get(inode, "a socket of another kind") for inode in held)))


def doors_when_up(server, daemon):
    """What it listens on once all its threads are at work."""
    server.wait_for_listeners()
    server.wait_for_sd_listener(daemon)
    return doors(daemon)


def test_each_row_of_the_document_is_tested():
    document = (ROOT / "docs/operations.md").read_text()
    section = re.search(r"^## Sockets\n(.*?)^## ", document, re.MULTILINE | re.DOTALL)[1]
    rows = re.findall(r"^\| (?!Where|---)(.*?) \|", section, re.MULTILINE)
    assert len(rows) == len(DOCUMENTED)
    assert [row for row, begin in zip(rows, DOCUMENTED) if not row.startswith(begin)] == []


def test_a_stand_alone_agent_listens_where_told(start):
    server = start(Server)
    more = free_port(socket.SOCK_STREAM)
    daemon = start(ServedDaemon, server, SPEED, options=["--listen", f"tcp:127.0.0.1:{more}"])
    assert doors_when_up(server, daemon) == [f"tcp 127.0.0.1:{more}", f"udp {daemon.address}", SD_SOCKET]


@pytest.mark.parametrize(("lines", "ports"), [
    (SINK, ["udp 0.0.0.0:its own"]),
    (f"{SINK}trapsess -v2c -c public 192.0.2.1\ninformsink udp6:[::1]:9 public\n",
     ["udp 0.0.0.0:its own", "udp 0.0.0.0:its own", "udp6 :::its own"]),
    (f"[snmp] clientaddr 127.0.0.5\n[snmp-subagentd]\n{SINK}", ["udp 127.0.0.5:its own"]),
    (SINK.replace("sink ", "sink tcp:"), []),
], ids=["one", "three", "clientaddr", "tcp"])
def test_each_udp_manager_gets_a_port_of_its_own(start, lines, ports):
    server = start(Server)
    daemon = start(ServedDaemon, server, SPEED, configuration=lines)
    assert doors_when_up(server, daemon) == sorted([f"udp {daemon.address}", *ports, SD_SOCKET])


@pytest.mark.parametrize(("options", "link"), [
    ([], CHASSIS_LINK), (["--chassis-listen", "127.0.0.1"], f"tcp 127.0.0.1:{PORT}"),
], ids=["everywhere", "one address"])
def test_a_chassis_block_opens_its_port(start, options, link):
    server = start(Server)
    daemon = start(LinkedDaemon, server, options=options, configuration=SINK)
    with client():
        ports = [link, "udp 0.0.0.0:its own", f"udp {daemon.address}"]
        assert doors_when_up(server, daemon) == [*ports, SD_SOCKET]


def test_lines_of_the_configuration_open_more(start):
    server = start(Server)
    first, second = free_port(), free_port(socket.SOCK_STREAM)
    daemon = start(ServedDaemon, server, SPEED, configuration=(
        f"agentAddress udp:127.0.0.1:{first}\nmaster agentx\nagentXSocket tcp:127.0.0.1:{second}\n"))
    ports = [f"tcp 127.0.0.1:{second}", f"udp 127.0.0.1:{first}", f"udp {daemon.address}"]
    assert doors_when_up(server, daemon) == sorted([*ports, SD_SOCKET])


def test_a_subagent_has_no_port(start):
    server = start(Server)
    master = start(Master, ROOT / "host/snmpd-master.conf")
    daemon = start(ServedDaemon, server, SPEED, master=master,
                   configuration=f"{SINK}agentAddress udp:127.0.0.1:{free_port()}\n")
    assert doors_when_up(server, daemon) == [SD_SOCKET]
