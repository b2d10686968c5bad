#include "tables/faults/tavoFaultTable_traps.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <memory>
#include <optional>
#include <span>
#include <utility>

#include "core/calendar.h"
#include "core/marker.h"
#include "core/trace.h"

namespace tavo {

int needToSendTrapFlag = 0;
oid trap_version_id[9] = {1, 3, 6, 1, 4, 1, 61453, 1, 3301};

namespace {

using Row = FaultRow;

constexpr const char *source = "tavoFaultTable";
constexpr int null_argument = -103;

constexpr auto trap_oid_name = std::to_array<oid>({1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0});  // snmpTrapOID.0
constexpr auto fault_raised = below_server_root(0, 1);
constexpr auto fault_cleared = below_server_root(0, 2);
constexpr auto start_time_name = below_server_root(1, 1, 1, 1, 10, 0);

// What a fault's notification carries after snmpTrapOID, in this order: fields of its row, each sent as its column. To
// add a varbind, add a line here, and list its object in mibs/TAVO-FAULT-MIB and docs/notifications.md.
constexpr auto notified_fields = std::to_array<std::size_t>({
    offsetof(Row, index),
    offsetof(Row, description),
    offsetof(Row, affected_id),
    offsetof(Row, affected_object),
    offsetof(Row, first_time),
    offsetof(Row, last_time),
    offsetof(Row, code),
    offsetof(Row, column_22),
    offsetof(Row, cause),
    offsetof(Row, severity_again),
    offsetof(Row, occurrences),
    offsetof(Row, sequence),
});

struct NumberedColumn {
  std::size_t number;
  Column column;
};

// The column that shows a field of the row. The index has one here, too, although no GET can read it.
NumberedColumn column_showing(std::size_t field) {
  if (field == offsetof(Row, index)) {
    return {.number = 1, .column = column_of<decltype(Row::index)>(offsetof(Row, index))};
  }
  const std::span<const Column> columns = fault_columns();
  const auto found = std::ranges::find(columns, field, &Column::offset);
  return {.number = first_column + static_cast<std::size_t>(found - columns.begin()), .column = *found};
}

struct FreeVarbinds {
  void operator()(netsnmp_variable_list *list) const { snmp_free_varbind(list); }
};
using Varbinds = std::unique_ptr<netsnmp_variable_list, FreeVarbinds>;

[[nodiscard]] bool append(netsnmp_variable_list **list, std::span<const oid> name, u_char type, const void *value,
                          std::size_t size) {
  return snmp_varlist_add_variable(list, name.data(), name.size(), type, value, size) != nullptr;
}

[[nodiscard]] bool append_field(netsnmp_variable_list **list, std::size_t field, std::uint32_t instance,
                                const Row &row) {
  const auto [number, column] = column_showing(field);
  return ColumnValue(column, &row).append(list, below_server_root(1, 1, 1, 1, number, instance));
}

// Null if memory is short.
Varbinds fault_varbinds(std::uint32_t instance, const Row &row) {
  const std::span<const oid> trap_oid = row.severity_again != 0 ? fault_raised : fault_cleared;
  netsnmp_variable_list *list = nullptr;
  bool complete = append(&list, trap_oid_name, ASN_OBJECT_ID, trap_oid.data(), trap_oid.size_bytes());
  for (const std::size_t field : notified_fields) {
    complete = complete && append_field(&list, field, instance, row);
  }
  Varbinds varbinds(list);
  return complete ? std::move(varbinds) : nullptr;
}

// The time is sent empty if it is not known.
void send_start_up_notification() {
  DateAndTime now = {};
  if (const std::optional<std::int64_t> seconds = time_of_day()) {
    assign_time(now, *seconds);
  }
  netsnmp_variable_list *list = nullptr;
  const bool complete = append(&list, start_time_name, ASN_OCTET_STR, now.text, static_cast<std::size_t>(now.length));
  const Varbinds varbinds(list);
  if (complete) {
    send_enterprise_trap_vars(1, -1, trap_version_id, std::size(trap_version_id), varbinds.get());
  }
}

}  // namespace

int send_fault_trap(uint32_t instance, FaultRow *row) {
  if (row == nullptr) {
    trace(Caller::here(), source, "%s: Invalid args\n", __func__);
    return null_argument;
  }
  const Varbinds varbinds = fault_varbinds(instance, *row);
  if (varbinds == nullptr) {
    return -1;
  }
  send_v3trap(varbinds.get(), "0x8000F00D0300002A6B7C8D01");
  return 0;
}

int create_dummy_trap_entry(FaultRow *row) {
  if (row == nullptr) {
    trace(Caller::here(), source, "%s: Invalid args\n", __func__);
    return null_argument;
  }
  row->dn.assign("sys/rack-unit-1/test-trap");
  row->rn.assign("test-trap");
  row->affected_object.assign("sys/rack-unit-1/test-entity");
  row->column_6 = 1;
  row->cause = 0;
  row->column_8.assign("unknown");
  row->code = 0;
  row->description.assign("Test Fault");
  row->highest_severity = 6;
  row->sequence = {.high = 1, .low = 0};
  row->column_15 = 0;
  row->occurrences = {1};
  // Severity 0 makes the test notification a clear, which is what managers expect.
  row->severity = 0;
  row->previous_severity = 0;
  row->code_again = 0;
  row->severity_again = 0;
  row->tag = 0;
  row->column_22 = 5;
  return 0;
}

void tvmc_Startup_Trap(void) {
  if (marker_exists(warm_start_marker)) {
    std::atomic_ref<int>(needToSendTrapFlag).store(0);
    return;
  }
  sleep(60);
  send_start_up_notification();
  if (std::FILE *marker = std::fopen(warm_start_marker, "we"); marker != nullptr) {
    std::fclose(marker);
  }
  std::atomic_ref<int>(needToSendTrapFlag).store(1);
  sleep(1);
}

}  // namespace tavo
