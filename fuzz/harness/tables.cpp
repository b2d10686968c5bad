#include "fuzz/harness/tables.h"

#include <cstddef>

#include "core/column.h"
#include "fuzz/harness/door.h"

namespace tavo::fuzz {
namespace {

void serve(const Table &table, const void *row) {
  for (const Column &column : table.description().columns) {
    netsnmp_variable_list varbind = {};
    expect(ColumnValue(column, row).set(&varbind), "net-snmp takes a cell's value");
    snmp_free_var_internals(&varbind);
  }
}

}  // namespace

void serve(std::initializer_list<Table *> tables) {
  for (Table *table : tables) {
    const ListGuard guard(table->lock());
    expect(guard.error() == 0, "a table's lock is free");
    std::size_t listed = 0;
    for (const void *row = table->rows().first(); row != nullptr; row = table->rows().next(row)) {
      serve(*table, row);
      ++listed;
    }
    expect(listed == table->rows().count(), "a table counts its rows");
    const RowPointers *ordered = table->rows().ordered();
    expect(ordered != nullptr && (ordered->empty() == (listed == 0)), "a table's rows have an order");
  }
}

void empty(std::initializer_list<Table *> tables) {
  for (Table *table : tables) {
    const ListGuard guard(table->lock());
    table->remove_all();
  }
}

}  // namespace tavo::fuzz
