#include "tables/tavoFaultTable.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>

#include "core/access_lock.h"
#include "core/conversions.h"
#include "core/marker.h"
#include "core/record.h"
#include "core/table.h"
#include "core/table_entry_points.h"
#include "core/text.h"
#include "platform/fault_engine.h"
#include "tables/data_query.h"
#include "tables/fan_state.h"
#include "tables/fault_database.h"
#include "tables/tavoFaultTable_traps.h"

tavo::FaultRow *tavoFaultTable_head = nullptr;

namespace tavo {
namespace {

using Row = FaultRow;

constexpr std::array<oid, 12> root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 1, 1};

// clang-format off
constexpr auto columns = checked(std::to_array<Column>({
    {.number = 2, .codec = Codec::counted_text, .field = field<decltype(Row::dn)>(offsetof(Row, dn)),
     .length_offset = offsetof(Row, dn_length)},
    {.number = 3, .codec = Codec::counted_text, .field = field<decltype(Row::rn)>(offsetof(Row, rn)),
     .length_offset = offsetof(Row, rn_length)},
    {.number = 4, .codec = Codec::object_identifier, .field = field<decltype(Row::affected_id)>(offsetof(Row, affected_id)),
     .length_offset = offsetof(Row, affected_id_count)},
    {.number = 5, .codec = Codec::counted_text, .field = field<decltype(Row::affected_object)>(offsetof(Row, affected_object)),
     .length_offset = offsetof(Row, affected_object_length)},
    {.number = 6, .codec = Codec::integer, .field = field<decltype(Row::always_one)>(offsetof(Row, always_one))},
    {.number = 7, .codec = Codec::integer, .field = field<decltype(Row::cause)>(offsetof(Row, cause))},
    {.number = 8, .codec = Codec::counted_text, .field = field<decltype(Row::fixed_text)>(offsetof(Row, fixed_text)),
     .length_offset = offsetof(Row, fixed_text_length)},
    {.number = 9, .codec = Codec::integer, .field = field<decltype(Row::code)>(offsetof(Row, code))},
    {.number = 10, .codec = Codec::counted_text, .field = field<decltype(Row::first_time)>(offsetof(Row, first_time)),
     .length_offset = offsetof(Row, first_time_length)},
    {.number = 11, .codec = Codec::counted_text, .field = field<decltype(Row::description)>(offsetof(Row, description)),
     .length_offset = offsetof(Row, description_length)},
    {.number = 12, .codec = Codec::integer, .field = field<decltype(Row::always_six)>(offsetof(Row, always_six))},
    {.number = 13, .codec = Codec::counter64, .field = field<decltype(Row::sequence)>(offsetof(Row, sequence))},
    {.number = 14, .codec = Codec::counted_text, .field = field<decltype(Row::last_time)>(offsetof(Row, last_time)),
     .length_offset = offsetof(Row, last_time_length)},
    {.number = 15, .codec = Codec::integer, .field = field<decltype(Row::always_zero)>(offsetof(Row, always_zero))},
    {.number = 16, .codec = Codec::counter, .field = field<decltype(Row::occurrences)>(offsetof(Row, occurrences))},
    {.number = 17, .codec = Codec::integer, .field = field<decltype(Row::severity)>(offsetof(Row, severity))},
    {.number = 18, .codec = Codec::integer, .field = field<decltype(Row::previous_severity)>(offsetof(Row, previous_severity))},
    {.number = 19, .codec = Codec::integer, .field = field<decltype(Row::code_again)>(offsetof(Row, code_again))},
    {.number = 20, .codec = Codec::integer, .field = field<decltype(Row::severity_again)>(offsetof(Row, severity_again))},
    {.number = 21, .codec = Codec::octet, .field = field<decltype(Row::tag)>(offsetof(Row, tag))},
    {.number = 22, .codec = Codec::integer, .field = field<decltype(Row::always_five)>(offsetof(Row, always_five))},
}));
// clang-format on

constexpr TableDescription description = {
    .name = "tavoFaultTable",
    .root = root,
    .lock = ListLock::subagent(1),
    .columns = columns,
    .row = layout_of<Row>(),
    .keeps_registration = false,
};

constinit Table table(description, &tavoFaultTable_head);

constexpr int failed = -1;
constexpr int null_argument = -103;
constexpr int row_not_listed = -106;

// Class codes of the fans.
constexpr std::uint32_t power_supply_fan = 10;
constexpr std::uint32_t system_fan = 29;

constexpr const char *serial_number_marker = "/var/snmpSerialNoEnabled";

// What heads the affected object's text in notifications; empty for nothing. Written at start-up only.
constinit char serial_number[128] = "";

void read_serial_number() {
  std::memset(serial_number, 0, sizeof serial_number);
  if (marker_exists(serial_number_marker)) {
    getValueSN("fru", "Product Serial", ": ", serial_number);
  }
}

void convert_time(const Record &fault, std::size_t offset, char (&to)[32], std::int32_t &length) {
  const time_t seconds = fault.i32(offset);
  std::array<unsigned char, sizeof to> octets = {};
  std::size_t count = octets.size();
  if (convert_evsd_sel_time_to_snmp_time(&seconds, octets.data(), &count) == 0) {
    std::memcpy(to, octets.data(), count);
    length = static_cast<std::int32_t>(count);
  }
}

void convert_affected_id(const Record &fault, Row &row) {
  const std::uint32_t count = std::min<std::uint32_t>(fault.u32(FAULT_AFFECTED_OID_COUNT), FAULT_AFFECTED_OID_CAPACITY);
  for (std::uint32_t i = 0; i < count; ++i) {
    row.affected_id[i] = fault.u32(FAULT_AFFECTED_OID + i * sizeof(std::uint32_t));
  }
  row.affected_id_count = static_cast<std::int32_t>(count);
}

std::string_view affected_object_of(const Record &fault) {
  return fault.text(FAULT_AFFECTED_OBJECT, FAULT_AFFECTED_OBJECT_SIZE);
}

void convert_affected_object(const Record &fault, Row &row) {
  const std::string_view text = affected_object_of(fault);
  if (serial_number[0] == '\0') {
    copy_counted_text(row.affected_object, row.affected_object_length, text);
    return;
  }
  format_text(row.affected_object, "[Serial No: %s] %.*s", serial_number, static_cast<int>(text.size()), text.data());
  row.affected_object_length = static_cast<std::int32_t>(std::strlen(row.affected_object));
}

void signal_refresh(std::uint32_t class_code) {
  acquire_inventory_lock();
  signal_inventory_condition(static_cast<int>(class_code));
  release_inventory_lock();
}

int listed_count() TAVO_LOCKING(requires_capability(table.lock())) {
  return static_cast<int>(table.rows().count());
}

// A listed row may be read at any time, so it gets its new content in one piece.
void rewrite(Row &row, const Row &content) {
  const ListGuard guard(table.lock());
  row = content;
}

// Ends a row that has no node any more.
void drop(Row *row, bool listed) {
  if (listed) {
    tavoFaultTable_removeEntry(row);
    return;
  }
  snmp_log(LOG_DEBUG, "Clearing a Table_entry\n");
  std::free(row);
}

}  // namespace

