// What a fault says about the part that it affects: the names that the module's tables give to the part's row.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "service/inventory.h"

namespace tavo::service {

// A part that has no row at the time, such as a memory module that was pulled, keeps the name of its place. Its object
// identifier is then that of what it belongs to: the board or the server.
struct AffectedObject {
  std::string dn;   // distinguished name
  std::string oid;  // of the row's column with that name
};

// Which row a part has in its table, from 1: tables list only what is present. `position` counts from 0.
std::size_t row_of(const std::vector<Part> &parts, std::size_t position);

// The number by which the memory tables know a module: its own or, if it has none, its row.
std::int64_t dimm_number(const std::vector<Part> &dimms, std::size_t position);

// Whether a sensor is a fan's, and whether it belongs to a power supply.
bool is_fan(const Part &sensor);
bool is_in_supply(const Part &sensor);

// The number by which a fan's faults know it. The module keeps the severities of tachometers by fan module and fan, and
// those of all other fans by their entity instance.
std::int64_t fan_number(const Part &sensor);

AffectedObject affected_processor(const Inventory &inventory, std::size_t position);
AffectedObject affected_dimm(const Inventory &inventory, std::size_t position);
AffectedObject affected_supply(std::size_t position);
AffectedObject affected_adapter(const Part &adapter);
AffectedObject affected_fan(const Inventory &inventory, const Part &sensor);

// Names the part that the fault's class and unit stand for, or the server if there is no such part. What the fault
// names already stays.
void name_affected(Part &fault, const Inventory &inventory);

}  // namespace tavo::service
