"""Managers that walk a daemon's tables again and again, beside what a test does."""

import re
import subprocess
import threading

from agents import environment


class Managers:
    """Eight managers that walk a subtree until stop(), each with a pause of `pause` seconds between its walks.

    Rows come and go during a walk, so values are counted but not compared. A walk is complete when it shows an object
    below the OID `last`. `failures` has the end of the output of each incomplete or failed walk.
    """

    count = 8

    def __init__(self, daemon, directory, subtree, last, pause=0):
        self.walks = 0
        self.values = 0
        self.failures = []
        self._last = f".{last}."
        self._pause = pause
        self._stopping = threading.Event()
        self._counting = threading.Lock()
        self._command = ["snmpbulkwalk", "-v2c", "-c", "public", "-On", "-t", "30", "-r", "0", "-Cr50", daemon.address,
                         subtree]
        self._environment = environment(directory)
        self._threads = [threading.Thread(target=self._walk) for _ in range(self.count)]
        for thread in self._threads:
            thread.start()

    def _walk(self):
        while True:
            result = subprocess.run(self._command, capture_output=True, text=True, errors="replace",
                                    env=self._environment)
            with self._counting:
                if result.returncode != 0 or result.stderr or self._last not in result.stdout:
                    self.failures.append(result.stdout[-300:] + result.stderr)
                self.walks += 1
                self.values += len(re.findall(r"^\.\d", result.stdout, re.MULTILINE))
            if self._stopping.wait(self._pause):
                return

    def stop(self):
        self._stopping.set()
        for thread in self._threads:
            thread.join()
