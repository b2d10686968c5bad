#include "tables/faults/tavoFaultTable.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "core/class_number.h"
#include "core/conversions.h"
#include "core/health.h"
#include "core/heap.h"
#include "core/marker.h"
#include "core/record.h"
#include "core/text.h"
#include "platform/fault_engine.h"
#include "sources/data_query.h"
#include "sources/fan_state.h"
#include "tables/faults/fault_database.h"
#include "tables/faults/tavoFaultTable_traps.h"

namespace tavo {
namespace {

using Row = FaultRow;

constexpr auto root = table_root(1, 1);

TAVO_COLUMNS(tavoFaultTable, Row, dn, rn, affected_id, affected_object, column_6, cause, column_8, code, first_time,
             description, highest_severity, sequence, last_time, column_15, occurrences, severity, previous_severity,
             code_again, severity_again, tag, column_22);

constexpr const char *serial_number_marker = "/var/snmpSerialNoEnabled";

// "[Serial No: SERIAL-NUMBER] ", which begins the affected object's text in notifications, or nothing. Written only at
// start-up.
constinit char serial_number_prefix[144] = "";

void read_serial_number() {
  char serial_number[128] = "";
  serial_number_prefix[0] = '\0';
  if (marker_exists(serial_number_marker)) {
    getValueSN("fru", "Product Serial", ": ", serial_number);
  }
  if (serial_number[0] != '\0') {
    format_text(serial_number_prefix, "[Serial No: %s] ", serial_number);
  }
}

constexpr TableDescription description = {
    .name = "tavoFaultTable",
    .root = root,
    .lock = fault_list_lock,
    .columns = columns,
    .row = layout_of<Row>(),
    .started = "Fault Init done\n",
    .prepare = read_serial_number,
    .keeps_registration = false,
};

}  // namespace

TAVO_DEFINE_TABLE_WITH_OWN_ROWS(tavoFaultTable, Row, description)

namespace {

constexpr int failed = -1;
constexpr int null_argument = -103;
constexpr int row_not_listed = -106;

void convert_affected_id(const Record &fault, Row &row) {
  const std::uint32_t count = std::min<std::uint32_t>(fault.u32(FAULT_AFFECTED_OID_COUNT), FAULT_AFFECTED_OID_CAPACITY);
  for (std::uint32_t i = 0; i < count; ++i) {
    row.affected_id.sub_identifiers[i] = fault.u32(FAULT_AFFECTED_OID + i * sizeof(std::uint32_t));
  }
  row.affected_id.count = static_cast<std::int32_t>(count);
}

std::string_view affected_object_of(const Record &fault) {
  return fault.text(FAULT_AFFECTED_OBJECT, FAULT_AFFECTED_OBJECT_SIZE);
}

void convert_affected_object(const Record &fault, Row &row) {
  const std::string_view object = affected_object_of(fault);
  char text[sizeof row.affected_object.text];
  format_text(text, "%s%.*s", serial_number_prefix, static_cast<int>(object.size()), object.data());
  row.affected_object.assign(text);
}

int listed_count() TAVO_LOCKING(requires_capability(table.lock())) {
  return static_cast<int>(table.rows().count());
}

// Gives a listed row its new content in one piece, since a request may read it at any time.
void rewrite(Row &row, const Row &content) {
  const ListGuard guard(table.lock());
  row = content;
}

// How many rows have gone since memory was last given back. Guarded by the table's lock.
constinit std::size_t rows_gone = 0;

// Counts `gone` rows. True if their memory is to be given back: as many have gone as are left.
bool is_mass_gone(std::size_t gone) TAVO_LOCKING(requires_capability(table.lock())) {
  constexpr std::size_t least = 64;  // 64 KiB
  rows_gone += gone;
  if (rows_gone < std::max<std::size_t>(table.rows().count(), least)) {
    return false;
  }
  rows_gone = 0;
  return true;
}

// Takes `row` out of the list with `unlink`, which tells whether it was there, and frees it. 0, or the lock's error.
template <class Unlink>
int remove(Row *row, Unlink unlink) {
  bool mass_gone = false;
  {
    const ListGuard guard(table.lock());
    if (guard.error() != 0) {
      return guard.error();
    }
    if (unlink(table.rows())) {
      std::free(row);
      mass_gone = is_mass_gone(1);
      snmp_log(LOG_DEBUG, "Removed an entry, Total Fault entries:%d\n", listed_count());
    }
  }
  if (mass_gone) {
    give_memory_back();
  }
  return 0;
}

// Ends the record's node and its row. Rows of one class have the order of their nodes, so a listed row is close behind
// that of the node before.
void drop(const void *record, Row *row, bool listed) {
  Row *const before = row_of_node_before(record);
  delete_entity_node(record, row);
  if (listed) {
    table.trace_entry(TracedFunction::RemoveEntry);
    remove(row, [row, before](RowList &rows) { return rows.unlink(row, before); });
    return;
  }
  snmp_log(LOG_DEBUG, "Clearing a Table_entry\n");
  std::free(row);
}

// Shows an active fault in the table, in `row`. 0, or row_not_listed.
int show(const Record &fault, Row *row, bool listed, Row content) {
  // Only notifications carry the serial number.
  content.affected_object.assign(affected_object_of(fault));
  if (listed) {
    rewrite(*row, content);
  } else {
    *row = content;
  }
  if (tavoFaultTable_createEntry(content.index, row, listed ? 1 : 0, fault.i32(FAULT_CLASS_CODE),
                                 content.affected_object.text) != nullptr) {
    return 0;
  }
  snmp_log(LOG_DEBUG,
           listed ? "failed to create table entry for FaultIndex:%0x\n"
                  : "Failed to create table entry for FaultIndex:%0x\n",
           content.index);
  return row_not_listed;
}

}  // namespace

std::span<const Column> fault_columns() {
  return columns;
}

void assign_time(DateAndTime &to, std::int64_t seconds) {
  std::array<unsigned char, sizeof to.text> octets = {};
  std::size_t count = octets.size();
  if (write_date_and_time(seconds, octets.data(), &count) == 0) {
    std::memcpy(to.text, octets.data(), count);
    to.length = static_cast<std::int32_t>(count);
  }
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
  row->dn.assign(fault.text(FAULT_DN, FAULT_DN_SIZE));
  row->rn.assign(fault.text(FAULT_RN, FAULT_RN_SIZE));
  convert_affected_id(fault, *row);
  convert_affected_object(fault, *row);
  row->column_6 = 1;
  row->cause = fault.i32(FAULT_CAUSE);
  row->column_8.assign("unknown");
  row->code = fault.i32(FAULT_CODE);
  assign_time(row->first_time, fault.i32(FAULT_FIRST_TIME));
  assign_time(row->last_time, fault.i32(FAULT_LAST_TIME));
  row->description.assign(fault.text(FAULT_DESCRIPTION, FAULT_DESCRIPTION_SIZE));
  row->highest_severity = 6;
  row->sequence = {.high = row->index, .low = 0};
  row->column_15 = 0;
  row->occurrences = {fault.u8(FAULT_OCCURRENCES)};
  row->severity = fault.i32(FAULT_SEVERITY);
  row->previous_severity = fault.u8(FAULT_PREVIOUS_SEVERITY);
  row->code_again = row->code;
  row->severity_again = row->severity;
  row->tag = fault.u8(FAULT_TAG);
  row->column_22 = 5;
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
  if (fault.u32(FAULT_CLASS_CODE) != class_number::system_fan) {
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
  const std::int32_t class_code = fault.i32(FAULT_CLASS_CODE);
  if (class_code == class_number::system_fan || class_code == class_number::power_supply_fan) {
    update_fan_prs_and_sev(record);
  }

  FaultRow *row = nullptr;
  const int found = lookup_and_modify_fault_table(record, &row);
  const bool notifies = found != FaultDropped && needToSendTrapFlag == 1;
  // Before the notification: who gets it finds the change reported.
  report(tavo_fault_changed, record, notifies);
  if (found == FaultDropped) {
    return 0;
  }
  if (row == nullptr) {
    snmp_log(LOG_DEBUG, "Failed to get Table entry for Fault Index\n");
    return failed;
  }
  const bool listed = found == FaultUpdated || found == FaultCleared;

  FaultRow content = *row;
  if (const int error = convert_fe_to_fault_table_entry(record, &content); error != 0) {
    snmp_log(LOG_DEBUG, "failed to convert FE to fault table entry, event id: %0x\n", class_code);
    drop(record, row, listed);
    return error;
  }
  if (notifies) {
    send_fault_trap(content.index, &content);
  }
  if (found == FaultRaised || found == FaultUpdated) {
    return show(fault, row, listed, content);
  }
  request_refresh(class_code);
  drop(record, row, listed);
  return 0;
}

FaultRow *tavoFaultTable_createEntry(uint32_t, FaultRow *row, int update, int class_code, const char *text) {
  table.trace_entry(TracedFunction::CreateEntry);
  if (row == nullptr) {
    return nullptr;
  }
  {
    const ListGuard guard(table.lock());
    row->affected_object = {};
    row->affected_object.assign(text == nullptr ? "" : text);
    if (update == 0) {
      table.rows().push_front(row);
      snmp_log(LOG_DEBUG, "Added an entry, Total Fault entries:%d\n", listed_count());
    } else {
      snmp_log(LOG_DEBUG, "Updated an entry, Total Fault entries:%d\n", listed_count());
    }
  }
  request_refresh(class_code);
  return row;
}

int tavoFaultTable_removeEntry(FaultRow *row) {
  table.trace_entry(TracedFunction::RemoveEntry);
  if (row == nullptr) {
    return 0;
  }
  return remove(row, [row](RowList &rows) {
    const bool was_listed = rows.unlink(row);
    if (was_listed) {
      free_node_of(row);
    }
    return was_listed;
  });
}

void tavoFaultTable_removeAllEntries(void) {
  const ListGuard guard(table.lock());
  free_entity_nodes();
  snmp_log(LOG_DEBUG, "Removed %d fault entries\n", static_cast<int>(table.rows().clear()));
}

int clear_fault_table_entries(void) {
  tavoFaultTable_removeAllEntries();
  return 0;
}

}  // namespace tavo
