// tavoFaultTable: the controller's active faults. A record of the fault engine raises, updates or clears one fault,
// and each sends a notification before the table changes.
#pragma once

#include <cstdint>
#include <span>

#include "core/table_entry_points.h"

namespace tavo {

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
  CountedText<32> first_time;  // DateAndTime
  CountedText<192> description;
  std::int32_t column_12;  // always 6
  CounterWords sequence;
  CountedText<32> last_time;  // DateAndTime
  std::int32_t column_15;     // always 0
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

// While the fault event thread runs it alone changes the rows, and what applies records below is its own. The daemon's
// thread starts the table up before that thread and clears it once the thread is joined. Start-up reads the server's
// serial number where the controller asks for it (a marker file); the table stays empty until the thread fills it.
// tavoFaultTable_removeAllEntries takes the lock, unlike the other tables' functions of that name.
TAVO_DECLARE_TABLE_WITH_OWN_ROWS(tavoFaultTable, FaultRow)

#pragma GCC visibility push(default)
extern "C" {

// Runs one query of the platform and copies the first line that it prints, and a NUL, to `out`: 128 octets that
// the caller has zeroed. 1, or 0 when there is no such line.
int getValueSN(const char *source, const char *key, const char *separator, char *out);

// Applies one record of the fault engine: notification, table, refresh mark. 0, also for a record that is dropped for
// want of memory; -1 for a null record; -106 when the row cannot be listed.
int populate_fault_table_from_fe(const void *record);

// Fills every column of `row` from a record; a time that cannot be converted leaves its column as it was. The affected
// object's text is headed by the serial number when there is one. 0, or -103 when an argument is null.
int convert_fe_to_fault_table_entry(const void *record, FaultRow *row);

// Notes a fan's fault, or that it is gone. Class 29 is a system fan, any other a power supply's fan.
void update_fan_prs_and_sev(const void *record);

// Gives `row` the affected object's `text` as it stands, lists it (`update` 0) or takes it as listed already (1), and
// marks what the class code stands for as due for a refresh. Takes subagent lock 1, then the inventory lock. `index` is
// not used: the row has its own. Returns the row; null for a null row.
FaultRow *tavoFaultTable_createEntry(uint32_t index, FaultRow *row, int update, int class_code, const char *text);

// Empties the table, taking subagent lock 1. Always 0.
int clear_fault_table_entries(void);
}
#pragma GCC visibility pop

}  // namespace tavo
