"""Includes point downwards: the tree is clean, and an include that points upwards would be found."""

import pathlib
import re

import pytest

ROOT = pathlib.Path(__file__).resolve().parent.parent

# What each directory may include, itself always. core/module is the roof: it alone in core/ sees what stands above.
BELOW = {
    "core": set(),
    "platform": set(),
    "storage": {"core", "platform"},
    "tables": {"core", "storage", "platform"},
    "threads": {"core", "storage", "platform", "tables"},
    "host": {"core", "platform"},
    "simulator": {"core", "platform"},
}
ROOF = {"core/module.h", "core/module.cpp"}
ABOVE_THE_ROOF = {"host"}
ROOF_SEES = {"core", "storage", "platform", "tables", "threads"}

INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.MULTILINE)


def violations(root):
    """One line for each include that points upwards or does not start at the root of the tree."""
    found = []
    for directory, below in BELOW.items():
        for path in sorted((root / directory).rglob("*")):
            if path.suffix not in {".h", ".cpp", ".c"}:
                continue
            name = path.relative_to(root).as_posix()
            allowed = ROOF_SEES if name in ROOF else below | {directory}
            for included in INCLUDE.findall(path.read_text()):
                layer = included.split("/")[0]
                if "/" not in included or layer not in BELOW:
                    found.append(f'{name}: "{included}" is not a path from the root of the tree')
                elif layer not in allowed:
                    found.append(f"{name} includes {included}: {directory}/ stands below {layer}/")
                elif included in ROOF and name not in ROOF and directory not in ABOVE_THE_ROOF:
                    found.append(f"{name} includes {included}, the roof")
    return found


def test_no_include_points_upwards():
    assert sum(len(list((ROOT / directory).glob("*.h"))) for directory in BELOW) > 0
    assert violations(ROOT) == []


@pytest.mark.parametrize(
    "file, included",
    [
        ("core/table.h", "tables/tavoProcessorUnitTable.h"),
        ("core/table.cpp", "platform/inventory.h"),
        ("core/table.cpp", "core/module.h"),
        ("platform/fru.h", "core/record.h"),
        ("storage/stor_info.cpp", "tables/tavoStorageControllerTable.h"),
        ("tables/tavoFaultTable.cpp", "threads/event_thread.h"),
        ("tables/tavoFaultTable.cpp", "core/module.h"),
        ("threads/event_thread.cpp", "host/options.h"),
        ("threads/event_thread.cpp", "simulator/part.h"),
        ("core/module.cpp", "host/options.h"),
        ("host/main.cpp", "simulator/part.h"),
        ("simulator/part.cpp", "tables/tavoFaultTable.h"),
        ("core/deeper/table.h", "threads/event_thread.h"),
        ("tables/tavoFaultTable.cpp", "tavoFaultTable.h"),
        ("tables/tavoFaultTable.cpp", "../core/table.h"),
    ],
)
def test_an_include_that_points_upwards_is_found(tmp_path, file, included):
    path = tmp_path / file
    path.parent.mkdir(parents=True)
    path.write_text(f'#include <vector>\n  #  include "{included}"\n')
    assert len(violations(tmp_path)) == 1


@pytest.mark.parametrize(
    "file, included",
    [
        ("tables/tavoFaultTable.cpp", "core/table.h"),
        ("tables/tavoFaultTable.cpp", "tables/tavoEquipmentFanTable.h"),
        ("threads/event_thread.cpp", "tables/tavoFaultTable.h"),
        ("core/module.cpp", "threads/event_thread.h"),
        ("host/main.cpp", "core/module.h"),
        ("simulator/part.cpp", "platform/inventory.h"),
    ],
)
def test_an_include_that_points_downwards_is_allowed(tmp_path, file, included):
    path = tmp_path / file
    path.parent.mkdir(parents=True)
    path.write_text(f'#include "{included}"\n')
    assert violations(tmp_path) == []
