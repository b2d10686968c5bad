#include "host/fault_history.h"

#include <sys/random.h>

#include <algorithm>
#include <ctime>
#include <functional>
#include <iterator>
#include <limits>
#include <new>

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

std::uint32_t now() {
  return static_cast<std::uint32_t>(std::time(nullptr));
}

// The change that the record tells of, but for its number and its texts.
FaultChangeFields change_of(const Record &record, FaultChange::Kind kind, bool notified) {
  return {
      .number = 0,
      .time = now(),
      .fault = key_of(record),
      .severity = record.u32(FAULT_SEVERITY),
      .code = record.i32(FAULT_CODE),
      .cause = record.i32(FAULT_CAUSE),
      .first_time = record.i32(FAULT_FIRST_TIME),
      .last_time = record.i32(FAULT_LAST_TIME),
      .kind = kind,
      .notified = notified,
      .occurrences = record.u8(FAULT_OCCURRENCES),
  };
}

// Where the first one is, or would be, whose key is not below `from`.
template <class Changes>
auto place_in(Changes &active, FaultKey from) {
  return std::ranges::lower_bound(active, from, {}, [](const FaultChangePtr &change) { return change->fault; });
}

template <class Changes>
bool is_at(const Changes &active, typename Changes::const_iterator place, FaultKey fault) {
  return place != active.end() && (*place)->fault == fault;
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
  const auto place = place_in(active_, key);
  const bool is_active = is_at(active_, place, key);
  FaultChange::Kind kind = is_active ? FaultChange::Updated : FaultChange::Raised;
  if (fault.u32(FAULT_SEVERITY) == 0) {
    kind = FaultChange::Cleared;
    if (is_active) {
      active_.erase(place);
      give_room_back();
    }
  }
  try {
    add(change_of(fault, kind, notified), fault.text(FAULT_AFFECTED_OBJECT, FAULT_AFFECTED_OBJECT_SIZE),
        fault.text(FAULT_DESCRIPTION, FAULT_DESCRIPTION_SIZE));
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
  const auto is_reported = [&](const FaultChangePtr &fault) { return fault->number > before_load; };
  std::vector<FaultChangePtr> vanished;
  std::ranges::remove_copy_if(active_, std::back_inserter(vanished), is_reported);
  std::erase_if(active_, std::not_fn(is_reported));
  give_room_back();
  for (const FaultChangePtr &last : vanished) {
    FaultChangeFields change = *last;
    change.kind = FaultChange::Vanished;
    change.notified = false;
    change.time = now();
    change.severity = 0;
    add(change, last->affected_object(), last->description());
  }
}

void FaultHistory::add(FaultChangeFields change, std::string_view affected_object, std::string_view description) {
  if (summary_.changes == std::numeric_limits<std::uint32_t>::max()) {
    begin_epoch();
  }
  change.number = summary_.changes + 1;
  const FaultChangePtr added = FaultChange::create(change, affected_object, description);
  changes_.push_back(added);
  if (change.severity != 0) {
    const auto place = place_in(active_, change.fault);
    if (is_at(active_, place, change.fault)) {
      *place = added;
    } else {
      active_.insert(place, added);
    }
  }
  summary_.changes = change.number;
  summary_.notified += change.notified ? 1 : 0;
  if (changes_.size() > limit_) {
    changes_.pop_front();
  }
}

void FaultHistory::give_room_back() {
  constexpr std::size_t least = 64;  // half a kibioctet
  if (active_.capacity() > least && active_.size() < active_.capacity() / 4) {
    active_.shrink_to_fit();
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
  const auto found = place_in(active_, fault);
  return is_at(active_, found, fault) ? *found : nullptr;
}

FaultChangePtr FaultHistory::first_active(FaultKey from) const {
  const std::lock_guard lock(mutex_);
  const auto found = place_in(active_, from);
  return found == active_.end() ? nullptr : *found;
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
