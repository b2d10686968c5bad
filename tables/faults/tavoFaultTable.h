// tavoFaultTable: the controller's active faults. Each record of the fault engine raises, updates or clears one fault,
// and sends a notification before the table changes.
#pragma once

#include <cstdint>
#include <span>

#include "core/table_entry_points.h"

namespace tavo {

// 8 octets in the controller's local time, or empty (see convert_evsd_sel_time_to_snmp_time).
using DateAndTime = CountedText<32>;

struct FaultRow {
  std::uint32_t index;  // the fault index
  CountedText<128> dn;
  CountedText<32> rn;
  ObjectIdentifier<32> affected_id;
  CountedText<192> affected_object;
  std::int32_t column_6;  // always 1
  std::int32_t cause;
  CountedText<32> column_8;  // always "unknown"
  std::int32_t code;
  DateAndTime first_time;
  CountedText<192> description;
  std::int32_t highest_severity;  // always 6
  CounterWords sequence;          // the fault index in the high word, 0 in the low one
  DateAndTime last_time;
  std::int32_t column_15;  // always 0
  Counter32 occurrences;
  std::int32_t severity;
  std::int32_t previous_severity;
  std::int32_t code_again;
  std::int32_t severity_again;  // 0: the fault is cleared
  std::uint8_t tag;
  std::int32_t column_22;  // always 5
  FaultRow *next;
};

// The table's columns, from first_column on.
std::span<const Column> fault_columns();

// Converts `seconds` since 1970, or leaves `to` alone if they cannot be converted.
void assign_time(DateAndTime &to, std::int64_t seconds);

// Start-up registers an empty table and, if the marker file asks for it, reads the server's serial number. The fault
// event thread then fills the table; while it runs, it alone changes the rows and calls the functions below. Before it
// starts and after it is joined, they are the daemon's thread's to call.
//
// tavoFaultTable_removeAllEntries takes the lock itself, unlike most tables' functions of that name. Rows that are
// removed take their nodes of the fault database along. The table cannot be de-registered.
TAVO_DECLARE_TABLE_WITH_OWN_ROWS(tavoFaultTable, FaultRow)

#pragma GCC visibility push(default)
extern "C" {

// Runs one of the platform's queries and copies the first line that it prints, with a NUL, to `out`: 128 octets that
// the caller has zeroed. 1, or 0 if there is no such line.
int getValueSN(const char *source, const char *key, const char *separator, char *out);

// Applies one record of the fault engine: notification, table, refresh mark. 0, even if the record is dropped because
// memory is short; -1 for a null record; -106 if the row cannot be listed.
int populate_fault_table_from_fe(const void *record);

// Fills every column of `row` from a record; a time that cannot be converted leaves its column as it was. If there is a
// serial number, the affected object's text begins with it. 0, or -103 if an argument is null.
int convert_fe_to_fault_table_entry(const void *record, FaultRow *row);

// Records the severity of a fan's fault, 0 if the fault is cleared, and a system fan's presence. A record whose class
// is not class_number::system_fan is taken to be about a power supply's fan.
void update_fan_prs_and_sev(const void *record);

// Gives `row` the affected object's `text` as it is, adds the row to the list if `update` is 0, and marks what the
// class code stands for as due for a refresh. Takes the table's lock, then the inventory lock. `index` is not used: the
// row has its own. Returns the row; null for a null row.
FaultRow *tavoFaultTable_createEntry(uint32_t index, FaultRow *row, int update, int class_code, const char *text);

// Calls tavoFaultTable_removeAllEntries. Always 0.
int clear_fault_table_entries(void);
}
#pragma GCC visibility pop

}  // namespace tavo
