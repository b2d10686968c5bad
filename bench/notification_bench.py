#!/usr/bin/python3
"""notification_bench.py [RECORDS]: how fast a fault becomes a notification, with the real daemon on a simulated server.

Rate: a storm of records (default 100,000) over 1,000 indexes, from the first record to the last datagram. Measured once
without other requests and once while eight managers walk the fault table. Delay: 2,000 single changes, each from the
moment the fault engine gets it until the manager receives its datagram.
"""

import os
import pathlib
import shutil
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time
from concurrent.futures import ThreadPoolExecutor

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tests/system"))

from agents import environment, wait_until  # noqa: E402
from datagrams import Collector  # noqa: E402
from engine import Engine  # noqa: E402
from oids import FAULT_TABLE  # noqa: E402
from server import ServedDaemon, Server  # noqa: E402

CHANGES = 2000


def measure_times(engine, manager):
    times = []
    for number in range(CHANGES):
        words = ("fault", "clear", "7") if number % 2 else ("fault", "raise", "7", "class=processor")
        begin = time.monotonic()
        engine.tell(*words)
        manager.recv(65536)
        times.append(1e6 * (time.monotonic() - begin))
        engine.wait_for_reply()
    times.sort()
    print(f"one change: median {statistics.median(times):.0f} us, "
          f"99 of 100 within {times[CHANGES * 99 // 100]:.0f} us, longest {times[-1]:.0f} us")


def measure_rate(server, daemon, collector, records, managers, directory):
    stopping = threading.Event()
    command = ["snmpbulkwalk", "-v2c", "-c", "public", "-t", "30", "-Cr50", daemon.address, FAULT_TABLE]

    def walk():
        walks = 0
        while not stopping.is_set():
            subprocess.run(command, stdout=subprocess.DEVNULL, env=environment(directory), check=True)
            walks += 1
        return walks

    with ThreadPoolExecutor(max(managers, 1)) as pool:
        walkers = [pool.submit(walk) for _ in range(managers)]
        try:
            before = len(collector.datagrams)
            begin = time.monotonic()
            server.ctl("fault", "storm", str(records), "1000")
            wait_until(lambda: len(collector.datagrams) >= before + records, 600, "every notification")
            seconds = collector.times[before + records - 1] - begin
        finally:
            stopping.set()
    walks = sum(walker.result() for walker in walkers)  # raises if a walk failed
    rate = f"{records} notifications in {seconds:.2f} s, {records / seconds:.0f} a second"
    print(f"storm with {managers} managers walking: {rate}" + (f"; {walks} walks" if managers else ""))


def main():
    records = int(sys.argv[1]) if len(sys.argv) > 1 else 100_000
    directory = pathlib.Path(tempfile.mkdtemp(prefix="tavo-"))
    os.environ["BMCSIM_SOCKET"] = str(directory / "bmcsim")
    manager = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    manager.bind(("127.0.0.1", 0))
    running = []
    try:
        server = Server(directory)
        running.append(server)
        destination = f"127.0.0.1:{manager.getsockname()[1]}"
        daemon = ServedDaemon(directory, server, configuration=f"trap2sink {destination} public\n")
        running.append(daemon)
        daemon.wait_for_log("Total Fault entries:4")
        measure_times(Engine(os.environ["BMCSIM_SOCKET"]), manager)
        running.pop().stop()

        collector = Collector()
        running.append(collector)
        daemon = ServedDaemon(directory, server, configuration=f"trap2sink {collector.destination} public\n")
        running.append(daemon)
        daemon.wait_for_log("Total Fault entries:4")
        for managers in (0, 8):
            measure_rate(server, daemon, collector, records, managers, directory)
    finally:
        for program in reversed(running):
            program.stop()
        shutil.rmtree(directory, ignore_errors=True)


if __name__ == "__main__":
    main()
