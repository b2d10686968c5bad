// tavoFaultTable: the controller's active faults. A record of the fault engine raises, updates or clears one fault,
// and each sends a notification before the table changes.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cstdint>

#include "core/column.h"

namespace tavo {

// Every text carries its length in octets, without a NUL.
struct FaultRow {
  std::uint32_t index;  // the fault index
  char dn[128];
  std::int32_t dn_length;
  char rn[32];
  std::int32_t rn_length;
  std::uint32_t affected_id[32];
  std::int32_t affected_id_count;
  char affected_object[192];
  std::int32_t affected_object_length;
  std::int32_t always_one;
  std::int32_t cause;
  char fixed_text[32];
  std::int32_t fixed_text_length;
  std::int32_t code;
  char first_time[32];  // DateAndTime
  std::int32_t first_time_length;
  char description[192];
  std::int32_t description_length;
  std::int32_t always_six;
  CounterWords sequence;
  char last_time[32];  // DateAndTime
  std::int32_t last_time_length;
  std::int32_t always_zero;
  std::uint32_t occurrences;
  std::int32_t severity;
  std::int32_t previous_severity;
  std::int32_t code_again;
  std::int32_t severity_again;  // 0: the fault is cleared
  std::uint8_t tag;
  std::int32_t always_five;
  FaultRow *next;
};

// How column `number`, 2 to 22, is answered.
const Column &fault_column(int number);

}  // namespace tavo

#pragma GCC visibility push(default)
extern "C" {

// The rows, newest first; null when there is none. Guarded by subagent lock 1. While the fault event thread runs it
// alone changes them, and what applies records below is its own. The daemon's thread starts the table up before that
// thread and clears it once the thread is joined.
extern tavo::FaultRow *tavoFaultTable_head;

// Reads the server's serial number where the controller asks for it (a marker file), then registers the table, which
// stays empty until the fault event thread fills it. The registration's result.
int init_tavoFaultTable(void);
int initialize_table_tavoFaultTable(void);

Netsnmp_Node_Handler tavoFaultTable_handler;
Netsnmp_First_Data_Point tavoFaultTable_get_first_data_point;
Netsnmp_Next_Data_Point tavoFaultTable_get_next_data_point;

// Runs one query of the platform and copies the first line that it prints, and a NUL, to `out`: 128 octets that
// the caller has zeroed. 1, or 0 when there is no such line.
int getValueSN(const char *source, const char *key, const char *separator, char *out);

// Applies one record of the fault engine: notification, table, refresh mark. 0, also for a record that is dropped for
// want of memory; -1 for a null record; -106 when the row cannot be listed.
int populate_fault_table_from_fe(const void *record);

// Fills every column of `row` from a record; a time that cannot be converted leaves its column as it was. The affected
// object's text is headed by the serial number when there is one. 0, or -103 when an argument is null.
int convert_fe_to_fault_table_entry(const void *record, tavo::FaultRow *row);

// Notes a fan's fault, or that it is gone. Class 29 is a system fan, any other a power supply's fan.
void update_fan_prs_and_sev(const void *record);

// Gives `row` the affected object's `text` as it stands, lists it (`update` 0) or takes it as listed already (1), and
// marks what the class code stands for as due for a refresh. Takes subagent lock 1, then the inventory lock. `index` is
// not used: the row has its own. Returns the row; null for a null row.
tavo::FaultRow *tavoFaultTable_createEntry(uint32_t index, tavo::FaultRow *row, int update, int class_code,
                                           const char *text);
// Takes subagent lock 1. Always 0, but for the lock's error; a null row or one that is not listed is left alone.
int tavoFaultTable_removeEntry(tavo::FaultRow *row);
// Takes subagent lock 1.
void tavoFaultTable_removeAllEntries(void);
// The same; always 0.
int clear_fault_table_entries(void);
}
#pragma GCC visibility pop
