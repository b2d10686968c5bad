// The simulated fault engine: the active faults, and a broadcaster of every change.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "simulator/event_stream.h"
#include "simulator/part.h"

namespace tavo::sim {

struct StormResult {
  std::size_t raised = 0;
  std::size_t updated = 0;
  std::size_t cleared = 0;
  double seconds = 0;  // until the last record was taken
};

// Thread safe. Faults are told apart by class and index together.
class FaultEngine {
 public:
  explicit FaultEngine(const std::vector<Part> &active);

  std::size_t count();
  // `count` records from number `start` on, back to back; nothing when the table ends before.
  std::optional<Record> records(std::size_t start, std::size_t count);
  std::vector<Part> active();

  // Adds a fault, or changes an active one of the same class and index, and broadcasts it. Fields that `settings` leave
  // open get values that fit the class; times are now. The settings must name the class.
  void raise(std::uint32_t index, std::span<const std::string> settings);
  // Changes an active fault. A class=... among the settings tells which, where two classes share an index.
  void update(std::uint32_t index, std::span<const std::string> settings);
  // Takes a fault off the table and broadcasts it with severity 0. False when there is none.
  bool clear(std::uint32_t index, std::optional<std::int64_t> class_code);

  // Broadcasts a record and leaves the table alone.
  void send(const Record &record) { broadcaster_.publish(record); }
  // A fault with the settings as they are, nothing filled in but the index.
  static Part bare_fault(std::uint32_t index, std::span<const std::string> settings);

  // Raises, updates and clears faults of `indexes` indexes at random, `records` changes in all, as fast as the
  // followers take them; every record has its running number (from 1) in its code. Ends early when `stopped` says so.
  StormResult storm(std::size_t records, std::size_t indexes, const std::function<bool()> &stopped);

  EventStream &broadcaster() { return broadcaster_; }

 private:
  // Both with mutex_ held.
  std::vector<Part>::iterator find(std::int64_t class_code, std::int64_t index);
  std::vector<Part>::iterator find_active(std::uint32_t index, std::optional<std::int64_t> class_code);
  void change(Part &fault, const Part &changed);

  std::mutex mutex_;          // held while a change is applied and queued, so that both are in the same order
  std::vector<Part> active_;  // guarded by mutex_; in the order in which they were raised
  EventStream broadcaster_;
};

}  // namespace tavo::sim
