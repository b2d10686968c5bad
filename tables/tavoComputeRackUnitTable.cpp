#include "tables/tavoComputeRackUnitTable.h"

#include <array>
#include <cstddef>
#include <span>

#include "core/descriptor.h"
#include "core/dump.h"
#include "core/shell.h"
#include "core/table.h"
#include "core/table_entry_points.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "tables/data_query.h"
#include "tables/retries.h"
#include "tables/tavoAdaptorUnitTable.h"

tavo::RackUnitRow *tavoComputeRackUnitTable_head = nullptr;

namespace tavo {
namespace {

using Row = RackUnitRow;

constexpr std::array<oid, 12> root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 9, 35};

// clang-format off
constexpr auto columns = checked(std::to_array<Column>({
    {.number = 2, .codec = Codec::text, .field = field<decltype(Row::dn)>(offsetof(Row, dn))},
    {.number = 3, .codec = Codec::text, .field = field<decltype(Row::rn)>(offsetof(Row, rn))},
    {.number = 4, .codec = Codec::integer, .field = field<decltype(Row::power_state_a)>(offsetof(Row, power_state_a))},
    {.number = 5, .codec = Codec::integer, .field = field<decltype(Row::power_known)>(offsetof(Row, power_known))},
    {.number = 6, .codec = Codec::text, .field = field<decltype(Row::reserved_6)>(offsetof(Row, reserved_6))},
    {.number = 7, .codec = Codec::integer, .field = field<decltype(Row::reserved_7)>(offsetof(Row, reserved_7))},
    {.number = 8, .codec = Codec::integer, .field = field<decltype(Row::one_8)>(offsetof(Row, one_8))},
    {.number = 9, .codec = Codec::gauge, .field = field<decltype(Row::effective_memory)>(offsetof(Row, effective_memory))},
    {.number = 10, .codec = Codec::integer, .field = field<decltype(Row::reserved_10)>(offsetof(Row, reserved_10))},
    {.number = 11, .codec = Codec::text, .field = field<decltype(Row::reserved_11)>(offsetof(Row, reserved_11))},
    {.number = 12, .codec = Codec::text, .field = field<decltype(Row::reserved_12)>(offsetof(Row, reserved_12))},
    {.number = 13, .codec = Codec::text, .field = field<decltype(Row::description)>(offsetof(Row, description))},
    {.number = 14, .codec = Codec::integer, .field = field<decltype(Row::reserved_14)>(offsetof(Row, reserved_14))},
    {.number = 15, .codec = Codec::counter64_of_four_octets, .field = field<decltype(Row::counter)>(offsetof(Row, counter))},
    {.number = 16, .codec = Codec::text, .field = field<decltype(Row::reserved_16)>(offsetof(Row, reserved_16))},
    {.number = 17, .codec = Codec::text, .field = field<decltype(Row::reserved_17)>(offsetof(Row, reserved_17))},
    {.number = 18, .codec = Codec::text, .field = field<decltype(Row::reserved_18)>(offsetof(Row, reserved_18))},
    {.number = 19, .codec = Codec::gauge, .field = field<decltype(Row::reserved_19)>(offsetof(Row, reserved_19))},
    {.number = 20, .codec = Codec::gauge, .field = field<decltype(Row::reserved_20)>(offsetof(Row, reserved_20))},
    {.number = 21, .codec = Codec::text, .field = field<decltype(Row::reserved_21)>(offsetof(Row, reserved_21))},
    {.number = 22, .codec = Codec::text, .field = field<decltype(Row::reserved_22)>(offsetof(Row, reserved_22))},
    {.number = 23, .codec = Codec::text, .field = field<decltype(Row::reserved_23)>(offsetof(Row, reserved_23))},
    {.number = 24, .codec = Codec::text, .field = field<decltype(Row::reserved_24)>(offsetof(Row, reserved_24))},
    {.number = 25, .codec = Codec::text, .field = field<decltype(Row::reserved_25)>(offsetof(Row, reserved_25))},
    {.number = 26, .codec = Codec::gauge, .field = field<decltype(Row::reserved_26)>(offsetof(Row, reserved_26))},
    {.number = 27, .codec = Codec::gauge, .field = field<decltype(Row::reserved_27)>(offsetof(Row, reserved_27))},
    {.number = 28, .codec = Codec::text, .field = field<decltype(Row::reserved_28)>(offsetof(Row, reserved_28))},
    {.number = 29, .codec = Codec::integer, .field = field<decltype(Row::reserved_29)>(offsetof(Row, reserved_29))},
    {.number = 30, .codec = Codec::text, .field = field<decltype(Row::reserved_30)>(offsetof(Row, reserved_30))},
    {.number = 31, .codec = Codec::integer, .field = field<decltype(Row::reserved_31)>(offsetof(Row, reserved_31))},
    {.number = 32, .codec = Codec::text, .field = field<decltype(Row::product_id)>(offsetof(Row, product_id))},
    {.number = 33, .codec = Codec::text, .field = field<decltype(Row::product_name)>(offsetof(Row, product_name))},
    {.number = 34, .codec = Codec::gauge, .field = field<decltype(Row::adaptors)>(offsetof(Row, adaptors))},
    {.number = 35, .codec = Codec::gauge, .field = field<decltype(Row::cores)>(offsetof(Row, cores))},
    {.number = 36, .codec = Codec::gauge, .field = field<decltype(Row::processors)>(offsetof(Row, processors))},
    {.number = 37, .codec = Codec::gauge, .field = field<decltype(Row::reserved_37)>(offsetof(Row, reserved_37))},
    {.number = 38, .codec = Codec::gauge, .field = field<decltype(Row::reserved_38)>(offsetof(Row, reserved_38))},
    {.number = 39, .codec = Codec::gauge, .field = field<decltype(Row::threads)>(offsetof(Row, threads))},
    {.number = 40, .codec = Codec::integer, .field = field<decltype(Row::power_state_b)>(offsetof(Row, power_state_b))},
    {.number = 41, .codec = Codec::text, .field = field<decltype(Row::reserved_41)>(offsetof(Row, reserved_41))},
    {.number = 42, .codec = Codec::integer, .field = field<decltype(Row::power_state_c)>(offsetof(Row, power_state_c))},
    {.number = 43, .codec = Codec::integer, .field = field<decltype(Row::power_state_d)>(offsetof(Row, power_state_d))},
    {.number = 44, .codec = Codec::text, .field = field<decltype(Row::reserved_44)>(offsetof(Row, reserved_44))},
    {.number = 45, .codec = Codec::integer, .field = field<decltype(Row::presence)>(offsetof(Row, presence))},
    {.number = 46, .codec = Codec::text, .field = field<decltype(Row::reserved_46)>(offsetof(Row, reserved_46))},
    {.number = 47, .codec = Codec::text, .field = field<decltype(Row::serial)>(offsetof(Row, serial))},
    {.number = 48, .codec = Codec::text, .field = field<decltype(Row::reserved_48)>(offsetof(Row, reserved_48))},
    {.number = 49, .codec = Codec::gauge, .field = field<decltype(Row::total_memory)>(offsetof(Row, total_memory))},
    {.number = 50, .codec = Codec::text, .field = field<decltype(Row::uuid)>(offsetof(Row, uuid))},
    {.number = 51, .codec = Codec::text, .field = field<decltype(Row::vendor)>(offsetof(Row, vendor))},
    {.number = 52, .codec = Codec::integer, .field = field<decltype(Row::one_52)>(offsetof(Row, one_52))},
    {.number = 53, .codec = Codec::gauge, .field = field<decltype(Row::cores_enabled)>(offsetof(Row, cores_enabled))},
    {.number = 54, .codec = Codec::integer, .field = field<decltype(Row::memory_voltage)>(offsetof(Row, memory_voltage))},
    {.number = 55, .codec = Codec::gauge, .field = field<decltype(Row::memory_speed)>(offsetof(Row, memory_speed))},
    {.number = 56, .codec = Codec::text, .field = field<decltype(Row::reserved_56)>(offsetof(Row, reserved_56))},
}));
// clang-format on

constexpr TableDescription description = {
    .name = "tavoComputeRackUnitTable",
    .root = root,
    .lock = ListLock::ev(9),
    .columns = columns,
    .row = layout_of<Row>(),
    .traces = false,
};

constinit Table table(description, &tavoComputeRackUnitTable_head);

constexpr char cpu_dump[] = "/var/getCPUInventory";
constexpr char memory_dump[] = "/var/getMemoryInventory";
constexpr char memory_query[] = "inventoryMemorySummary";

// A dump counts as loaded from when it is written until a build, or a failed try of one, wants it anew. Of the memory
// dump, only the first build does.
bool cpu_dump_is_loaded = false;
bool memory_dump_is_loaded = false;

// Read once for the life of the process: what cannot change while the server is up.
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

// Has the tool write the dump, unless it has.
void load(const char *tool_key, const char *path, bool &is_loaded) {
  if (!is_loaded) {
    char command[128];
    format_text(command, "datactl get=%s | flatkv > %s", tool_key, path);
    run_in_shell(command);
    is_loaded = true;
  }
}

// Writes a figure of the processor dump to `out`. 0 when the dump cannot be read, otherwise 1.
template <class Figure>
int cpu_figure(const char *tool_key, char *out, Figure figure) {
  load(tool_key, cpu_dump, cpu_dump_is_loaded);
  Dump dump(cpu_dump);
  if (!dump.opened()) {
    return 0;
  }
  format_text(out, dump_value_size, "%d", figure(dump));
  return 1;
}

// Tries a lookup, with the dump written anew for the first try and after each that fails, the last one too.
template <class Lookup>
bool await_figure(bool &dump_is_loaded, Lookup lookup) {
  dump_is_loaded = false;
  return try_repeatedly([&] {
    const bool found = lookup() == 1;
    if (!found) {
      dump_is_loaded = false;
    }
    return found;
  });
}

// A value of the tool; when there is none, says so and leaves `out` alone.
bool query(const char *tool_key, const char *grep_key, const char *separator, char *out) {
  const bool found = getValue(tool_key, grep_key, separator, out) == 1;
  if (!found) {
    snmp_log(LOG_DEBUG, "SNMP:Failed %s\n", tool_key);
  }
  return found;
}

// The number that a found value begins with; 0 for a value that begins with none.
std::uint32_t number(const char *value) {
  return static_cast<std::uint32_t>(leading_number(value).value_or(0));
}

void read_kept_values() {
  char value[dump_value_size] = {};
  kept.adaptors = static_cast<std::uint32_t>(GetNumOfAdaptors());
  query("sysProductName", "sysProductName", ": ", kept.product_name);
  query("sysProductID", "sysProductID", " ", kept.product_id);
  query("fru", "Product Serial", ": ", kept.serial);
  query("UUID", "UUID", " ", kept.uuid);
  if (getCPU("inventoryCPU", "CoreCount", ": ", value) == 1) {
    kept.cores = number(value);
  }
  if (getCPUCount("inventoryCPU", "id", ": ", value) == 1) {
    kept.processors = number(value);
  }
  if (getCPU("inventoryCPU", "ThreadCount", ": ", value) == 1) {
    kept.threads = number(value);
  }
  if (await_figure(memory_dump_is_loaded, [&] { return getMemory(memory_query, "MemorySpeed", ": ", value); })) {
    kept.memory_speed = number(value);
  }
  kept.read = true;
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
  if (await_figure(cpu_dump_is_loaded, [&] { return getCPU("inventoryCPU", "CoreEnabled", ": ", value); })) {
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
  row.one_8 = 1;
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
  copy_text(row.vendor, "Tavolo Systems Inc");
  if (getMemory(memory_query, "EffectiveMemory", ": ", value) == 1) {
    row.effective_memory = number(value);
  }
  if (getMemory(memory_query, "TotalMemory", ": ", value) == 1) {
    row.total_memory = number(value);
  }
  row.one_52 = 1;
}

}  // namespace
}  // namespace tavo

