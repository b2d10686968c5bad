// A table of the daemon's own MIB: each request asks for its row, so that net-snmp keeps none. It would take more than
// a KiB for each.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <type_traits>
#include <utility>

#include "host/mib_value.h"

namespace tavo {

// A row's index: as many numbers as the table has index columns.
using RowIndex = std::array<std::uint32_t, 2>;

// `Row` converts to false if there is none, and leads to what the columns show.
template <class OwnerType, class Row>
struct RowTable {
  using Owner = OwnerType;
  using Content = std::remove_reference_t<decltype(*std::declval<const Row &>())>;
  using Column = MibValue (*)(const Content &);

  const char *name;
  oid number;           // below tavoSubagentObjects
  std::size_t indexes;  // index columns, which come first and are not served
  std::span<const Column> columns;
  // The row with the lowest index that is not below `from`.
  Row (*first_row)(const Owner &owner, const RowIndex &from);
  RowIndex (*index_of)(const Content &row);

  // The row of exactly this index.
  Row exact_row(const Owner &owner, const std::optional<RowIndex> &index) const {
    Row row = index ? first_row(owner, *index) : Row{};
    return row && index_of(*row) == *index ? std::move(row) : Row{};
  }
  Row next_row(const Owner &owner, const std::optional<RowIndex> &index) const {
    return index ? first_row(owner, *index) : Row{};
  }
  // The value in `column`, of which the first is 1.
  MibValue value(std::size_t column, const Content &row) const { return columns[column - indexes - 1](row); }
};

// The index that `name` spells out; empty if that is no whole index.
std::optional<RowIndex> exact_index(std::span<const oid> name, std::size_t indexes);

// The lowest index that follows `name`, of which the end may be missing. Empty after the highest.
std::optional<RowIndex> index_after(std::span<const oid> name, std::size_t indexes);

void name_cell(const netsnmp_handler_registration &registration, std::size_t column,
               std::span<const std::uint32_t> index, netsnmp_variable_list *varbind);

// Registers a table with so many index columns and so many others. What cannot be registered is logged and not served.
void register_rows(netsnmp_handler_registration *registration, const char *name, std::size_t indexes,
                   std::size_t columns);

// A GETNEXT goes on to the next column when a column ends, and is left unanswered after the last one.
template <class Owner, class Row>
void answer_next(const RowTable<Owner, Row> &table, const Owner &owner,
                 const netsnmp_handler_registration &registration, netsnmp_agent_request_info *info,
                 netsnmp_request_info *request, const netsnmp_table_request_info &cell) {
  std::size_t column = cell.colnum;
  Row row = table.next_row(owner, index_after({cell.index_oid, cell.index_oid_len}, table.indexes));
  if (!row) {
    ++column;
    row = table.first_row(owner, {});
  }
  if (row && column <= cell.reg_info->max_column) {
    const RowIndex index = table.index_of(*row);
    name_cell(registration, column, std::span(index).first(table.indexes), request->requestvb);
    answer(info, request, table.value(column, *row));
  }
}

template <const auto &table>
using OwnerOf = typename std::remove_cvref_t<decltype(table)>::Owner;

// The table's handler, for a registration whose owner the table's is.
template <const auto &table>
int answer_rows(netsnmp_mib_handler * /*handler*/, netsnmp_handler_registration *registration,
                netsnmp_agent_request_info *info, netsnmp_request_info *requests) {
  const auto &owner = *static_cast<const OwnerOf<table> *>(registration->my_reg_void);
  for (; requests != nullptr; requests = requests->next) {
    const netsnmp_table_request_info *cell = netsnmp_extract_table_info(requests);
    if (requests->processed != 0 || cell == nullptr) {
      continue;
    }
    if (info->mode == MODE_GETNEXT) {
      answer_next(table, owner, *registration, info, requests, *cell);
    } else if (const auto row =
                   table.exact_row(owner, exact_index({cell->index_oid, cell->index_oid_len}, table.indexes))) {
      answer(info, requests, table.value(cell->colnum, *row));
    } else {
      netsnmp_set_request_error(info, requests, SNMP_NOSUCHINSTANCE);
    }
  }
  return SNMP_ERR_NOERROR;
}

// Serves `table` from what `owner` knows, which must live as long as the agent.
template <const auto &table>
void serve_rows(const OwnerOf<table> &owner) {
  register_rows(new_registration(table.name, table.number, answer_rows<table>, &owner), table.name, table.indexes,
                table.columns.size());
}

}  // namespace tavo
