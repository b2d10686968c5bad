"""The manual pages are sound, and agree with --help and the documents about options, defaults, statuses and files.

TAVO_BUILD_DIR: the build tree.
"""

import os
import pathlib
import re
import shutil
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = pathlib.Path(os.environ["TAVO_BUILD_DIR"])
PAGES = sorted((ROOT / "man").iterdir())
# An option in a page, and at the beginning of a line of --help.
ITEM = re.compile(r"^\.It (Fl .*)$", re.MULTILINE)
FLAG = re.compile(r"Fl (-?[\w-]+)")
HELP_LINE = re.compile(r"^  (--?[\w-]+(?:,--[\w-]+)?)( .*)?$", re.MULTILINE)
# A row of a document's table of options.
ROW = re.compile(r"^\| (`-.*?) \|(.*)$", re.MULTILINE)
OPTION = re.compile(r"`(--?[A-Za-z][\w-]*)")
HELP = {"-h", "--help"}


def document(name):
    return (ROOT / "docs" / name).read_text()


def section(text, begin, end):
    """What stands between the line `begin` and the next one that starts with `end`."""
    return re.search(rf"^{re.escape(begin)}$\n(.*?)(?=^{re.escape(end)}|\Z)", text, re.MULTILINE | re.DOTALL)[1]


def page(name):
    return (ROOT / "man" / name).read_text()


def options_of_page(text):
    """For each option, what the page says about it."""
    items = ITEM.split(text)
    return {"-" + flag: re.split(r"^\.El$", body, maxsplit=1, flags=re.MULTILINE)[0]
            for item, body in zip(items[1::2], items[2::2]) for flag in FLAG.findall(item)}


def options_of_help(*command):
    """For each option, its line of --help."""
    text = subprocess.run([BUILD / command[0], *command[1:], "--help"], capture_output=True, text=True,
                          check=True).stdout
    return {name: line or "" for names, line in HELP_LINE.findall(text) for name in names.split(",")}


def options_of_document(text):
    """For each option, its row."""
    return {name: row for names, row in ROW.findall(text) for name in OPTION.findall(names)}


def statuses_of_page(text):
    return re.findall(r"^\.It (\d)$", section(text, ".Sh EXIT STATUS", ".Sh"), re.MULTILINE)


def statuses_of_document(text):
    return re.findall(r"^\| (\d) \|", text, re.MULTILINE)


@pytest.mark.parametrize("path", PAGES, ids=lambda path: path.name)
def test_page_is_sound(path):
    if not shutil.which("mandoc"):
        pytest.skip("mandoc is not installed")
    lint = subprocess.run(["mandoc", "-T", "lint", path], capture_output=True, text=True, check=False)
    # What other manuals this machine has is no matter.
    other_manuals = ("referenced manual not found", "outdated mandoc.db")
    assert [line for line in (lint.stdout + lint.stderr).splitlines()
            if not any(complaint in line for complaint in other_manuals)] == []


@pytest.mark.parametrize("path", PAGES, ids=lambda path: path.name)
def test_page_bears_its_name(path):
    name, section_number = path.name.rsplit(".", 1)
    text = path.read_text()
    assert f".Dt {name.upper()} {section_number}\n" in text
    assert f".Sh NAME\n.Nm {name}\n" in text


@pytest.mark.parametrize("path", PAGES, ids=lambda path: path.name)
def test_references_to_our_own_pages_lead_somewhere(path):
    ours = {tuple(other.name.rsplit(".", 1)) for other in PAGES}
    references = set(re.findall(r"^\.Xr (\S+) (\d)", path.read_text(), re.MULTILINE))
    elsewhere = {("snmpd", "8"), ("snmpd.conf", "5"), ("snmp.conf", "5")}
    assert references & ours
    assert references <= ours | elsewhere


