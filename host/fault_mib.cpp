#include "host/fault_mib.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "host/mib_value.h"
#include "host/row_table.h"

namespace tavo {
namespace {

// The scalars in the order of their numbers, which begin with 1.
using Scalar = MibValue (*)(const FaultSummary &);

constexpr auto scalars = std::to_array<Scalar>({
    [](const FaultSummary &faults) { return gauge(faults.epoch); },
    [](const FaultSummary &faults) { return counter(faults.changes); },
    [](const FaultSummary &faults) { return counter(faults.notified); },
    [](const FaultSummary &faults) { return gauge(faults.oldest); },
    [](const FaultSummary &faults) { return gauge(faults.active); },
    [](const FaultSummary &faults) { return truth(faults.complete); },
});

// All values in one answer are those of one moment.
int answer_scalars(netsnmp_mib_handler * /*handler*/, netsnmp_handler_registration *registration,
                   netsnmp_agent_request_info *info, netsnmp_request_info *requests) {
  const FaultSummary faults = static_cast<const FaultHistory *>(registration->my_reg_void)->summary();
  for (; requests != nullptr; requests = requests->next) {
    answer(info, requests, scalars[requests->requestvb->name[health_object_length] - 1](faults));
  }
  return SNMP_ERR_NOERROR;
}

using Column = MibValue (*)(const FaultChange &);

// The last columns of both tables.
constexpr auto details = std::to_array<Column>({
    [](const FaultChange &change) { return date_and_time(change.time); },
    [](const FaultChange &change) { return enumeration(static_cast<std::int32_t>(change.severity)); },
    [](const FaultChange &change) { return text(change.affected_object()); },
    [](const FaultChange &change) { return text(change.description()); },
    [](const FaultChange &change) { return enumeration(change.code); },
    [](const FaultChange &change) { return enumeration(change.cause); },
    [](const FaultChange &change) { return counter(change.occurrences); },
    [](const FaultChange &change) { return date_and_time(change.first_time); },
    [](const FaultChange &change) { return date_and_time(change.last_time); },
});

template <std::size_t Count>
constexpr auto followed_by_details(const std::array<Column, Count> &first) {
  std::array<Column, Count + details.size()> all{};
  std::ranges::copy(details, std::ranges::copy(first, all.begin()).out);
  return all;
}

constexpr auto fault_columns = followed_by_details(std::to_array<Column>({
    [](const FaultChange &change) { return gauge(change.number); },
}));

constexpr auto change_columns = followed_by_details(std::to_array<Column>({
    [](const FaultChange &change) { return enumeration(change.kind); },
    [](const FaultChange &change) { return truth(change.notified); },
    [](const FaultChange &change) { return gauge(change.fault.class_code); },
    [](const FaultChange &change) { return gauge(change.fault.index); },
}));

using FaultTable = RowTable<FaultHistory, FaultChangePtr>;

constexpr FaultTable fault_table = {
    .name = "tavoSubagentFaultTable",
    .number = 9,
    .indexes = 2,
    .columns = fault_columns,
    .first_row = [](const FaultHistory &history,
                    const RowIndex &from) { return history.first_active({.class_code = from[0], .index = from[1]}); },
    .index_of = [](const FaultChange &row) -> RowIndex {
      return {row.fault.class_code, row.fault.index};
    },
};

constexpr FaultTable change_table = {
    .name = "tavoSubagentChangeTable",
    .number = 10,
    .indexes = 1,
    .columns = change_columns,
    .first_row = [](const FaultHistory &history, const RowIndex &from) { return history.first_change(from[0]); },
    .index_of = [](const FaultChange &row) -> RowIndex {
      return {row.number, 0};
    },
};

int register_scalars(const FaultHistory &history, const char *name) {
  constexpr oid number = 8;
  netsnmp_handler_registration *registration = new_registration(name, number, answer_scalars, &history);
  return registration == nullptr ? MIB_REGISTRATION_FAILED
                                 : netsnmp_register_scalar_group(registration, 1, scalars.size());
}

}  // namespace

void serve_faults(const FaultHistory &history) {
  constexpr const char *name = "tavoSubagentFaults";
  log_unless_registered(register_scalars(history, name), name);
  serve_rows<fault_table>(history);
  serve_rows<change_table>(history);
}

}  // namespace tavo
