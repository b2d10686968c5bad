// A table of the tests' own on the framework: a column of every kind, guarded by an ev lock or by a subagent lock.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>

#include "core/table.h"

namespace fakes {

struct SampleRow {
  std::uint32_t index;
  char name[16];
  char code[8];
  std::int32_t code_length;
  std::uint8_t flags;
  std::int32_t level;
  std::uint32_t size;
  std::uint32_t events;
  std::uint64_t total;
  tavo::CounterWords sequence;
  std::uint32_t uptime;
  std::uint32_t object[4];
  std::int32_t object_length;
  SampleRow *next;
};

namespace sample_column {
inline constexpr oid name = 2, code = 3, flags = 4, level = 5, size = 6, events = 7, total = 8, sequence = 9,
                     uptime = 10, object = 11;
}

// Of both tables.
extern const std::span<const tavo::Column> sample_columns;

struct SampleTable {
  tavo::Table &table;
  SampleRow *&head;
  tavo::TableHandlers handlers;
};

inline constexpr std::array<oid, 12> ev_root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 99, 1, 1};
inline constexpr std::array<oid, 12> subagent_root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 99, 1, 2};
inline constexpr int ev_class = 5;
inline constexpr int subagent_lock = 1;

extern const SampleTable ev_sample;
extern const SampleTable subagent_sample;  // leaves no traces and keeps no registration

// Called by both tables' handlers before they read the rows that the walk has found.
extern std::function<void()> before_rows_are_read;

// Puts a row in front of the list, under the lock. `level`, by which rows of one index can be told apart.
SampleRow *add_row(const SampleTable &sample, std::uint32_t index, std::int32_t level = 0);

void remove_rows(const SampleTable &sample);

// Whether somebody holds the table's lock, found out by a thread that does not. An ev lock that is found busy counts
// one holder more from then on: get_ev_try_lock is made that way.
bool is_locked(const SampleTable &sample);

// Runs `call` on a thread of its own.
void on_another_thread(const std::function<void()> &call);

}  // namespace fakes
