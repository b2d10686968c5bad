#include "service/fault_engine.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <iterator>

#include "core/class_number.h"
#include "service/affected.h"
#include "service/part_kinds.h"

namespace tavo::service {
namespace {

void count_sub_identifiers(Part &fault) {
  const std::string &oid = fault.text("affected-oid");
  if (fault.number("affected-oid-count") == 0 && !oid.empty()) {
    fault.set_number("affected-oid-count", std::ranges::count(oid, '.') + 1);
  }
}

// Changes a fault, which keeps its index and its class: they are how the module knows it.
void change_fault(Part &fault, Settings settings) {
  const Part before = fault;
  apply_settings(fault, settings);
  for (const std::string_view field : fault_kind.identity) {
    if (fault.number(field) != before.number(field)) {
      throw BadInput("a fault keeps its " + std::string(field));
    }
  }
  if (fault.text("affected-oid") != before.text("affected-oid") &&
      fault.number("affected-oid-count") == before.number("affected-oid-count")) {
    fault.set_number("affected-oid-count", 0);
    count_sub_identifiers(fault);
  }
}

void fill_text(Part &fault, std::string_view field, const std::string &text) {
  if (fault.text(field).empty()) {
    fault.set(field, text);
  }
}

// Gives every field that is still empty a value. What the fault affects is known to the caller.
void complete(Part &fault) {
  const std::string index = std::to_string(fault.number("index"));
  fill_text(fault, "dn", fault.text("affected") + "/fault-" + index);
  fill_text(fault, "rn", "fault-" + index);
  fill_text(fault, "description", "Fault " + index);
  count_sub_identifiers(fault);
  for (const std::string_view time_field : {"first-time", "last-time"}) {
    if (fault.number(time_field) == 0) {
      fault.set_number(time_field, std::time(nullptr));
    }
  }
}

void mark_changed(Part &fault) {
  fault.set_number("previous-severity", fault.number("severity") & 0xFF);
  fault.set_number("last-time", std::time(nullptr));
}

void mark_raised_again(Part &fault) {
  mark_changed(fault);
  fault.set_number("occurrences", (fault.number("occurrences") + 1) & 0xFF);
}

std::pair<std::int64_t, std::int64_t> key_of(const Part &fault) {
  return {fault.number("class"), fault.number("index")};
}

}  // namespace

std::optional<std::int64_t> class_in(Settings settings) {
  constexpr std::string_view prefix = "class=";
  const auto found = std::ranges::find_if(settings, [&](const std::string &word) { return word.starts_with(prefix); });
  if (found == settings.end()) {
    return std::nullopt;
  }
  Part probe(fault_kind);
  probe.set("class", std::string_view(*found).substr(prefix.size()));
  return probe.number("class");
}

FaultEngine::FaultEngine(const std::vector<Part> &active) {
  for (Part fault : active) {
    complete(fault);
    add(std::move(fault));
  }
}

std::size_t FaultEngine::count() {
  const std::lock_guard lock(mutex_);
  return active_.size();
}

std::optional<Record> FaultEngine::records(std::size_t start, std::size_t count) {
  const std::lock_guard lock(mutex_);
  if (start > active_.size() || count > active_.size() - start) {
    return std::nullopt;
  }
  Record all(count * fault_kind.record_size);
  auto fault = std::next(active_.begin(), static_cast<std::ptrdiff_t>(start));
  for (std::size_t i = 0; i < count; ++i, ++fault) {
    fault->encode(std::span(all).subspan(i * fault_kind.record_size, fault_kind.record_size));
  }
  return all;
}

std::vector<Part> FaultEngine::active() {
  const std::lock_guard lock(mutex_);
  return {active_.begin(), active_.end()};
}

FaultEngine::Faults::iterator FaultEngine::find(std::int64_t class_code, std::int64_t index) {
  const auto found = by_key_.find({class_code, index});
  return found != by_key_.end() ? found->second : active_.end();
}

void FaultEngine::add(Part fault) {
  const auto added = active_.insert(active_.end(), std::move(fault));
  by_key_[key_of(*added)] = added;
}

void FaultEngine::remove(Faults::iterator fault) {
  by_key_.erase(key_of(*fault));
  active_.erase(fault);
}

FaultEngine::Faults::iterator FaultEngine::find_active(std::uint32_t index, std::optional<std::int64_t> class_code) {
  if (class_code) {
    return find(*class_code, index);
  }
  const auto has_index = [&](const Part &fault) { return fault.number("index") == index; };
  const auto found = std::ranges::find_if(active_, has_index);
  if (found != active_.end() && std::find_if(std::next(found), active_.end(), has_index) != active_.end()) {
    throw BadInput("two active faults have the index " + std::to_string(index) + "; say which with class=...");
  }
  return found;
}

void FaultEngine::commit(Part &fault, const Part &changed) {
  fault = changed;
  broadcaster_.publish(fault.encoded());
}

void FaultEngine::raise(const Part &fresh, Settings settings) {
  const std::lock_guard lock(mutex_);
  const auto found = find(fresh.number("class"), fresh.number("index"));
  if (found != active_.end()) {
    Part changed = *found;
    mark_raised_again(changed);
    change_fault(changed, settings);
    commit(*found, changed);
    return;
  }
  Part fault = fresh;
  complete(fault);
  broadcaster_.publish(fault.encoded());
  add(std::move(fault));
}

void FaultEngine::update(std::uint32_t index, Settings settings) {
  const std::lock_guard lock(mutex_);
  const auto found = find_active(index, class_in(settings));
  if (found == active_.end()) {
    throw BadInput("no active fault has the index " + std::to_string(index));
  }
  Part changed = *found;
  mark_changed(changed);
  change_fault(changed, settings);
  commit(*found, changed);
}

bool FaultEngine::clear(std::uint32_t index, std::optional<std::int64_t> class_code) {
  const std::lock_guard lock(mutex_);
  const auto found = find_active(index, class_code);
  if (found == active_.end()) {
    return false;
  }
  Part cleared = *found;
  mark_changed(cleared);
  cleared.set_number("severity", 0);
  commit(*found, cleared);
  remove(found);
  return true;
}

Part FaultEngine::bare_fault(std::uint32_t index, Settings settings) {
  Part fault(fault_kind);
  fault.set_number("index", index);
  apply_settings(fault, settings);
  if (fault.number("index") != index) {
    throw BadInput("a fault keeps its index");
  }
  return fault;
}

StormResult FaultEngine::storm(std::size_t records, std::size_t indexes, const std::function<bool()> &stopped) {
  constexpr std::int64_t first_index = 1'000'000;  // no scenario has indexes that high
  StormResult result;
  std::minstd_rand random;  // unseeded: every storm is the same
  const auto began = std::chrono::steady_clock::now();
  for (std::size_t sequence = 1; sequence <= records && !stopped(); ++sequence) {
    broadcaster_.wait_for_room();
    const auto index = first_index + static_cast<std::int64_t>(random() % indexes);
    const std::lock_guard lock(mutex_);
    add_to_storm(index, sequence, random, result);
  }
  broadcaster_.wait_until_taken();
  result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
  return result;
}

void FaultEngine::add_to_storm(std::int64_t index, std::size_t sequence, std::minstd_rand &random,
                               StormResult &result) {
  constexpr unsigned highest_severity = 6;
  const auto found = find(class_number::processor, index);
  const bool known = found != active_.end();
  Part fault = known ? *found : Part(fault_kind);
  if (known) {
    mark_raised_again(fault);
  } else {
    fault.set_number("index", index);
    fault.set_number("class", class_number::processor);
    fault.set("affected", affected_server().dn);
    fault.set("affected-oid", affected_server().oid);
    complete(fault);
  }
  fault.set_number("code", static_cast<std::int64_t>(sequence));
  const bool clears = known && random() % 2 == 0;
  fault.set_number("severity", clears ? 0 : 1 + static_cast<std::int64_t>(random() % highest_severity));
  broadcaster_.publish(fault.encoded());
  if (clears) {
    remove(found);
    ++result.cleared;
  } else if (known) {
    *found = std::move(fault);
    ++result.updated;
  } else {
    add(std::move(fault));
    ++result.raised;
  }
}

}  // namespace tavo::service
