"""The example of a platform library: it builds from what is installed, and the daemon serves what it answers."""

import os
import re
import shutil
import subprocess

import pytest

from agents import BUILD, ROOT, snmp, wait_until
from datagrams import Collector, varbinds
from oids import FAULT_TABLE, PROCESSOR_TABLE, RAISED
from server import PLATFORM, ServedDaemon, Server

EXAMPLE = ROOT / "examples/platform"
HOTTEST = "Processor 2 is too hot"
FAULT_NUMBER = 7


@pytest.fixture
def example(directory):
    """The example, copied and built with the headers of an installation."""
    root = directory / "image"
    subprocess.run(["cmake", "--install", BUILD, "--component", "module"], check=True, capture_output=True,
                   env={**os.environ, "DESTDIR": str(root)})
    copy = directory / "platform"
    shutil.copytree(EXAMPLE, copy)
    configuration = next(root.rglob("snmpextmibmodule.pc"))
    subprocess.run(["make", "-C", copy, "CFLAGS=-O2 -Wall -Wextra -Wpedantic -Werror"], check=True, capture_output=True,
                   env={**os.environ, "PKG_CONFIG_SYSROOT_DIR": str(root), "PKG_CONFIG_PATH": str(configuration.parent)})
    return copy


@pytest.fixture
def collector():
    collector = Collector()
    yield collector
    collector.stop()


def symbols(file, *options):
    """{name: letter} as nm prints them."""
    lines = subprocess.run(["nm", *options, file], capture_output=True, text=True, check=True).stdout.splitlines()
    return {line.split()[-1]: line.split()[-2] for line in lines}


def column(daemon, table, number):
    """The values of a column, as texts."""
    lines = snmp("snmpwalk", daemon.address, f"{table}.1.{number}", timeout=30)
    return [re.sub(r'^.* = [\w-]+: "?(.*?)"?$', r"\1", line) for line in lines]


def test_daemon_serves_the_example(start, directory, example, collector):
    server = start(Server)
    # The board's FRU, which this platform lacks, is waited for.
    daemon = start(ServedDaemon, server, speed=20, platforms=[example / "libexampleplatform.so"],
                   configuration=f"trap2sink {collector.destination} public\n")
    assert column(daemon, PROCESSOR_TABLE, 3) == ["cpu-1", "cpu-2"]
    assert column(daemon, PROCESSOR_TABLE, 8) == ["Example processor"] * 2
    assert column(daemon, PROCESSOR_TABLE, 15) == ["SN-0001", "SN-0002"]

    wait_until(lambda: collector.datagrams, what="the notification")
    sent = varbinds(collector.datagrams[0])
    assert sent["1.3.6.1.6.3.1.1.4.1.0"] == RAISED
    assert sent[f"{FAULT_TABLE}.1.11.{FAULT_NUMBER}"] == HOTTEST.encode()
    wait_until(lambda: column(daemon, FAULT_TABLE, 11) == [HOTTEST], what="the fault's row")
    assert len(collector.datagrams) == 1


def test_stubs_are_weak_and_leave_nothing_out(example):
    platform = {name for name, letter in symbols(PLATFORM, "--dynamic", "--defined-only").items() if letter == "T"}
    assert {name for name, letter in symbols(example / "absent.o").items() if letter == "W"} == platform
    assert set(symbols(example / "libexampleplatform.so", "--dynamic", "--defined-only")) == platform
