// A table's golden list: every cell that the table serves, with its type and its value.
#pragma once

#include <span>
#include <vector>

#include "tests/harness/manager.h"

namespace tavo::fakes {

struct Cell {
  oid column;
  oid index;
  Value value;
};

// Fails the test unless the table serves exactly these cells, each with its type and value: by a GET of each cell, by
// GETs of twenty cells in one PDU, by a GETNEXT walk, and by GETBULK walks at several repetitions. `table`: the table's
// OID, without the entry. The cells come in any order.
void expect_table(std::span<const oid> table, const std::vector<Cell> &cells);

}  // namespace tavo::fakes
