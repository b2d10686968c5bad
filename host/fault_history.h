// The changes of faults that the module has reported (core/health.h), numbered, and the faults that are active by them.
//
// A manager that knows the number of the last change it has seen can read the changes since, as long as they are kept,
// and otherwise read the active faults. Faults are told apart by class and index, as the fault engine does it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

#include "host/fault_change.h"

namespace tavo {

struct FaultSummary {
  // Another one at each start, and whenever numbers do not follow from those before: then a manager begins anew.
  std::uint32_t epoch;
  std::uint32_t changes = 0;   // the number of the last one
  std::uint32_t notified = 0;  // how many of them a notification tells of
  std::uint32_t oldest = 0;    // the number of the first one that is kept; 0 if none is
  std::size_t active = 0;      // faults
  // False as long as active faults may be missing: before the first load, when the fault engine's list could not be
  // read, and when memory was short.
  bool complete = false;
};

// Any thread may call everything here.
class FaultHistory {
 public:
  // What the module's reports reach. Never destroyed, because a thread of the module may outlive main().
  static FaultHistory &instance();

  // `last_number`: what the first change's number follows.
  explicit FaultHistory(std::uint32_t last_number = 0);

  // How many changes are kept; none at first. Call it before the first one.
  void keep(std::size_t limit) { limit_ = limit; }

  // Like the reports. A change for which there is no memory is not kept; a new epoch begins, and the active faults are
  // not complete until they have been loaded again.
  void changed(const void *record, bool notified) noexcept;
  void load_begins() noexcept;
  void load_ends(bool whole) noexcept;

  FaultSummary summary() const;
  // The last change of an active fault. Null if the fault is not active.
  FaultChangePtr active(FaultKey fault) const;
  // That of the active fault whose key is the lowest that is not below `from`. Null if there is none.
  FaultChangePtr first_active(FaultKey from) const;
  // The change with the lowest number that is not below `from`. Null if there is none.
  FaultChangePtr first_change(std::uint32_t from) const;

 private:
  // Numbers the change and keeps it.
  void add(FaultChangeFields change, std::string_view affected_object, std::string_view description);
  void remove_unreported(std::uint32_t before_load);
  // When most faults have gone.
  void give_room_back();
  void begin_epoch();
  void lose_track();

  std::size_t limit_ = 0;
  mutable std::mutex mutex_;
  // Guarded by mutex_.
  std::deque<FaultChangePtr> changes_;  // kept, with numbers that follow each other
  std::vector<FaultChangePtr> active_;  // the last change of each active fault, by ascending key
  FaultSummary summary_;
  std::optional<std::uint32_t> before_load_;  // the last change before a load that is under way
};

}  // namespace tavo