const Column &fault_column(int number) {
  return columns[static_cast<std::size_t>(number - columns.front().number)];
}

}  // namespace tavo

using namespace tavo;

TAVO_REQUEST_ENTRY_POINTS(tavoFaultTable, tavo::table)

int init_tavoFaultTable(void) {
  read_serial_number();
  return initialize_table_tavoFaultTable();
}

int initialize_table_tavoFaultTable(void) {
  table.trace_entry(__func__, __LINE__);
  return table.register_with({.handler = tavoFaultTable_handler,
                              .first_row = tavoFaultTable_get_first_data_point,
                              .next_row = tavoFaultTable_get_next_data_point});
}

int getValueSN(const char *source, const char *key, const char *separator, char *out) {
  const std::string_view of = key;
  if (std::string_view(source) == "inventoryCPU" && (of == "CoreCount" || of == "ThreadCount" || of == "CoreEnabled")) {
    return query_counted_value(source, key, separator, out) ? 1 : 0;
  }
  return query_value(source, key, separator, out) ? 1 : 0;
}

int convert_fe_to_fault_table_entry(const void *record, FaultRow *row) {
  if (record == nullptr || row == nullptr) {
    return null_argument;
  }
  const Record fault(record, FAULT_RECORD_SIZE);
  row->index = fault.u32(FAULT_INDEX);
  copy_counted_text(row->dn, row->dn_length, fault.text(FAULT_DN, FAULT_DN_SIZE));
  copy_counted_text(row->rn, row->rn_length, fault.text(FAULT_RN, FAULT_RN_SIZE));
  convert_affected_id(fault, *row);
  convert_affected_object(fault, *row);
  row->always_one = 1;
  row->cause = fault.i32(FAULT_CAUSE);
  copy_counted_text(row->fixed_text, row->fixed_text_length, "unknown");
  row->code = fault.i32(FAULT_CODE);
  convert_time(fault, FAULT_FIRST_TIME, row->first_time, row->first_time_length);
  convert_time(fault, FAULT_LAST_TIME, row->last_time, row->last_time_length);
  copy_counted_text(row->description, row->description_length, fault.text(FAULT_DESCRIPTION, FAULT_DESCRIPTION_SIZE));
  row->always_six = 6;
  row->sequence = {.high = row->index, .low = 0};
  row->always_zero = 0;
  row->occurrences = fault.u8(FAULT_OCCURRENCES);
  row->severity = fault.i32(FAULT_SEVERITY);
  row->previous_severity = fault.u8(FAULT_PREVIOUS_SEVERITY);
  row->code_again = row->code;
  row->severity_again = row->severity;
  row->tag = fault.u8(FAULT_TAG);
  row->always_five = 5;
  return 0;
}

