#include "host/fault_mib.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <optional>
#include <span>

#include "host/mib_value.h"

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

// A row's index: as many numbers as the table has index columns.
constexpr std::size_t most_indexes = 2;
using Index = std::array<std::uint32_t, most_indexes>;

struct RowTable {
  const char *name;
  oid number;           // below tavoSubagentObjects
  std::size_t indexes;  // index columns, which come first and are not served
  std::span<const Column> columns;
  // The row with the lowest index that is not below `from`; null if there is none.
  FaultChangePtr (*first_row)(const FaultHistory &history, const Index &from);
  Index (*index_of)(const FaultChange &row);
};

constexpr auto tables = std::to_array<RowTable>({
    {.name = "tavoSubagentFaultTable",
     .number = 9,
     .indexes = 2,
     .columns = fault_columns,
     .first_row = [](const FaultHistory &history,
                     const Index &from) { return history.first_active({.class_code = from[0], .index = from[1]}); },
     .index_of = [](const FaultChange &row) -> Index {
       return {row.fault.class_code, row.fault.index};
     }},
    {.name = "tavoSubagentChangeTable",
     .number = 10,
     .indexes = 1,
     .columns = change_columns,
     .first_row = [](const FaultHistory &history, const Index &from) { return history.first_change(from[0]); },
     .index_of = [](const FaultChange &row) -> Index {
       return {row.number, 0};
     }},
});

// The lowest index that follows `name`, of which the end may be missing. Empty after the highest.
std::optional<Index> index_after(std::span<const oid> name, std::size_t indexes) {
  Index next{};
  std::ranges::transform(name.first(std::min(name.size(), indexes)), next.begin(),
                         [](oid number) { return static_cast<std::uint32_t>(number); });
  if (name.size() < indexes) {
    return next;
  }
  for (std::size_t i = indexes; i-- > 0;) {
    if (++next[i] != 0) {
      return next;
    }
  }
  return std::nullopt;
}

std::span<const oid> index_in(const netsnmp_table_request_info &cell) {
  return {cell.index_oid, cell.index_oid_len};
}

FaultChangePtr exact_row(const RowTable &table, const FaultHistory &history, std::span<const oid> name) {
  if (name.size() != table.indexes) {
    return nullptr;
  }
  Index index{};
  std::ranges::transform(name, index.begin(), [](oid number) { return static_cast<std::uint32_t>(number); });
  const FaultChangePtr row = table.first_row(history, index);
  return row != nullptr && table.index_of(*row) == index ? row : nullptr;
}

FaultChangePtr next_row(const RowTable &table, const FaultHistory &history, std::span<const oid> name) {
  const auto index = index_after(name, table.indexes);
  return index ? table.first_row(history, *index) : nullptr;
}

MibValue value_in(const RowTable &table, std::size_t column, const FaultChange &row) {
  return table.columns[column - table.indexes - 1](row);
}

void name_cell(const netsnmp_handler_registration &registration, const RowTable &table, std::size_t column,
               const FaultChange &row, netsnmp_variable_list *varbind) {
  std::array<oid, health_object_length + 2 + most_indexes> name{};
  auto end = std::ranges::copy_n(registration.rootoid, health_object_length, name.begin()).out;
  *end++ = 1;
  *end++ = column;
  end = std::ranges::copy_n(table.index_of(row).begin(), static_cast<std::ptrdiff_t>(table.indexes), end).out;
  snmp_set_var_objid(varbind, name.data(), static_cast<std::size_t>(end - name.begin()));
}

// A GETNEXT goes on to the next column when a column ends, and is left unanswered after the last one.
void answer_next(const netsnmp_handler_registration &registration, const RowTable &table, const FaultHistory &history,
                 netsnmp_agent_request_info *info, netsnmp_request_info *request,
                 const netsnmp_table_request_info &cell) {
  std::size_t column = cell.colnum;
  FaultChangePtr row = next_row(table, history, index_in(cell));
  if (row == nullptr) {
    ++column;
    row = next_row(table, history, {});
  }
  if (row != nullptr && column <= cell.reg_info->max_column) {
    name_cell(registration, table, column, *row, request->requestvb);
    answer(info, request, value_in(table, column, *row));
  }
}

int answer_rows(netsnmp_mib_handler * /*handler*/, netsnmp_handler_registration *registration,
                netsnmp_agent_request_info *info, netsnmp_request_info *requests) {
  const auto &history = *static_cast<const FaultHistory *>(registration->my_reg_void);
  const auto table = std::ranges::find(tables, registration->rootoid[health_object_length - 1], &RowTable::number);
  for (; requests != nullptr; requests = requests->next) {
    const netsnmp_table_request_info *cell = netsnmp_extract_table_info(requests);
    if (requests->processed != 0 || cell == nullptr) {
      continue;
    }
    if (info->mode == MODE_GETNEXT) {
      answer_next(*registration, *table, history, info, requests, *cell);
    } else if (const FaultChangePtr row = exact_row(*table, history, index_in(*cell)); row != nullptr) {
      answer(info, requests, value_in(*table, cell->colnum, *row));
    } else {
      netsnmp_set_request_error(info, requests, SNMP_NOSUCHINSTANCE);
    }
  }
  return SNMP_ERR_NOERROR;
}

int register_rows(const RowTable &table, const FaultHistory &history) {
  netsnmp_handler_registration *registration = new_registration(table.name, table.number, answer_rows, &history);
  auto *info = SNMP_MALLOC_TYPEDEF(netsnmp_table_registration_info);
  if (registration == nullptr || info == nullptr) {
    netsnmp_handler_registration_free(registration);
    std::free(info);
    return MIB_REGISTRATION_FAILED;
  }
  for (std::size_t i = 0; i < table.indexes; ++i) {
    netsnmp_table_helper_add_indexes(info, ASN_UNSIGNED, 0);
  }
  info->min_column = static_cast<unsigned int>(table.indexes + 1);
  info->max_column = static_cast<unsigned int>(table.indexes + table.columns.size());
  return netsnmp_register_table(registration, info);
}

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
  for (const RowTable &table : tables) {
    log_unless_registered(register_rows(table, history), table.name);
  }
}

}  // namespace tavo
