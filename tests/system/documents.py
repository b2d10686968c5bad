"""Recipes in the documents: blocks of code whose first line is a comment, their title."""

import re

from agents import ROOT


def recipe(document, title):
    """The lines below this title in the document."""
    text = (ROOT / "docs" / document).read_text()
    return re.search(rf"^```\w*\n# {re.escape(title)}\n(.*?)^```$", text, re.MULTILINE | re.DOTALL)[1]


def titles(document):
    return re.findall(r"^```\w*\n# (.*)$", (ROOT / "docs" / document).read_text(), re.MULTILINE)
