#include "tables/memory/tavoMemoryUnitTable.h"

#include <array>
#include <climits>
#include <cstddef>
#include <string_view>

#include "core/record.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "platform/inventory.h"

namespace tavo {

int iDIMMItems = 0;

namespace {

using Row = MemoryUnitRow;

constexpr auto root = table_root(30, 11);

TAVO_COLUMNS(tavoMemoryUnitTable, Row, dn, rn, array_id, bank, capacity, clock, column_8, id, column_10, location,
             model, oper_state, operability, perf, power, presence, revision, serial, column_20, speed, thermal, type,
             vendor, visibility, voltage, width, error_correction, status);

constexpr auto refresh_rules = std::to_array<RefreshRule>({
    {.cause = RefreshCause::Memory, .place = 1},
    {.cause = RefreshCause::Periodic, .place = 1},
});

constexpr TableDescription description = {
    .name = "tavoMemoryUnitTable",
    .root = root,
    .lock = ev_lock<30>,
    .columns = columns,
    .row = layout_of<Row>(),
    .build = initialize_memory_table,
    .refresh = refresh_rules,
    .started = "Memory Init done\n",
};

}  // namespace

TAVO_DEFINE_TABLE(tavoMemoryUnitTable, Row, description)

namespace {

// The inventory's detail records, one for each module, back to back. Null if they cannot be read.
Zeroed<std::byte[]> read_details(int count) {
  auto details = make_zeroed_octets(static_cast<std::size_t>(count), MEMORY_RECORD_SIZE);
  const auto summary = make_zeroed_octets(1, MEMORY_SUMMARY_SIZE);
  if (details == nullptr || summary == nullptr) {
    return nullptr;
  }
  std::uint32_t request = MEMORY_REQUEST_DETAIL;
  const inventory_range all = {.first = 0, .count = count};
  if (GetMemoryDetail(&request, count * MEMORY_RECORD_SIZE, &all, details.get()) != 0) {
    return nullptr;
  }
  // The summary itself is not used, but an inventory that cannot give one has not settled yet: its details may be
  // wrong.
  request = MEMORY_REQUEST_SUMMARY;
  if (GetMemorySummary(&request, MEMORY_SUMMARY_SIZE, nullptr, summary.get()) != 0) {
    return nullptr;
  }
  return details;
}

// The number that the library derives from the module's name, or the index.
int id_of(const std::byte *detail, std::uint32_t index) {
  int number = 0;
  return getSensorName(detail, &number) != 0 ? number : static_cast<int>(index);
}

std::uint32_t number_in(std::string_view text) {
  return static_cast<std::uint32_t>(leading_number_or(0, text));
}

// Of "16 GB", or of a number without that unit, which counts megabytes.
std::uint32_t megabytes_in(std::string_view text) {
  const auto number = static_cast<std::uint32_t>(take_number(text).value_or(0));
  return take_word(text) == "GB" ? number << 10 : number;
}

std::int32_t visibility_of(std::string_view text) {
  if (text == "Yes") {
    return 1;
  }
  return text == "No" ? 2 : 0;
}

// Columns that are not mentioned, the bank among them, are always 0.
void fill(Row &row, int id, const Record &module) {
  const std::string_view status = module.text(MEMORY_STATUS, MEMORY_SHORT_TEXT_SIZE);
  const bool operable = status == "Operable";
  row = {};
  format_text(row.dn, "sys/rack-unit-1/board/memarray-1/mem-%d", id);
  format_text(row.rn, "mem-%d", id);
  row.array_id = 1;
  row.capacity = megabytes_in(module.text(MEMORY_CAPACITY, MEMORY_CAPACITY_SIZE));
  row.clock = number_in(module.text(MEMORY_CLOCK, MEMORY_SHORT_TEXT_SIZE));
  row.id = static_cast<std::uint32_t>(id);
  copy_text(row.location, module.text(MEMORY_LOCATION, MEMORY_LOCATION_SIZE));
  copy_text(row.model, "unknown");
  row.oper_state = operable ? 1 : 0;
  row.operability = operable ? 1 : 0;
  row.presence = operable ? 10 : 11;
  copy_text(row.revision, "unknown");
  copy_text(row.serial, module.text(MEMORY_SERIAL, MEMORY_SERIAL_SIZE));
  row.speed = operable ? number_in(module.text(MEMORY_SPEED, MEMORY_SPEED_SIZE)) : 0;
  row.type = 24;
  copy_text(row.vendor, "unknown");
  row.visibility = visibility_of(module.text(MEMORY_VISIBLE, MEMORY_SHORT_TEXT_SIZE));
  row.width = number_in(module.text(MEMORY_WIDTH, MEMORY_SHORT_TEXT_SIZE));
  row.error_correction = 1;
  copy_text(row.status, status);
}

}  // namespace

int initialize_memory_table(int refresh) {
  const Rebuild rebuild(table, refresh);
  if (rebuild.error() != 0) {
    return rebuild.error();
  }
  std::uint32_t request = MEMORY_REQUEST_SUMMARY;
  const int counted = GetMemoryItems(&request, sizeof iDIMMItems, nullptr, &iDIMMItems);
  const int count = iDIMMItems;
  if (counted != 0 || count <= 0 || count > INT_MAX / MEMORY_RECORD_SIZE) {
    return -1;
  }
  const auto row = make_zeroed<MemoryUnitRow>();
  const auto details = row == nullptr ? nullptr : read_details(count);
  if (details == nullptr) {
    return -1;
  }
  for (int i = 0; i < count; ++i) {
    const std::byte *detail = details.get() + static_cast<std::size_t>(i) * MEMORY_RECORD_SIZE;
    const auto index = static_cast<std::uint32_t>(i) + 1;
    fill(*row, id_of(detail, index), Record(detail, MEMORY_RECORD_SIZE));
    tavoMemoryUnitTable_createEntry(index, row.get());
  }
  return 0;
}

int de_register_mem_table_handler(void) {
  return table.de_register();
}

}  // namespace tavo