TAVO_AGENT_ENTRY_POINTS(tavoComputeRackUnitTable, tavo::table)

int initialize_table_tavoComputeRackUnitTable(void) {
  tavo::table.register_with({.handler = tavoComputeRackUnitTable_handler,
                             .first_row = tavoComputeRackUnitTable_get_first_data_point,
                             .next_row = tavoComputeRackUnitTable_get_next_data_point});
  return initialize_rackunit_table(0);
}

int initialize_rackunit_table(int mode) {
  const tavo::ListGuard guard(tavo::table.lock());
  if (guard.error() != 0) {
    return 0;
  }
  if (mode == 1) {
    tavoComputeRackUnitTable_removeAllEntries();
  }
  auto row = tavo::make_zeroed<tavo::RackUnitRow>();
  if (row == nullptr) {
    return -1;
  }
  tavo::fill(*row);
  tavoComputeRackUnitTable_createEntry(row.release());
  return 0;
}

int de_register_ComputeRackUnit_table_handler(void) {
  return tavo::table.de_register();
}

// The two that leave the lock to their callers, who hold it where clang cannot see it: across the C boundary.
tavo::RackUnitRow *tavoComputeRackUnitTable_createEntry(tavo::RackUnitRow *row)
    TAVO_LOCKING(no_thread_safety_analysis) {
  if (row != nullptr) {
    tavo::table.remove_all();
    tavo::table.rows().push_front(row);
  }
  return row;
}

