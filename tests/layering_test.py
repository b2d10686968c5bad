"""Includes point downwards: the tree is clean, and an include that points upwards would be found."""

import pathlib
import re

import pytest

ROOT = pathlib.Path(__file__).resolve().parent.parent

# What each directory may include, itself always.
BELOW = {
    "core": set(),
    "platform": set(),
    "sources": {"core", "platform"},
    "tables": {"core", "sources", "platform"},
    "refresh": {"core", "sources", "platform", "tables"},
    "threads": {"core", "sources", "platform", "tables", "refresh"},
    "module": {"core", "sources", "platform", "tables", "refresh", "threads"},
    "host": {"core", "platform", "threads", "module"},
    "service": {"core", "platform"},
    "simulator": {"core", "platform", "service"},
    "hardware": {"core", "platform", "service"},
    "bmcsim": {"core", "platform", "service", "simulator", "hardware"},
    "fuzz": {"core", "platform", "sources", "tables", "refresh", "threads", "host", "service", "simulator",
             "hardware"},
}

INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.MULTILINE)


def violations(root):
    """One line for each include that points upwards or does not start at the root of the tree."""
    found = []
    for directory, below in BELOW.items():
        for path in sorted((root / directory).rglob("*")):
            if path.suffix not in {".h", ".cpp", ".c"}:
                continue
            name = path.relative_to(root).as_posix()
            allowed = below | {directory}
            for included in INCLUDE.findall(path.read_text()):
                layer = included.split("/")[0]
                if "/" not in included or layer not in BELOW:
                    found.append(f'{name}: "{included}" is not a path from the root of the tree')
                elif layer not in allowed:
                    found.append(f"{name} includes {included}: {directory}/ stands below {layer}/")
    return found


def test_no_include_points_upwards():
    assert sum(len(list((ROOT / directory).glob("*.h"))) for directory in BELOW) > 0
    assert violations(ROOT) == []


@pytest.mark.parametrize(
    "file, included",
    [
        ("core/table.h", "tables/processors/tavoProcessorUnitTable.h"),
        ("core/table.cpp", "platform/inventory.h"),
        ("core/table.cpp", "module/start_up.h"),
        ("platform/fru.h", "core/record.h"),
        ("sources/stor_info.cpp", "tables/storage/tavoStorageControllerTable.h"),
        ("tables/faults/tavoFaultTable.cpp", "refresh/refresh_pass.h"),
        ("tables/faults/tavoFaultTable.cpp", "threads/event_thread.h"),
        ("refresh/refresh_pass.cpp", "threads/inventory_thread.h"),
        ("threads/event_thread.cpp", "module/start_up.h"),
        ("threads/event_thread.cpp", "host/options.h"),
        ("threads/event_thread.cpp", "service/part.h"),
        ("module/start_up.cpp", "host/options.h"),
        ("host/main.cpp", "service/part.h"),
        ("service/part.cpp", "tables/faults/tavoFaultTable.h"),
        ("service/machine.cpp", "simulator/drift.h"),
        ("hardware/hardware.cpp", "simulator/scenario.h"),
        ("simulator/drift.cpp", "hardware/source.h"),
        ("host/options.cpp", "fuzz/harness/door.h"),
        ("core/deeper/table.h", "threads/event_thread.h"),
        ("tables/faults/tavoFaultTable.cpp", "tavoFaultTable.h"),
        ("tables/faults/tavoFaultTable.cpp", "../../core/table.h"),
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
        ("tables/faults/tavoFaultTable.cpp", "core/table.h"),
        ("tables/faults/tavoFaultTable.cpp", "tables/equipment/tavoEquipmentFanTable.h"),
        ("threads/event_thread.cpp", "tables/faults/tavoFaultTable.h"),
        ("module/start_up.cpp", "threads/event_thread.h"),
        ("host/main.cpp", "module/start_up.h"),
        ("service/part.cpp", "platform/inventory.h"),
        ("simulator/drift.cpp", "service/machine.h"),
        ("bmcsim/main.cpp", "simulator/scenario.h"),
        ("fuzz/module/dumps.cpp", "sources/dump.h"),
    ],
)
def test_an_include_that_points_downwards_is_allowed(tmp_path, file, included):
    path = tmp_path / file
    path.parent.mkdir(parents=True)
    path.write_text(f'#include "{included}"\n')
    assert violations(tmp_path) == []
