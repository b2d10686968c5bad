#include "module/start_up.h"

#include <array>
#include <cstddef>
#include <iterator>

#include "core/access_lock.h"
#include "core/shortage.h"
#include "core/table.h"
#include "refresh/refresh_pass.h"
#include "sources/stor_info.h"
#include "sources/velt_info.h"
#include "threads/event_thread.h"
#include "threads/inventory_thread.h"
#include "threads/stor_event_thread.h"
#include "threads/test_trap_thread.h"
#include "threads/velt_event_thread.h"

namespace tavo {

#define TAVO_TABLE(name) extern Table name##_table;
#define TAVO_STEP(call, text)
#include "module/start_up.def"
#undef TAVO_TABLE
#undef TAVO_STEP

namespace {

int lock_storage() {
  return acquire_sa_lock(storage_lock.number());
}

int unlock_storage() {
  return release_sa_lock(storage_lock.number());
}

int read_storage_snapshot() {
  return get_stor_info(&head_stor_ptr);
}

void free_storage_snapshot() {
  free_stor_info(head_stor_ptr);
}

// Either a table to set up or a function to call.
struct Step {
  Table *table = nullptr;
  void (*call)() = nullptr;
  const char *text = nullptr;
};

constexpr Step start_up[] = {
#define TAVO_TABLE(name) {.table = &name##_table},
#define TAVO_STEP(function, message) {.call = [] { static_cast<void>((function)()); }, .text = (message)},
#include "module/start_up.def"
#undef TAVO_TABLE
#undef TAVO_STEP
};

constexpr Table *tables[] = {
#define TAVO_TABLE(name) &name##_table,
#define TAVO_STEP(call, text)
#include "module/start_up.def"
#undef TAVO_TABLE
#undef TAVO_STEP
};

static_assert(std::size(tables) <= RefreshPass::most_tables);

constexpr int (*shut_down[])() = {
    join_test_trap_thread, join_FE_thread, join_inventory_thread, join_stor_thread, join_velt_thread,
};

void log_done(const char *text) {
  if (text != nullptr) {
    snmp_log(LOG_DEBUG, "%s", text);
  }
}

}  // namespace

std::span<Table *const> all_tables() {
  return tables;
}

int init_subagent_modules(void) {
  for (const Step &step : start_up) {
    if (step.table != nullptr) {
      step.table->entry_points().init();
      look_for_shortage();
      log_done(step.table->description().started);
    } else {
      step.call();
      log_done(step.text);
    }
  }
  return 0;
}

int close_subagent_modules(void) {
  for (const auto join : shut_down) {
    join();
  }
  return 0;
}

}  // namespace tavo
