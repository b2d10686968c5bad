// The simulated fault engine: the active faults, and a broadcaster of every change to them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "service/event_stream.h"
#include "service/part.h"

namespace tavo::service {

struct StormResult {
  std::size_t raised = 0;
  std::size_t updated = 0;
  std::size_t cleared = 0;
  double seconds = 0;  // until every follower has taken the last record
};

// The class that a "class=..." among the settings names; nothing without one.
std::optional<std::int64_t> class_in(Settings settings);

// Thread safe. Two faults may share an index if their classes differ.
class FaultEngine {
 public:
  explicit FaultEngine(const std::vector<Part> &active);

  std::size_t count();
  // `count` records back to back, from number `start` (0-based) on; nothing if the table ends before that.
  std::optional<Record> records(std::size_t start, std::size_t count);
  std::vector<Part> active();

  // Adds the fault `fresh` or, if one of its class and index is active, applies the settings to that one. Broadcasts
  // the result. A new fault gets names for itself, and the present time, where it leaves them open.
  void raise(const Part &fresh, Settings settings);
  // Changes an active fault and broadcasts it. Where two classes share the index, the settings must name the class.
  void update(std::uint32_t index, Settings settings);
  // Removes an active fault and broadcasts it with severity 0. False if there is none. Throws BadInput where two
  // classes share the index and none is given.
  bool clear(std::uint32_t index, std::optional<std::int64_t> class_code);

  // Broadcasts a record and leaves the table alone.
  void send(const Record &record) { broadcaster_.publish(record); }
  // A fault with this index and these settings, and nothing else filled in.
  static Part bare_fault(std::uint32_t index, Settings settings);

  // Raises, updates and clears processor faults at random: `records` changes among `indexes` faults, as fast as the
  // slowest follower takes them. Each record's code is its number, from 1. Ends early when `stopped` returns true.
  StormResult storm(std::size_t records, std::size_t indexes, const std::function<bool()> &stopped);

  EventStream &broadcaster() { return broadcaster_; }

 private:
  using Faults = std::list<Part>;

  // All with mutex_ held.
  Faults::iterator find(std::int64_t class_code, std::int64_t index);
  Faults::iterator find_active(std::uint32_t index, std::optional<std::int64_t> class_code);
  void add(Part fault);
  void remove(Faults::iterator fault);
  // Puts `changed` in the active fault's place and broadcasts it.
  void commit(Part &fault, const Part &changed);
  void add_to_storm(std::int64_t index, std::size_t sequence, std::minstd_rand &random, StormResult &result);

  std::mutex mutex_;  // held while a change is applied and published, so that both happen in the same order
  Faults active_;     // guarded by mutex_; in the order in which they were raised
  // Guarded by mutex_. By class and index: a storm has no time to search tens of thousands.
  std::map<std::pair<std::int64_t, std::int64_t>, Faults::iterator> by_key_;
  EventStream broadcaster_;
};

}  // namespace tavo::service