class TestDaemon:
    def test_options_are_those_of_its_help(self):
        documented = options_of_document(section(document("daemon.md"), "## Options", "## "))
        helped = options_of_help("snmp-subagentd")
        assert {"-f", "--listen", "-h", "--help"} <= set(helped)
        assert set(options_of_page(page("snmp-subagentd.8"))) == set(helped)
        assert set(documented) == set(helped)

    def test_defaults_are_those_of_its_help(self):
        documented = options_of_document(section(document("daemon.md"), "## Options", "## "))
        described = options_of_page(page("snmp-subagentd.8"))
        defaults = {name: match[1] for name, line in options_of_help("snmp-subagentd").items()
                    if (match := re.search(r"=(\S+)", line))}
        assert len(defaults) == 6
        for name, default in defaults.items():
            words = rf"(?<![\w.]){re.escape(default)}(?!\w)"
            assert re.search(words, described[name]), name
            assert re.search(words, documented[name]), name

    def test_exit_statuses_are_those_of_its_help(self):
        help_text = subprocess.run([BUILD / "snmp-subagentd", "-h"], capture_output=True, text=True, check=True).stdout
        statuses = re.findall(r"\b(\d) ", help_text[help_text.index("Exit status:"):])
        assert len(statuses) == 8
        assert statuses_of_page(page("snmp-subagentd.8")) == statuses
        assert statuses_of_document(section(document("daemon.md"), "## Exit status", "## ")) == statuses


class TestSimulator:
    def test_options_are_those_of_its_help(self):
        text = page("bmcsim.1")
        serve = section(text, ".Cm serve\nare:", ".El")
        control = section(text, ".Cm ctl\nare:", ".El")
        assert "--socket" in options_of_help("bmcsim", "serve")
        assert set(options_of_page(serve)) | HELP == set(options_of_help("bmcsim", "serve"))
        assert set(options_of_page(control)) | HELP == set(options_of_help("bmcsim", "ctl"))
        record = section(text, ".Cm record\nare:", ".El")
        assert set(options_of_page(record)) | HELP == set(options_of_help("bmcsim", "record"))

    def test_sources_of_poll_are_the_programs(self):
        refusal = subprocess.run([BUILD / "bmcsim", "serve", "--hardware", "--poll", "none=1"], capture_output=True,
                                 text=True, check=False).stderr
        sources = refusal.strip().partition("expected one of ")[2].split(", ")
        assert len(sources) > 5
        help_text = subprocess.run([BUILD / "bmcsim", "serve", "--help"], capture_output=True, text=True,
                                   check=True).stdout
        assert help_text.strip().partition("Sources of --poll: ")[2].split(", ") == sources
        described = options_of_page(page("bmcsim.1"))["--poll"]
        assert re.findall(r"^\.Cm (\S+)", described, re.MULTILINE) == sources
        documented = re.search(r"The sources are (.*?);", document("hardware.md"), re.DOTALL)[1]
        assert re.findall(r"`(\S+)`", documented) == sources

    def test_files_named_in_its_help_are_in_the_page(self):
        defaults = [match[1] for line in options_of_help("bmcsim", "serve").values()
                    if (match := re.search(r"=(/\S+)", line))]
        assert "/var/lib/bmcsim/register.json" in defaults
        files = re.findall(r"^\.It Pa (.*)$", section(page("bmcsim.1"), ".Sh FILES", ".Sh"), re.MULTILINE)
        assert {path for path in defaults if path != "/var"} <= set(files)

    def test_documented_options_are_those_of_its_help(self):
        table = section(document("simulator.md"), "| Option of `serve` | Default | |", "**Start")
        assert set(options_of_document(table)) | HELP == set(options_of_help("bmcsim", "serve"))

    def test_exit_statuses_are_the_documented_ones(self):
        documented = section(document("simulator.md"), "**Exit statuses** of `bmcsim`:", "The query tools")
        assert len(statuses_of_document(documented)) == 3
        assert statuses_of_page(page("bmcsim.1")) == statuses_of_document(documented)


def test_files_of_the_module_are_the_documented_ones():
    rows = re.findall(r"^\| (`/.*?) \|", section(document("operations.md"), "## Files", "## "), re.MULTILINE)
    documented = {path for row in rows for path in re.findall(r"`(/[^`]+)`", row)}
    # The daemon's own file is in its own page.
    documented.remove("/var/lib/snmp-subagentd/snmp-subagentd.conf")
    items = re.findall(r"^\.It Pa (.*)$", page("libsnmpextmibmodule.7"), re.MULTILINE)
    named = {path for item in items for path in item.split(" , ")} - {"/tmp/snmp_velt_sock"}
    assert len(documented) > 10
    assert named == documented
