"""Debian's Chromium without a window, driven through its WebDriver."""

import base64
import json
import shutil
import socket
import urllib.request

import pytest

from agents import Program, free_port, wait_until

# Without a display, as any user, and without looking for updates.
SWITCHES = ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--hide-scrollbars",
            "--disable-background-networking", "--disable-component-update", "--disable-sync"]


class Browser(Program):
    """A browser with one page. `width` and `height` are in CSS pixels."""

    def __init__(self, directory):
        for program, package in {"chromedriver": "chromium-driver", "chromium": "chromium"}.items():
            if shutil.which(program) is None:
                pytest.skip(f"{program} is missing (Debian package {package})")
        self._address = f"http://127.0.0.1:{free_port(socket.SOCK_STREAM)}"
        self._session = ""
        super().__init__(directory, "chromedriver", ["chromedriver", f"--port={self._address.rpartition(':')[2]}"])
        self.wait_for_log("was started successfully")
        options = {"args": [*SWITCHES, f"--user-data-dir={directory}/browser"]}
        created = self._call("POST", "/session", capabilities={"alwaysMatch": {
            "goog:chromeOptions": options, "goog:loggingPrefs": {"browser": "ALL"}}})
        self._session = f"/session/{created['sessionId']}"

    def _call(self, method, path, **body):
        request = urllib.request.Request(self._address + self._session + path, method=method,
                                         data=json.dumps(body).encode() if method == "POST" else None)
        with urllib.request.urlopen(request, timeout=60) as reply:
            return json.load(reply)["value"]

    def _devtools(self, command, **parameters):
        return self._call("POST", "/goog/cdp/execute", cmd=command, params=parameters)

    def show(self, width, height, scale=1, dark=False):
        """Sets the size of the screen and its colours, for what is opened from now on."""
        self._devtools("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=scale,
                       mobile=width < 600)
        self._devtools("Emulation.setEmulatedMedia",
                       features=[{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])

    def open(self, address):
        """Opens a page, and waits until its script has drawn."""
        self._call("POST", "/url", url=address)
        wait_until(lambda: self.run("return document.body.dataset.drawn"), what=f"the script of {address}")

    def run(self, script):
        return self._call("POST", "/execute/sync", script=script, args=[])

    def texts(self, selector):
        """What is to be read in each element that the CSS selector finds"""
        return self.run(f"return [...document.querySelectorAll({json.dumps(selector)})].map(found => found.innerText)")

    def complaints(self):
        """What the console says since the last call."""
        return [entry["message"] for entry in self._call("POST", "/se/log", type="browser")]

    def screenshot(self, file):
        file.write_bytes(base64.b64decode(self._call("GET", "/screenshot")))

    def stop(self):
        self._call("DELETE", "")
        return super().stop()
