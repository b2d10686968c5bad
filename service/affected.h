// What a fault says about the part that it affects: the names that the module's tables give to the part's row.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "service/inventory.h"

namespace tavo::service {

// A part that has no row at the time, such as a memory module that was pulled, keeps the name of its place. Its object
// identifier is then that of what it belongs to: the board or the server.
struct AffectedObject {
  std::string dn;   // distinguished name
  std::string oid;  // of the row's column with that name
};

// The column with the name, in each table: group, table, entry, column.
namespace dn_column {
inline constexpr std::string_view adapter = "3.85.1.2";
inline constexpr std::string_view board = "9.6.1.2";
inline constexpr std::string_view server = "9.35.1.2";
inline constexpr std::string_view fan = "15.12.1.2";
inline constexpr std::string_view supply = "15.56.1.2";
inline constexpr std::string_view dimm = "30.11.1.2";
inline constexpr std::string_view processor = "41.9.1.2";
inline constexpr std::string_view drive = "45.4.1.2";
inline constexpr std::string_view volume = "45.8.1.2";
inline constexpr std::string_view raid_battery = "45.11.1.2";
}  // namespace dn_column

// The object identifier of such a column in a row of its table.
std::string dn_oid(std::string_view column, std::int64_t row);

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

AffectedObject affected_server();
AffectedObject affected_processor(const Inventory &inventory, std::size_t position);
AffectedObject affected_dimm(const Inventory &inventory, std::size_t position);
AffectedObject affected_supply(std::size_t position);
AffectedObject affected_adapter(const Part &adapter);
AffectedObject affected_fan(const Inventory &inventory, const Part &sensor);

// Names the part that the fault's class and unit stand for, or the server if there is no such part. What the fault
// names already stays.
void name_affected(Part &fault, const Inventory &inventory);

}  // namespace tavo::service
