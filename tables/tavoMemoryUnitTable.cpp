#include "tables/tavoMemoryUnitTable.h"

#include <array>
#include <climits>
#include <cstddef>
#include <string_view>

#include "core/record.h"
#include "core/table.h"
#include "core/table_entry_points.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "platform/inventory.h"

tavo::MemoryUnitRow *tavoMemoryUnitTable_head = nullptr;
int iDIMMItems = 0;

namespace tavo {
namespace {

using Row = MemoryUnitRow;

constexpr std::array<oid, 12> root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 30, 11};

// clang-format off
constexpr auto columns = checked(std::to_array<Column>({
    {.number = 2, .codec = Codec::text, .field = field<decltype(Row::dn)>(offsetof(Row, dn))},
    {.number = 3, .codec = Codec::text, .field = field<decltype(Row::rn)>(offsetof(Row, rn))},
    {.number = 4, .codec = Codec::gauge, .field = field<decltype(Row::array_id)>(offsetof(Row, array_id))},
    {.number = 5, .codec = Codec::gauge, .field = field<decltype(Row::bank)>(offsetof(Row, bank))},
    {.number = 6, .codec = Codec::gauge, .field = field<decltype(Row::capacity)>(offsetof(Row, capacity))},
    {.number = 7, .codec = Codec::gauge, .field = field<decltype(Row::clock)>(offsetof(Row, clock))},
    {.number = 8, .codec = Codec::integer, .field = field<decltype(Row::zero_8)>(offsetof(Row, zero_8))},
    {.number = 9, .codec = Codec::gauge, .field = field<decltype(Row::id)>(offsetof(Row, id))},
    {.number = 10, .codec = Codec::integer, .field = field<decltype(Row::zero_10)>(offsetof(Row, zero_10))},
    {.number = 11, .codec = Codec::text, .field = field<decltype(Row::location)>(offsetof(Row, location))},
    {.number = 12, .codec = Codec::text, .field = field<decltype(Row::model)>(offsetof(Row, model))},
    {.number = 13, .codec = Codec::integer, .field = field<decltype(Row::oper_state)>(offsetof(Row, oper_state))},
    {.number = 14, .codec = Codec::integer, .field = field<decltype(Row::operability)>(offsetof(Row, operability))},
    {.number = 15, .codec = Codec::integer, .field = field<decltype(Row::zero_15)>(offsetof(Row, zero_15))},
    {.number = 16, .codec = Codec::integer, .field = field<decltype(Row::zero_16)>(offsetof(Row, zero_16))},
    {.number = 17, .codec = Codec::integer, .field = field<decltype(Row::presence)>(offsetof(Row, presence))},
    {.number = 18, .codec = Codec::text, .field = field<decltype(Row::revision)>(offsetof(Row, revision))},
    {.number = 19, .codec = Codec::text, .field = field<decltype(Row::serial)>(offsetof(Row, serial))},
    {.number = 20, .codec = Codec::gauge, .field = field<decltype(Row::zero_20)>(offsetof(Row, zero_20))},
    {.number = 21, .codec = Codec::gauge, .field = field<decltype(Row::speed)>(offsetof(Row, speed))},
    {.number = 22, .codec = Codec::integer, .field = field<decltype(Row::zero_22)>(offsetof(Row, zero_22))},
    {.number = 23, .codec = Codec::integer, .field = field<decltype(Row::type)>(offsetof(Row, type))},
    {.number = 24, .codec = Codec::text, .field = field<decltype(Row::vendor)>(offsetof(Row, vendor))},
    {.number = 25, .codec = Codec::integer, .field = field<decltype(Row::visibility)>(offsetof(Row, visibility))},
    {.number = 26, .codec = Codec::integer, .field = field<decltype(Row::zero_26)>(offsetof(Row, zero_26))},
    {.number = 27, .codec = Codec::gauge, .field = field<decltype(Row::width)>(offsetof(Row, width))},
    {.number = 28, .codec = Codec::integer, .field = field<decltype(Row::error_correction)>(offsetof(Row, error_correction))},
    {.number = 29, .codec = Codec::text, .field = field<decltype(Row::status)>(offsetof(Row, status))},
}));
// clang-format on

constexpr TableDescription description = {
    .name = "tavoMemoryUnitTable",
    .root = root,
    .lock = ListLock::ev(30),
    .columns = columns,
    .row = layout_of<Row>(),
};

constinit Table table(description, &tavoMemoryUnitTable_head);

// What the inventory reports: a detail record for each module, back to back. Null when it cannot be had.
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
  // An inventory that has no summary has not settled yet, and its details do not count; the summary itself is not used.
  request = MEMORY_REQUEST_SUMMARY;
  if (GetMemorySummary(&request, MEMORY_SUMMARY_SIZE, nullptr, summary.get()) != 0) {
    return nullptr;
  }
  return details;
}

// The number that the library derives from the module's name, else its place in the list.
int id_of(const std::byte *detail, std::uint32_t index) {
  int number = 0;
  return getSensorName(detail, &number) != 0 ? number : static_cast<int>(index);
}

std::uint32_t number_in(std::string_view text) {
  return static_cast<std::uint32_t>(leading_number(text).value_or(0));
}

// "16 GB", or a number of megabytes.
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
}  // namespace tavo

TAVO_TABLE_ENTRY_POINTS(tavoMemoryUnitTable, tavo::MemoryUnitRow, tavo::table)

int initialize_table_tavoMemoryUnitTable(void) {
  tavo::table.trace_entry(__func__, __LINE__);
  tavo::table.register_with({.handler = tavoMemoryUnitTable_handler,
                             .first_row = tavoMemoryUnitTable_get_first_data_point,
                             .next_row = tavoMemoryUnitTable_get_next_data_point});
  return initialize_memory_table(0);
}

int initialize_memory_table(int mode) {
  const tavo::ListGuard guard(tavo::table.lock());
  if (guard.error() != 0) {
    return guard.error();
  }
  if (mode == 1) {
    tavoMemoryUnitTable_removeAllEntries();
  }
  std::uint32_t request = MEMORY_REQUEST_SUMMARY;
  const int counted = GetMemoryItems(&request, sizeof iDIMMItems, nullptr, &iDIMMItems);
  const int count = iDIMMItems;
  if (counted != 0 || count <= 0 || count > INT_MAX / MEMORY_RECORD_SIZE) {
    return -1;
  }
  const auto row = tavo::make_zeroed<tavo::MemoryUnitRow>();
  const auto details = row == nullptr ? nullptr : tavo::read_details(count);
  if (details == nullptr) {
    return -1;
  }
  for (int i = 0; i < count; ++i) {
    const std::byte *detail = details.get() + static_cast<std::size_t>(i) * MEMORY_RECORD_SIZE;
    const auto index = static_cast<std::uint32_t>(i) + 1;
    tavo::fill(*row, tavo::id_of(detail, index), tavo::Record(detail, MEMORY_RECORD_SIZE));
    tavoMemoryUnitTable_createEntry(index, row.get());
  }
  return 0;
}

int de_register_mem_table_handler(void) {
  return tavo::table.de_register();
}