void update_fan_prs_and_sev(const void *record) {
  if (record == nullptr) {
    return;
  }
  const Record fault(record, FAULT_RECORD_SIZE);
  const std::uint32_t fan = fault.u32(FAULT_UNIT_POSITION);
  const std::uint32_t severity = fault.u32(FAULT_SEVERITY);
  const auto severity_octet = static_cast<std::uint8_t>(severity);
  if (fault.u32(FAULT_CLASS_CODE) != system_fan) {
    store_fan(ps_fan_sev, fan, severity_octet);
    return;
  }
  constexpr std::uint32_t fan_missing = 238;
  store_fan(sys_fan_sev, fan, severity_octet);
  store_fan(sys_fan_prs, fan, fault.u32(FAULT_CAUSE) == fan_missing && severity == 3 ? 11 : 10);
}

int populate_fault_table_from_fe(const void *record) {
  if (record == nullptr) {
    return failed;
  }
  const Record fault(record, FAULT_RECORD_SIZE);
  const std::uint32_t class_code = fault.u32(FAULT_CLASS_CODE);
  const std::uint32_t index = fault.u32(FAULT_INDEX);
  if (class_code == system_fan || class_code == power_supply_fan) {
    update_fan_prs_and_sev(record);
  }

  FaultRow *row = nullptr;
  const int found = lookup_and_modify_fault_table(record, &row);
  if (found == 0) {
    return 0;
  }
  if (row == nullptr) {
    snmp_log(LOG_DEBUG, "Failed to get Table entry for Fault Index\n");
    return failed;
  }
  const bool listed = found == 1 || found == 3;
  const bool active = found == 1 || found == 2;

  FaultRow state = *row;
  if (const int error = convert_fe_to_fault_table_entry(record, &state); error != 0) {
    snmp_log(LOG_DEBUG, "failed to convert FE to fault table entry, event id: %0x\n", class_code);
    delete_entity_node(record, row);
    drop(row, listed);
    return error;
  }
  if (needToSendTrapFlag == 1) {
    send_fault_trap(index, &state);
  }
  if (!active) {
    signal_refresh(class_code);
    delete_entity_node(record, row);
    drop(row, listed);
    return 0;
  }

  // Notifications carry the serial number, the table does not.
  char affected_object[FAULT_AFFECTED_OBJECT_SIZE + 1];
  copy_text(affected_object, affected_object_of(fault));
  copy_counted_text(state.affected_object, state.affected_object_length, affected_object);
  if (listed) {
    rewrite(*row, state);
  } else {
    *row = state;
  }
  if (tavoFaultTable_createEntry(index, row, listed ? 1 : 0, static_cast<int>(class_code), affected_object) ==
      nullptr) {
    snmp_log(LOG_DEBUG,
             listed ? "failed to create table entry for FaultIndex:%0x\n"
                    : "Failed to create table entry for FaultIndex:%0x\n",
             index);
    return row_not_listed;
  }
  return 0;
}

FaultRow *tavoFaultTable_createEntry(uint32_t, FaultRow *row, int update, int class_code, const char *text) {
  table.trace_entry(__func__, __LINE__);
  if (row == nullptr) {
    return nullptr;
  }
  {
    const ListGuard guard(table.lock());
    std::memset(row->affected_object, 0, sizeof row->affected_object);
    copy_counted_text(row->affected_object, row->affected_object_length, text == nullptr ? "" : text);
    if (update == 0) {
      table.rows().push_front(row);
      snmp_log(LOG_DEBUG, "Added an entry, Total Fault entries:%d\n", listed_count());
    } else {
      snmp_log(LOG_DEBUG, "Updated an entry, Total Fault entries:%d\n", listed_count());
    }
  }
  signal_refresh(class_code);
  return row;
}

int tavoFaultTable_removeEntry(FaultRow *row) {
  table.trace_entry(__func__, __LINE__);
  if (row == nullptr) {
    return 0;
  }
  const ListGuard guard(table.lock());
  if (guard.error() == 0 && table.rows().unlink(row)) {
    std::free(row);
    snmp_log(LOG_DEBUG, "Removed an entry, Total Fault entries:%d\n", listed_count());
  }
  return guard.error();
}

void tavoFaultTable_removeAllEntries(void) {
  const ListGuard guard(table.lock());
  snmp_log(LOG_DEBUG, "Removed %d fault entries\n", static_cast<int>(table.rows().clear()));
}

int clear_fault_table_entries(void) {
  tavoFaultTable_removeAllEntries();
  return 0;
}