int tavoComputeRackUnitTable_removeEntry(tavo::RackUnitRow *row) {
  return tavo::table.remove(row);
}

void tavoComputeRackUnitTable_removeAllEntries(void) TAVO_LOCKING(no_thread_safety_analysis) {
  tavo::table.remove_all();
}

int getCPU(const char *tool_key, const char *lookup_key, const char *separator, char *out) {
  return tavo::cpu_figure(tool_key, out, [&](tavo::Dump &dump) { return dump.sum({lookup_key, separator}); });
}

int getCPUCount(const char *tool_key, const char *lookup_key, const char *separator, char *out) {
  return tavo::cpu_figure(tool_key, out, [&](tavo::Dump &dump) { return dump.count({lookup_key, separator}); });
}

int getMemory(const char *tool_key, const char *lookup_key, const char *separator, char *out) {
  tavo::load(tool_key, tavo::memory_dump, tavo::memory_dump_is_loaded);
  return tavo::Dump(tavo::memory_dump).value(tavo::Needle(lookup_key, separator), 1, out) ? 1 : 0;
}

int getValue(const char *tool_key, const char *grep_key, const char *separator, char *out) {
  return tavo::query_value(tool_key, grep_key, separator, out) ? 1 : 0;
}

int GetMemoryVoltage(void) {
  char text[32] = {};
  tavo::read_beginning("/var/vessa/dimms/low_voltage_support",
                       std::as_writable_bytes(std::span(text, sizeof text - 1)));
  return tavo::leading_number(text) == 1 ? 1 : 2;
}
