#include "tables/processors/tavoProcessorUnitTable.h"

#include <array>
#include <climits>
#include <cstddef>
#include <string_view>

#include "core/record.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "platform/inventory.h"

namespace tavo {

int iCPUItems = 0;

namespace {

using Row = ProcessorUnitRow;

constexpr auto root = table_root(41, 9);

TAVO_COLUMNS(tavoProcessorUnitTable, Row, dn, rn, arch, cores, cores_enabled, id, model, oper_state, operability, power,
             perf, presence, revision, serial, socket, speed, stepping, thermal, threads, vendor, voltage);

constexpr auto refresh_rules = std::to_array<RefreshRule>({
    {.cause = RefreshCause::Processors, .place = 1},
    {.cause = RefreshCause::Periodic, .place = 1},
});

constexpr TableDescription description = {
    .name = "tavoProcessorUnitTable",
    .root = root,
    .lock = ev_lock<41>,
    .columns = columns,
    .row = layout_of<Row>(),
    .build = initialize_processor_table,
    .refresh = refresh_rules,
    .started = "Processor Init done\n",
};

}  // namespace

TAVO_DEFINE_TABLE(tavoProcessorUnitTable, Row, description)

namespace {

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

int initialize_processor_table(int refresh) {
  std::uint32_t status = 0;
  const int counted = GetCPUItems(&status, sizeof iCPUItems, nullptr, &iCPUItems);

  const Rebuild rebuild(table, refresh);
  if (rebuild.error() != 0) {
    return rebuild.error();
  }
  const int count = iCPUItems;
  if (counted != 0 || count <= 0 || count > INT_MAX / PROCESSOR_RECORD_SIZE) {
    return -1;
  }
  const auto row = make_zeroed<ProcessorUnitRow>();
  const auto records = make_zeroed_octets(count, PROCESSOR_RECORD_SIZE);
  if (row == nullptr || records == nullptr) {
    return -1;
  }
  if (GetCPUInfo(&status, count * PROCESSOR_RECORD_SIZE, nullptr, records.get()) != 0) {
    return -1;
  }
  for (int i = 0; i < count; ++i) {
    const Record processor(records.get() + static_cast<std::size_t>(i) * PROCESSOR_RECORD_SIZE, PROCESSOR_RECORD_SIZE);
    const auto index = static_cast<std::uint32_t>(i) + 1;
    fill(*row, index, processor);
    tavoProcessorUnitTable_createEntry(index, row.get());
  }
  return 0;
}

int de_register_Processor_table_handler(void) {
  return table.de_register();
}

}  // namespace tavo
