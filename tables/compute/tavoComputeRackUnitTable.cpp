#include "tables/compute/tavoComputeRackUnitTable.h"

#include <array>
#include <cstddef>
#include <span>

#include "core/descriptor.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "sources/data_query.h"
#include "sources/tool_dump.h"
#include "tables/adaptors/tavoAdaptorUnitTable.h"
#include "tables/vendor.h"

namespace tavo {
namespace {

using Row = RackUnitRow;

constexpr auto root = table_root(9, 35);

TAVO_COLUMNS(tavoComputeRackUnitTable, Row, dn, rn, power_state_a, power_known, column_6, column_7, column_8,
             effective_memory, column_10, column_11, column_12, description, column_14, counter, column_16, column_17,
             column_18, column_19, column_20, column_21, column_22, column_23, column_24, column_25, column_26,
             column_27, column_28, column_29, column_30, column_31, product_id, product_name, adaptors, cores,
             processors, column_37, column_38, threads, power_state_b, column_41, power_state_c, power_state_d,
             column_44, presence, revision, serial, column_48, total_memory, uuid, vendor, column_52, cores_enabled,
             memory_voltage, memory_speed, column_56);

constexpr auto refresh_rules = std::to_array<RefreshRule>({
    {.cause = RefreshCause::Memory, .place = 2},
    {.cause = RefreshCause::Processors, .place = 2},
    {.cause = RefreshCause::Periodic, .place = 2},
});

constexpr TableDescription description = {
    .name = "tavoComputeRackUnitTable",
    .root = root,
    .lock = ev_lock<9>,
    .columns = columns,
    .row = layout_of<Row>(),
    .build = initialize_rackunit_table,
    .refresh = refresh_rules,
    .started = "RackUnit Init done\n",
    .traces = false,
};

}  // namespace

TAVO_DEFINE_TABLE_WITH_OWN_ROWS(tavoComputeRackUnitTable, Row, description)

namespace {

constexpr char cpu_source[] = "inventoryCPU";
constexpr char memory_source[] = "inventoryMemorySummary";

// Every build has the tool write the processor dump; only the process's first build does so with the memory dump.
constinit ToolDump cpu_dump("/var/getCPUInventory");
constinit ToolDump memory_dump("/var/getMemoryInventory");

// Read once in the life of the process: none of it can change while the server is up.
struct Kept {
  bool read = false;
  std::uint32_t adaptors = 0;
  char product_name[dump_value_size] = {};
  char product_id[dump_value_size] = {};
  char serial[dump_value_size] = {};
  char uuid[dump_value_size] = {};
  std::uint32_t cores = 0;
  std::uint32_t processors = 0;
  std::uint32_t threads = 0;
  std::uint32_t memory_speed = 0;
};
Kept kept;

struct PowerStates {
  std::int32_t a;
  std::int32_t known;
  std::int32_t b;
  std::int32_t c;
  std::int32_t d;
};

PowerStates power_states_of(std::int32_t state) {
  switch (state) {
    case 0:
      return {.a = 32, .known = 1, .b = 3, .c = 14, .d = 4};
    case 1:
      return {.a = 31, .known = 1, .b = 1, .c = 10, .d = 1};
    default:
      return {.a = 32, .known = 2, .b = 7, .c = 31, .d = 3};
  }
}

// A value from what the tool prints. Without one, logs that and leaves `out` alone.
bool query(const char *tool_key, const char *grep_key, const char *separator, char *out) {
  const bool found = getValue(tool_key, grep_key, separator, out) == 1;
  if (!found) {
    snmp_log(LOG_DEBUG, "SNMP:Failed %s\n", tool_key);
  }
  return found;
}

// The number at the beginning of a value; 0 if there is none.
std::uint32_t number(const char *value) {
  return static_cast<std::uint32_t>(leading_number_or(0, value));
}

void read_kept_values() {
  const unsigned failures_before = failed_allocations;
  char value[dump_value_size] = {};
  kept.adaptors = static_cast<std::uint32_t>(GetNumOfAdaptors());
  query("sysProductName", "sysProductName", ": ", kept.product_name);
  query("sysProductID", "sysProductID", " ", kept.product_id);
  query("fru", "Product Serial", ": ", kept.serial);
  query("UUID", "UUID", " ", kept.uuid);
  if (getCPU(cpu_source, "CoreCount", ": ", value) == 1) {
    kept.cores = number(value);
  }
  if (getCPUCount(cpu_source, "id", ": ", value) == 1) {
    kept.processors = number(value);
  }
  if (getCPU(cpu_source, "ThreadCount", ": ", value) == 1) {
    kept.threads = number(value);
  }
  memory_dump.forget();
  if (memory_dump.await([&] { return getMemory(memory_source, "MemorySpeed", ": ", value) == 1; })) {
    kept.memory_speed = number(value);
  }
  kept.read = failed_allocations == failures_before;
}

void fill(Row &row) {
  char value[dump_value_size] = {};
  row.index = 1;
  format_text(row.dn, "sys/rack-unit-%d", 1);
  format_text(row.rn, "rack-unit-%d", 1);
  row.presence = 10;
  if (query("description", "description", " ", value)) {
    copy_text(row.description, value);
  }
  cpu_dump.forget();
  if (cpu_dump.await([&] { return getCPU(cpu_source, "CoreEnabled", ": ", value) == 1; })) {
    row.cores_enabled = number(value);
  }
  if (!kept.read) {
    read_kept_values();
  }
  copy_text(row.serial, kept.serial);
  copy_text(row.product_id, kept.product_id);
  copy_text(row.product_name, kept.product_name);
  copy_text(row.uuid, kept.uuid);
  row.adaptors = kept.adaptors;
  row.cores = kept.cores;
  row.processors = kept.processors;
  row.threads = kept.threads;
  row.memory_speed = kept.memory_speed;
  row.power_known = 1;
  row.column_8 = 1;
  row.memory_voltage = GetMemoryVoltage();
  if (query("pwState", "pwState", " ", value)) {
    if (const auto state = leading_number(value)) {
      const PowerStates states = power_states_of(*state);
      row.power_state_a = states.a;
      row.power_known = states.known;
      row.power_state_b = states.b;
      row.power_state_c = states.c;
      row.power_state_d = states.d;
    }
  }
  copy_text(row.vendor, server_vendor);
  if (getMemory(memory_source, "EffectiveMemory", ": ", value) == 1) {
    row.effective_memory = number(value);
  }
  if (getMemory(memory_source, "TotalMemory", ": ", value) == 1) {
    row.total_memory = number(value);
  }
  row.column_52 = 1;
}

}  // namespace

int initialize_rackunit_table(int refresh) {
  const Rebuild rebuild(table, refresh);
  if (rebuild.error() != 0) {
    return 0;
  }
  auto row = make_zeroed<RackUnitRow>();
  if (row == nullptr) {
    return -1;
  }
  fill(*row);
  tavoComputeRackUnitTable_createEntry(row.release());
  return 0;
}

int de_register_ComputeRackUnit_table_handler(void) {
  return table.de_register();
}

// This and removeAllEntries leave the lock to callers from C, where clang's analysis does not see it.
RackUnitRow *tavoComputeRackUnitTable_createEntry(RackUnitRow *row) TAVO_LOCKING(no_thread_safety_analysis) {
  if (row != nullptr) {
    table.remove_all();
    table.rows().push_front(row);
  }
  return row;
}

int tavoComputeRackUnitTable_removeEntry(RackUnitRow *row) {
  return table.remove(row);
}

void tavoComputeRackUnitTable_removeAllEntries(void) TAVO_LOCKING(no_thread_safety_analysis) {
  table.remove_all();
}

int getCPU(const char *tool_key, const char *lookup_key, const char *separator, char *out) {
  return cpu_dump.sum(tool_key, lookup_key, separator, out) ? 1 : 0;
}

int getCPUCount(const char *tool_key, const char *lookup_key, const char *separator, char *out) {
  return cpu_dump.count(tool_key, lookup_key, separator, out) ? 1 : 0;
}

int getMemory(const char *tool_key, const char *lookup_key, const char *separator, char *out) {
  return memory_dump.value(tool_key, lookup_key, separator, 1, out) ? 1 : 0;
}

int getValue(const char *tool_key, const char *grep_key, const char *separator, char *out) {
  return query_value(tool_key, grep_key, separator, out) ? 1 : 0;
}

int GetMemoryVoltage(void) {
  char text[32] = {};
  read_beginning("/var/vessa/dimms/low_voltage_support", std::as_writable_bytes(std::span(text, sizeof text - 1)));
  return leading_number_or(0, text) == 1 ? 1 : 2;
}

}  // namespace tavo
