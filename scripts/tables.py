"""The module's tables, as the build describes them. TAVO_BUILD_DIR names the build tree (default: build/release)."""

import json
import os
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
BUILD = ROOT / os.environ.get("TAVO_BUILD_DIR", "build/release")


def described_tables():
    """What module/describe_tables.cpp writes of each table, in the order of start-up."""
    try:
        return json.loads((BUILD / "tables.json").read_text())["tables"]
    except FileNotFoundError:
        sys.exit(f"{BUILD}/tables.json is missing: build first (scripts/build release snmpextmibmodule)")
