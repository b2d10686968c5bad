"""Links in the documents lead somewhere, and the paths and names that the documents mention exist."""

import pathlib
import re
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parent.parent
DOCUMENTS = sorted([*ROOT.glob("*.md"), *ROOT.glob("docs/*.md")])
LINK = re.compile(r"\]\(([^)#]*)(?:#([^)]*))?\)")
HEADING = re.compile(r"^#+ (.*)$", re.MULTILINE)
LISTING = re.compile(r"^ *```.*?^ *```$", re.MULTILINE | re.DOTALL)
# Text in backquotes that begins with a directory of the tree is a path. Capitals in it are placeholders.
PATH = re.compile(r"`(?:\./)?((?:core|sources|tables|refresh|threads|module|platform|host|simulator|bmcsim|service|"
                  r"hardware|mibs|man|scripts|tests|bench|fuzz|docs|cmake|contrib|debian|examples)/[\w./-]*)[^`]*`")

# Names of tables, columns, notifications and entry points, and the files that define them.
NAME = re.compile(r"(?<!/)\btavo[A-Z]\w*")
DEFINITIONS = [path for place in ("mibs/*-MIB", "tables/*/*.*", "threads/*", "module/exports.txt")
               for path in ROOT.glob(place)]

# The name of a system test or of a unit test, in a cell of a table.
TEST = re.compile(r"`(test_\w+|[A-Z][a-z]*(?:[A-Z]+[a-z\d]*){2,})`")
# The rows of the tables whose first column says when a promise counts.
PROMISES = re.compile(r"^\| When \|.*\n\|[-|]+\n((?:\|.*\n)+)", re.MULTILINE)
DEFINED_TEST = re.compile(r"^ *def (test_\w+)|^TEST(?:_F|_P)?\([^,]+, (\w+)\)", re.MULTILINE)

# Code in a recipe defines the names of its example.
CODE = re.compile(r"^ *```(?:cpp|diff|sh)\n.*?^ *```$", re.MULTILINE | re.DOTALL)
# A line of the list of varbinds, and the same list in the MIB.
VARBIND = re.compile(r"^\| \d+ \| (tavo\w+)", re.MULTILINE)
NOTIFICATION = re.compile(r"NOTIFICATION-TYPE\s+OBJECTS\s+{([^}]*)}")

# A column of a MIB module, and its description.
COLUMN = re.compile(r'^(tavo\w+) OBJECT-TYPE(?:(?!::=).)*?MAX-ACCESS\s+read-only(?:(?!::=).)*?DESCRIPTION\s+"([^"]*)"',
                    re.MULTILINE | re.DOTALL)


@pytest.fixture(scope="module")
def defined_names():
    return {name for path in DEFINITIONS for name in NAME.findall(path.read_text())}


def headings(document):
    """The headings of a document, as links name them."""
    return {re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-")
            for heading in HEADING.findall(LISTING.sub("", document.read_text()))}


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_links_lead_somewhere(document):
    for file, heading in LINK.findall(document.read_text()):
        if "://" not in file:
            target = document.parent / file if file else document
            assert target.exists(), file
            assert not heading or heading in headings(target), f"{file}#{heading}"


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_paths_exist(document):
    for path in PATH.findall(document.read_text()):
        if not re.search(r"(^|/)[A-Z]+(_|$|\.|/)", path):
            found = (ROOT / path).exists() or any(ROOT.glob(path + ".*")) or any(ROOT.glob(path.rstrip("/") + "*"))
            assert found, path


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_names_are_defined(document, defined_names):
    examples = {name for code in CODE.findall(document.read_text()) for name in NAME.findall(code)}
    assert set(NAME.findall(document.read_text())) <= defined_names | examples


def test_varbinds_are_those_of_the_mib():
    listed = VARBIND.findall((ROOT / "docs/notifications.md").read_text())
    notifications = NOTIFICATION.findall((ROOT / "mibs/TAVO-FAULT-MIB").read_text())
    assert [listed, listed] == [NAME.findall(objects) for objects in notifications]


def test_the_hardware_page_has_every_column():
    sections = dict(re.findall(r"^### (tavo\w+)Table\n(.*?)(?=^##)", (ROOT / "docs/hardware.md").read_text(),
                               re.MULTILINE | re.DOTALL))
    listed = {table + column for table, section in sections.items()
              for line in section.splitlines() if line.startswith("| `")
              for column in re.findall(r"`(\w+)`", " | ".join(line.split(" | ")[:2]))}
    named = {table + name for table in sections for name in ("Dn", "Rn")}
    columns = [column for path in ROOT.glob("mibs/TAVO-*-MIB") if path.name != "TAVO-SUBAGENT-MIB"
               for column in COLUMN.findall(path.read_text())]
    varying = {column for column, description in columns if not description.startswith("Constant")}
    assert [len(sections), len(columns)] == [20, 444]
    assert varying - listed - named == set()


def test_tests_of_each_promise_exist():
    defined = {name for pattern in ("tests/**/*_test.cpp", "tests/**/*.py") for path in ROOT.glob(pattern)
               for names in DEFINED_TEST.findall(path.read_text()) for name in names if name}
    rows = PROMISES.findall((ROOT / "docs/reliability.md").read_text())
    assert rows
    for row in "".join(rows).splitlines():
        held_by = row.split(" | ")[2]
        assert TEST.findall(held_by) or "`fuzz/`" in held_by, row
        assert set(TEST.findall(held_by)) <= defined, row


def test_lists_of_tables_are_up_to_date():
    check = subprocess.run([ROOT / "scripts/table-docs", "--check"], capture_output=True, text=True, check=False)
    assert check.returncode == 0, check.stdout + check.stderr


def test_documents_are_there():
    assert {"README.md", "CONTRIBUTING.md", "architecture.md", "recipes.md", "common-errors.md"} <= {
        document.name for document in DOCUMENTS}
