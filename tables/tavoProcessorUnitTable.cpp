#include "tables/tavoProcessorUnitTable.h"

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

tavo::ProcessorUnitRow *tavoProcessorUnitTable_head = nullptr;
int iCPUItems = 0;

namespace tavo {
namespace {

using Row = ProcessorUnitRow;

constexpr std::array<oid, 12> root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 41, 9};

// clang-format off
constexpr auto columns = checked(std::to_array<Column>({
    {.number = 2, .codec = Codec::text, .field = field<decltype(Row::dn)>(offsetof(Row, dn))},
    {.number = 3, .codec = Codec::text, .field = field<decltype(Row::rn)>(offsetof(Row, rn))},
    {.number = 4, .codec = Codec::integer, .field = field<decltype(Row::arch)>(offsetof(Row, arch))},
    {.number = 5, .codec = Codec::gauge, .field = field<decltype(Row::cores)>(offsetof(Row, cores))},
    {.number = 6, .codec = Codec::gauge, .field = field<decltype(Row::cores_enabled)>(offsetof(Row, cores_enabled))},
    {.number = 7, .codec = Codec::gauge, .field = field<decltype(Row::id)>(offsetof(Row, id))},
    {.number = 8, .codec = Codec::text, .field = field<decltype(Row::model)>(offsetof(Row, model))},
    {.number = 9, .codec = Codec::integer, .field = field<decltype(Row::oper_state)>(offsetof(Row, oper_state))},
    {.number = 10, .codec = Codec::integer, .field = field<decltype(Row::operability)>(offsetof(Row, operability))},
    {.number = 11, .codec = Codec::integer, .field = field<decltype(Row::power)>(offsetof(Row, power))},
    {.number = 12, .codec = Codec::integer, .field = field<decltype(Row::perf)>(offsetof(Row, perf))},
    {.number = 13, .codec = Codec::integer, .field = field<decltype(Row::presence)>(offsetof(Row, presence))},
    {.number = 14, .codec = Codec::text, .field = field<decltype(Row::revision)>(offsetof(Row, revision))},
    {.number = 15, .codec = Codec::text, .field = field<decltype(Row::serial)>(offsetof(Row, serial))},
    {.number = 16, .codec = Codec::text, .field = field<decltype(Row::socket)>(offsetof(Row, socket))},
    {.number = 17, .codec = Codec::integer, .field = field<decltype(Row::speed)>(offsetof(Row, speed))},
    {.number = 18, .codec = Codec::gauge, .field = field<decltype(Row::stepping)>(offsetof(Row, stepping))},
    {.number = 19, .codec = Codec::integer, .field = field<decltype(Row::thermal)>(offsetof(Row, thermal))},
    {.number = 20, .codec = Codec::gauge, .field = field<decltype(Row::threads)>(offsetof(Row, threads))},
    {.number = 21, .codec = Codec::text, .field = field<decltype(Row::vendor)>(offsetof(Row, vendor))},
    {.number = 22, .codec = Codec::integer, .field = field<decltype(Row::voltage)>(offsetof(Row, voltage))},
}));
// clang-format on

constexpr TableDescription description = {
    .name = "tavoProcessorUnitTable",
    .root = root,
    .lock = ListLock::ev(41),
    .columns = columns,
    .row = layout_of<Row>(),
};

constinit Table table(description, &tavoProcessorUnitTable_head);

std::int32_t arch_of(std::string_view architecture) {
  if (architecture == "Xeon") {
    return 179;
  }
  return architecture == "Pentium_4" ? 178 : 0;
}

void fill(Row &row, std::uint32_t index, const Record &processor) {
  const bool enabled = processor.text(PROCESSOR_STATUS, PROCESSOR_RECORD_SIZE - PROCESSOR_STATUS) == "Enabled";
  row = {};
  format_text(row.dn, "sys/rack-unit-1/board/cpu-%u", index);
  format_text(row.rn, "cpu-%u", index);
  row.arch = arch_of(processor.text(PROCESSOR_ARCHITECTURE, PROCESSOR_ARCHITECTURE_SIZE));
  row.cores = processor.u32(PROCESSOR_CORES);
  row.cores_enabled = row.cores;
  row.id = index - 1;
  copy_text(row.model, processor.text(PROCESSOR_MODEL, PROCESSOR_TEXT_SIZE));
  row.oper_state = enabled ? 1 : 2;
  row.operability = enabled ? 1 : 2;
  row.power = enabled ? 1 : 0;
  row.presence = enabled ? 10 : 11;
  copy_text(row.revision, "unknown");
  copy_text(row.serial, processor.text(PROCESSOR_SERIAL, PROCESSOR_TEXT_SIZE));
  copy_text(row.socket, processor.text(PROCESSOR_SOCKET, PROCESSOR_TEXT_SIZE));
  row.speed = processor.i32(PROCESSOR_SPEED);
  row.threads = processor.u32(PROCESSOR_THREADS);
  copy_text(row.vendor, processor.text(PROCESSOR_VENDOR, PROCESSOR_TEXT_SIZE));
}

}  // namespace
}  // namespace tavo

TAVO_TABLE_ENTRY_POINTS(tavoProcessorUnitTable, tavo::ProcessorUnitRow, tavo::table)

int initialize_table_tavoProcessorUnitTable(void) {
  tavo::table.trace_entry(__func__, __LINE__);
  tavo::table.register_with({.handler = tavoProcessorUnitTable_handler,
                             .first_row = tavoProcessorUnitTable_get_first_data_point,
                             .next_row = tavoProcessorUnitTable_get_next_data_point});
  return initialize_processor_table(0);
}

int initialize_processor_table(int refresh) {
  std::uint32_t status = 0;
  const int counted = GetCPUItems(&status, sizeof iCPUItems, nullptr, &iCPUItems);

  const tavo::ListGuard guard(tavo::table.lock());
  if (guard.error() != 0) {
    return guard.error();
  }
  if (refresh == 1) {
    tavoProcessorUnitTable_removeAllEntries();
  }
  const int count = iCPUItems;
  if (counted != 0 || count <= 0 || count > INT_MAX / PROCESSOR_RECORD_SIZE) {
    return -1;
  }
  const auto row = tavo::make_zeroed<tavo::ProcessorUnitRow>();
  const auto records = tavo::make_zeroed_octets(count, PROCESSOR_RECORD_SIZE);
  if (row == nullptr || records == nullptr) {
    return -1;
  }
  if (GetCPUInfo(&status, count * PROCESSOR_RECORD_SIZE, nullptr, records.get()) != 0) {
    return -1;
  }
  for (int i = 0; i < count; ++i) {
    const tavo::Record processor(records.get() + static_cast<std::size_t>(i) * PROCESSOR_RECORD_SIZE,
                                 PROCESSOR_RECORD_SIZE);
    const auto index = static_cast<std::uint32_t>(i) + 1;
    tavo::fill(*row, index, processor);
    tavoProcessorUnitTable_createEntry(index, row.get());
  }
  return 0;
}

int de_register_Processor_table_handler(void) {
  return tavo::table.de_register();
}
