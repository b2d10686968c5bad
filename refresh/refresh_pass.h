// One pass of the inventory refresh: which tables it rebuilds for which requests, in which order and after which
// pauses. The rules themselves are in the tables' descriptions.
#pragma once

#include <bitset>
#include <cstddef>
#include <span>

#include "core/table.h"

namespace tavo {

// What other threads have requested since the last pass.
class RefreshRequests {
 public:
  // Reads and clears the pending marks, taking the inventory lock.
  static RefreshRequests take();

  void add(RefreshCause cause) { causes_[static_cast<std::size_t>(cause)] = true; }
  bool has(RefreshCause cause) const { return causes_[static_cast<std::size_t>(cause)]; }

 private:
  std::bitset<static_cast<std::size_t>(RefreshCause::Periodic)> causes_;
};

// Rebuilds each table at most once. Sleeps before some of the rebuilds, so that the platform can settle, and logs the
// requests that it serves. A table whose rebuild fails stays as the rebuild left it until its next one. No lock is held
// between two rebuilds.
class RefreshPass {
 public:
  static constexpr std::size_t most_tables = 64;

  // `tables`: the tables to keep fresh, at most most_tables, in the order of start-up.
  explicit RefreshPass(std::span<Table *const> tables) : tables_(tables) {}

  // Serves the requests, in the order of RefreshCause.
  void serve(const RefreshRequests &requests);

  // Rebuilds all tables that have a builder, whatever their rules.
  void rebuild_all();

  // Rebuilds the tables with a periodic rule. `passes_before`: the number of periodic refreshes so far.
  void refresh_periodically(int passes_before);

 private:
  // Rebuilds the tables with a rule for this cause, place by place.
  void rebuild_for(RefreshCause cause, int passes_before);
  // Rebuilds the table at this position, unless this pass has done so, and looks for a shortage.
  void rebuild(std::size_t position);

  std::span<Table *const> tables_;
  std::bitset<most_tables> rebuilt_;  // by position in tables_
};

}  // namespace tavo
