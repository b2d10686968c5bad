"""The page of ./run.sh --monitor in a browser: it draws, updates itself, fits a phone, and complains of nothing.

It takes a minute, and needs Chromium, so it runs only if TAVO_BROWSER is set, as ./test.sh --long does. With
TAVO_SCREENSHOTS=DIRECTORY it waits for some minutes of data and puts the pictures of docs/monitoring.md there.
"""

import os
import pathlib

import pytest
import yaml

from agents import wait_until
from browser import Browser
from monitored import Monitored
from server import SCENARIO

SCREENSHOTS = os.environ.get("TAVO_SCREENSHOTS")
MINUTES = 6  # of data, in the pictures
DESKTOP = (1280, 940)
PHONE = (390, 844)
# Faults of the second server, and what is wrong with its parts.
BREAK = ["fan fail FAN2_TACH1", "dimm fail DIMM_D1", "supply fail 2", "volume degrade 4 2",
         "fault raise 4711 class=209 severity=warning affected=sys/rack-unit-1/board/storage-SAS-SLOT-4/pd-2 "
         "'description=Drive 2 of the controller in slot 4 is about to fail'"]

pytestmark = pytest.mark.skipif(not os.environ.get("TAVO_BROWSER") and not SCREENSHOTS,
                                reason="it takes a minute and a browser: set TAVO_BROWSER, or run ./test.sh --long")


@pytest.fixture
def monitored(directory):
    """Three servers that are well."""
    scenario = yaml.safe_load(SCENARIO.read_text())
    scenario["faults"] = []
    for part in [*scenario["dimms"], *scenario["adapters"], *scenario["raid-controllers"]]:
        for wrong in ("status", "over-temperature", "faulty"):
            part.pop(wrong, None)
    for controller in scenario["raid-controllers"]:
        for part in [*controller["drives"], *controller["volumes"]]:
            if part.get("state") != "none":
                part.pop("state", None)
    for led in scenario["leds"]:
        led.update(color="GREEN", state="ON")
    healthy = directory / "healthy.yaml"
    healthy.write_text(yaml.safe_dump(scenario))
    servers = Monitored("--fleet", "3", "--scenario", str(healthy), count=3)
    yield servers
    servers.stop()


def address(monitored, number=None):
    page = f"http://{monitored.prometheus}/consoles/tavo.html"
    return page if number is None else f"{page}?instance={monitored.address(number)}&range=15m"


def keep(browser, name):
    if SCREENSHOTS:
        browser.screenshot(pathlib.Path(SCREENSHOTS, f"page-{name}.png"))


def assert_drawn_and_in_place(browser, width):
    assert browser.complaints() == []
    assert browser.run("return document.documentElement.scrollWidth") <= width
    hosts = browser.run("return performance.getEntriesByType('resource').map(entry => new URL(entry.name).host)")
    assert set(hosts) <= {browser.run("return location.host")}


def test_the_page_in_a_browser(monitored, start):
    browser = start(Browser)
    browser.show(*DESKTOP)
    if SCREENSHOTS:
        wait_until(lambda: monitored.query("count_over_time(up[1h]) > %d" % (MINUTES * 12)), 600, "data for a picture")

    # A healthy server.
    browser.open(address(monitored, 0))
    assert browser.texts(".state-of-all h2") == ["Healthy"]
    assert browser.texts(".state-of-all p") == ["No active faults."]
    wait_until(lambda: browser.run("return document.querySelectorAll('.plot path').length") == 6, what="six lines")
    assert len(browser.texts(".history li")) == 15
    wait_until(lambda: browser.run("return document.querySelectorAll('.strip .good').length") >= 15, what="the strips")
    assert_drawn_and_in_place(browser, DESKTOP[0])
    keep(browser, "healthy")

    # Faults come up without a click; an opened part of the page stays open.
    browser.open(address(monitored, 1))
    browser.run("document.querySelector('details').open = true")
    for command in BREAK:
        monitored.ctl(command, number=1)
    wait_until(lambda: browser.texts(".state-of-all h2") == ["4 active faults"], what="the faults")
    assert browser.run("return document.querySelector('details').open")
    wait_until(lambda: "Fan module 2, fan 1\nfaulty" in browser.texts("#tavoEquipmentFan li"), what="the fan")
    wait_until(lambda: browser.run("return document.querySelectorAll('.strip .bad').length"), what="the fan's strip")
    wait_until(lambda: browser.texts("#tavoStorageLocalLun .state.warn") == ["degraded"], what="the volume")
    browser.run("document.querySelector('details').open = false")
    assert_drawn_and_in_place(browser, DESKTOP[0])
    keep(browser, "faults")

    # The legend follows the pointer.
    latest = browser.texts("#power .legend")
    browser.run("const svg = document.querySelector('#power svg'), box = svg.getBoundingClientRect();"
                "svg.dispatchEvent(new PointerEvent('pointermove', {clientX: box.left + 60}))")
    assert browser.texts("#power .when")[0].count(":") == 2
    browser.run("document.querySelector('#power svg').dispatchEvent(new PointerEvent('pointerleave'))")
    assert browser.texts("#power .legend") == latest

    # All servers, the worst first.
    browser.open(address(monitored))
    assert [text.split()[0] for text in browser.texts(".fleet tbody tr")] == ["server-002", "server-001", "server-003"]
    assert browser.texts(".summary li") == ["1 with faults", "2 healthy"]
    assert_drawn_and_in_place(browser, DESKTOP[0])
    keep(browser, "servers")

    # A phone, and the dark.
    for name, dark in {"phone": False, "phone-dark": True}.items():
        browser.show(*PHONE, scale=2, dark=dark)
        for number in (None, 1):
            browser.open(address(monitored, number))
            assert_drawn_and_in_place(browser, PHONE[0])
        background = browser.run("return getComputedStyle(document.body).backgroundColor.match(/\\d+/)[0]")
        assert (int(background) < 64) == dark
        if not dark:
            keep(browser, name)
