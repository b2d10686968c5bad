// One pass of the inventory refresh: which tables are rebuilt for what has been asked for, in which order, after which
// pauses. The tables' descriptions say what makes each of them refresh.
#pragma once

#include <bitset>
#include <cstddef>
#include <span>

#include "core/table.h"

namespace tavo {

// What the other threads have asked for since the last check.
class RefreshRequests {
 public:
  // Reads the marks of the inventory lock, which it takes, and takes them away.
  static RefreshRequests take();

  void add(RefreshCause cause) { causes_.set(static_cast<std::size_t>(cause)); }
  bool has(RefreshCause cause) const { return causes_.test(static_cast<std::size_t>(cause)); }

 private:
  std::bitset<static_cast<std::size_t>(RefreshCause::Periodic)> causes_;
};

// Rebuilds each table at most once. Sleeps before some of the rebuilds, so that the platform's own view can settle, and
// logs as it goes. A rebuild that fails leaves its table as it is until the next one. No lock is held between two
// rebuilds.
class RefreshPass {
 public:
  // `tables`: those to keep fresh, at most 64, in the order of start-up.
  explicit RefreshPass(std::span<Table *const> tables) : tables_(tables) {}

  // Serves the requests in the order of RefreshCause.
  void serve(const RefreshRequests &requests);

  // Rebuilds what is refreshed periodically. `passes_before`: how many periodic refreshes there have been.
  void refresh_periodically(int passes_before);

 private:
  // Rebuilds what the cause's rules name, place by place.
  void rebuild_for(RefreshCause cause, int passes_before);

  std::span<Table *const> tables_;
  std::bitset<64> rebuilt_;  // by position in tables_
};

}  // namespace tavo
