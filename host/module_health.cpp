#include "host/module_health.h"

#include <algorithm>
#include <new>
#include <string_view>

#include "core/health.h"

namespace tavo {

ModuleHealth &ModuleHealth::instance() {
  static ModuleHealth &health = *new ModuleHealth;
  return health;
}

void ModuleHealth::table_registered(const char *name, const std::atomic<std::size_t> *rows) {
  const std::lock_guard lock(mutex_);
  if (find(name) == nullptr) {
    tables_.push_back({.name = name, .rows = rows, .began = {}});
  }
}

void ModuleHealth::rebuild_begins(const char *table) {
  const std::lock_guard lock(mutex_);
  if (TableHealth *health = find(table); health != nullptr && !health->began) {
    health->began = Clock::now();
  }
}

void ModuleHealth::rebuild_ends(const char *table, bool succeeded) {
  const std::lock_guard lock(mutex_);
  TableHealth *health = find(table);
  if (health == nullptr || !health->began) {
    return;
  }
  ++health->rebuilds;
  health->failures += succeeded ? 0 : 1;
  health->ended = std::time(nullptr);
  health->duration = Clock::now() - *health->began;
  health->began.reset();
}

void ModuleHealth::request_set_aside(const void *request) {
  const std::lock_guard lock(mutex_);
  ++set_aside_;
  waiting_.push_back({.request = request, .since = Clock::now()});
}

void ModuleHealth::request_ended(const void *request) {
  const std::lock_guard lock(mutex_);
  const auto ended = std::ranges::find(waiting_, request, &WaitingRequest::request);
  if (ended != waiting_.end()) {
    longest_wait_ = std::max(longest_wait_, Clock::now() - ended->since);
    waiting_.erase(ended);
  }
}

std::size_t ModuleHealth::tables() const {
  const std::lock_guard lock(mutex_);
  return tables_.size();
}

TableHealth ModuleHealth::table(std::size_t number) const {
  const std::lock_guard lock(mutex_);
  return tables_.at(number);
}

RequestHealth ModuleHealth::requests() const {
  const std::lock_guard lock(mutex_);
  const Clock::duration oldest = waiting_.empty() ? Clock::duration(0) : Clock::now() - waiting_.front().since;
  return {.waiting = waiting_.size(), .set_aside = set_aside_, .longest_wait = std::max(longest_wait_, oldest)};
}

TableHealth *ModuleHealth::find(const char *table) {
  const auto found =
      std::ranges::find_if(tables_, [&](const TableHealth &health) { return std::string_view(health.name) == table; });
  return found == tables_.end() ? nullptr : &*found;
}

namespace {

// The module expects no exceptions. What there is no memory for is not shown.
template <class Call>
void without_exception(Call call) noexcept {
  try {
    call(ModuleHealth::instance());
  } catch (const std::bad_alloc &) {
  }
}

}  // namespace

extern "C" {

void tavo_table_registered(const char *name, const std::atomic<std::size_t> *rows) {
  without_exception([=](ModuleHealth &health) { health.table_registered(name, rows); });
}

void tavo_rebuild_begins(const char *table) {
  ModuleHealth::instance().rebuild_begins(table);
}

void tavo_rebuild_ends(const char *table, bool succeeded) {
  ModuleHealth::instance().rebuild_ends(table, succeeded);
}

void tavo_request_set_aside(const void *request) {
  without_exception([=](ModuleHealth &health) { health.request_set_aside(request); });
}

void tavo_request_ended(const void *request) {
  ModuleHealth::instance().request_ended(request);
}
}

}  // namespace tavo
