#include "host/fault_history.h"

#include <sys/random.h>

#include <limits>
#include <new>
#include <utility>

#include "core/health.h"
#include "core/record.h"
#include "platform/fault_engine.h"

namespace tavo {
namespace {

// The clock would not do: a controller that has lost it begins at the same time after each reboot.
std::uint32_t random_epoch() {
  std::uint32_t epoch = 0;
  if (getrandom(&epoch, sizeof epoch, 0) != sizeof epoch) {
    epoch = static_cast<std::uint32_t>(std::time(nullptr));
  }
  return epoch;
}

FaultKey key_of(const Record &record) {
  return {.class_code = record.u32(FAULT_CLASS_CODE), .index = record.u32(FAULT_INDEX)};
}

// The change that the record tells of, but for its number.
FaultChange change_of(const Record &record, FaultChange::Kind kind, bool notified) {
  return {
      .kind = kind,
      .notified = notified,
      .number = 0,
      .time = std::time(nullptr),
      .fault = key_of(record),
      .severity = record.u32(FAULT_SEVERITY),
      .code = record.i32(FAULT_CODE),
      .cause = record.i32(FAULT_CAUSE),
      .occurrences = record.u8(FAULT_OCCURRENCES),
      .first_time = record.i32(FAULT_FIRST_TIME),
      .last_time = record.i32(FAULT_LAST_TIME),
      .affected_object = std::string(record.text(FAULT_AFFECTED_OBJECT, FAULT_AFFECTED_OBJECT_SIZE)),
      .description = std::string(record.text(FAULT_DESCRIPTION, FAULT_DESCRIPTION_SIZE)),
  };
}

}  // namespace

FaultHistory &FaultHistory::instance() {
  static FaultHistory &history = *new FaultHistory;
  return history;
}

FaultHistory::FaultHistory(std::uint32_t last_number) : summary_{.epoch = random_epoch(), .changes = last_number} {}

void FaultHistory::changed(const void *record, bool notified) noexcept {
  const Record fault(record, FAULT_RECORD_SIZE);
  const std::lock_guard lock(mutex_);
  const FaultKey key = key_of(fault);
  FaultChange::Kind kind = active_.contains(key) ? FaultChange::Updated : FaultChange::Raised;
  if (fault.u32(FAULT_SEVERITY) == 0) {
    kind = FaultChange::Cleared;
    active_.erase(key);
  }
  try {
    add(change_of(fault, kind, notified));
  } catch (const std::bad_alloc &) {
    lose_track();
  }
}

void FaultHistory::load_begins() noexcept {
  const std::lock_guard lock(mutex_);
  before_load_ = summary_.changes;
}

void FaultHistory::load_ends(bool whole) noexcept {
  const std::lock_guard lock(mutex_);
  try {
    // A load during which numbers began anew proves nothing.
    summary_.complete = whole && before_load_;
    if (summary_.complete) {
      remove_unreported(*before_load_);
    }
  } catch (const std::bad_alloc &) {
    lose_track();
  }
  before_load_.reset();
}

void FaultHistory::remove_unreported(std::uint32_t before_load) {
  for (auto fault = active_.begin(); fault != active_.end();) {
    if (fault->second->number > before_load) {
      ++fault;
      continue;
    }
    const FaultChangePtr last = fault->second;
    fault = active_.erase(fault);
    FaultChange change = *last;
    change.kind = FaultChange::Vanished;
    change.notified = false;
    change.time = std::time(nullptr);
    change.severity = 0;
    add(std::move(change));
  }
}

void FaultHistory::add(FaultChange change) {
  if (summary_.changes == std::numeric_limits<std::uint32_t>::max()) {
    begin_epoch();
  }
  change.number = summary_.changes + 1;
  const auto added = std::make_shared<const FaultChange>(std::move(change));
  changes_.push_back(added);
  if (added->severity != 0) {
    active_.insert_or_assign(added->fault, added);
  }
  summary_.changes = added->number;
  summary_.notified += added->notified ? 1 : 0;
  if (changes_.size() > limit_) {
    changes_.pop_front();
  }
}

void FaultHistory::begin_epoch() {
  ++summary_.epoch;
  summary_.changes = 0;
  summary_.notified = 0;
  changes_.clear();
  before_load_.reset();
}

void FaultHistory::lose_track() {
  begin_epoch();
  summary_.complete = false;
}

FaultSummary FaultHistory::summary() const {
  const std::lock_guard lock(mutex_);
  FaultSummary summary = summary_;
  summary.oldest = changes_.empty() ? 0 : changes_.front()->number;
  summary.active = active_.size();
  return summary;
}

FaultChangePtr FaultHistory::active(FaultKey fault) const {
  const std::lock_guard lock(mutex_);
  const auto found = active_.find(fault);
  return found == active_.end() ? nullptr : found->second;
}

FaultChangePtr FaultHistory::first_active(FaultKey from) const {
  const std::lock_guard lock(mutex_);
  const auto found = active_.lower_bound(from);
  return found == active_.end() ? nullptr : found->second;
}

FaultChangePtr FaultHistory::first_change(std::uint32_t from) const {
  const std::lock_guard lock(mutex_);
  if (changes_.empty()) {
    return nullptr;
  }
  const std::uint32_t oldest = changes_.front()->number;
  const std::size_t place = from < oldest ? 0 : from - oldest;
  return place < changes_.size() ? changes_[place] : nullptr;
}

extern "C" {

void tavo_fault_changed(const void *record, bool notified) {
  FaultHistory::instance().changed(record, notified);
}

void tavo_fault_load_begins() {
  FaultHistory::instance().load_begins();
}

void tavo_fault_load_ends(bool whole) {
  FaultHistory::instance().load_ends(whole);
}
}

}  // namespace tavo
