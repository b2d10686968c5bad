// The query tool's dumps: searches, and every table that is built from a dump. The first octet chooses the table.
#include <array>
#include <string>
#include <string_view>

#include "fuzz/harness/platform.h"
#include "fuzz/harness/tables.h"
#include "sources/dump.h"
#include "tables/compute/tavoComputeMbPowerStatsTable.h"
#include "tables/compute/tavoComputeRackUnitMbTempStatsTable.h"
#include "tables/compute/tavoComputeRackUnitTable.h"
#include "tables/equipment/tavoEquipmentHealthLedTable.h"
#include "tables/equipment/tavoEquipmentPsuTable.h"
#include "tables/memory/tavoMemoryUnitEnvStatsTable.h"
#include "tables/processors/tavoProcessorEnvStatsTable.h"

namespace tavo::fuzz {
namespace {

// A table, and the file of the dump that it reads.
struct DumpTable {
  Table *table;
  const char *path;
};

const auto dump_tables = std::to_array<DumpTable>({
    {&tavoMemoryUnitEnvStatsTable_table, "/var/memoryStatsInventory"},
    {&tavoProcessorEnvStatsTable_table, "/var/processorStatsInventory"},
    {&tavoComputeMbPowerStatsTable_table, "/var/motherboardStatsInventory"},
    {&tavoComputeRackUnitMbTempStatsTable_table, "/var/motherboardStatsInventory"},
    {&tavoComputeRackUnitTable_table, "/var/getCPUInventory"},
    {&tavoEquipmentHealthLedTable_table, "/var/LedInv"},
});

// The slow and plain way to find the n-th value, which Dump::value must agree with.
bool plain_value(std::string_view text, std::string_view needle, int n, std::string &value) {
  std::size_t behind = 0;
  for (int i = 0; i < n; ++i) {
    const std::size_t found = text.find(needle, behind);
    if (found == std::string_view::npos) {
      return false;
    }
    behind = found + needle.size();
  }
  const std::size_t newline = text.find('\n', behind);
  if (newline == std::string_view::npos) {
    return false;
  }
  value = text.substr(behind, std::min(newline - behind, dump_value_size - 1));
  return true;
}

void compare_searches(std::string_view text, const char *path) {
  const Dump dump(path);
  const Needle needle("id", ": ");
  Dump::Search search(dump, needle);
  for (const int n : {1, 2, 3, 1, 2, 7}) {
    char value[dump_value_size];
    std::string plain;
    const bool found = search.value(n, value);
    expect(found == plain_value(text, needle.text(), n, plain), "a search finds what is there");
    expect(!found || std::string_view(value, plain.size()) == plain, "a search finds the value");
  }
  dump.sum(needle);
}

void read_supplies(Platform &platform, const std::string &text) {
  platform.files["/var/getPSUInventory"] = text;
  EquipmentPsuRow row = {};
  {
    const ListGuard guard(tavoEquipmentPsuTable_table.lock());
    InventoryPSUviaMCTools(&row);
  }
  serve({&tavoEquipmentPsuTable_table});
  empty({&tavoEquipmentPsuTable_table});
}

}  // namespace

void try_input(Octets input) {
  if (input.empty()) {
    return;
  }
  Platform platform({});
  const std::string text(input.begin() + 1, input.end());
  const std::size_t choice = input[0] % (dump_tables.size() + 1);
  if (choice == dump_tables.size()) {
    read_supplies(platform, text);
    return;
  }
  const DumpTable &of = dump_tables[choice];
  platform.files[of.path] = text;
  platform.printed = {"1\n", text};
  compare_searches(text, of.path);
  of.table->description().build(1);
  serve({of.table});
  empty({of.table});
}

}  // namespace tavo::fuzz
