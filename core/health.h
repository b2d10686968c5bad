// What the module reports of its own health, for a daemon that wants to know. Such a daemon defines these functions.
// Another program that loads the module lacks them, so the module imports them weakly and reports to those that exist.
//
// The module keeps no figures for this: a report says what has just happened, and the daemon counts and takes times. It
// must not wait, since the module may hold a lock of its own, and must not throw, since the module catches nothing.
#pragma once

#include <atomic>
#include <cstddef>

namespace tavo {

#pragma GCC visibility push(default)
extern "C" {

// The agent serves this table from now on. `name` is its MIB name and the same pointer in all reports; `rows` is how
// many rows it has, to be read at any time. Both stay valid. Called on the agent's thread.
[[gnu::weak]] void tavo_table_registered(const char *name, const std::atomic<std::size_t> *rows);

// A table is being rebuilt: its source is read, or is waited for. Any thread, but one rebuild of a table at a time.
// Reported twice if the table shares its source with others: when the source is read, and when its own rows are built.
[[gnu::weak]] void tavo_rebuild_begins(const char *table);
[[gnu::weak]] void tavo_rebuild_ends(const char *table, bool succeeded);

// A thread of the module cannot be created: `function`, such as "create_FE_thread", had the error `error` of errno.h;
// its name stays valid. The module serves without the thread. Called on the thread that calls the function.
[[gnu::weak]] void tavo_thread_missing(const char *function, int error);

// A request waits because a table is busy; it has ended, by an answer or without one. The pointer only tells requests
// apart. Both on the agent's thread.
[[gnu::weak]] void tavo_request_set_aside(const void *request);
[[gnu::weak]] void tavo_request_ended(const void *request);

// A fault was raised, has changed or was cleared: `record` is the fault engine's (platform/fault_engine.h), to be read
// before the call returns. `notified`: its notification follows. Called on the fault event thread.
[[gnu::weak]] void tavo_fault_changed(const void *record, bool notified);

// All active faults are being loaded: each is reported as a change. Then the load ends; `whole`: the fault engine's
// whole list was read, so a fault that was not reported meanwhile is gone. Called on the fault event thread.
[[gnu::weak]] void tavo_fault_load_begins();
[[gnu::weak]] void tavo_fault_load_ends(bool whole);
}
#pragma GCC visibility pop

template <class... Arguments, class... Values>
void report(void (*to)(Arguments...), Values... values) {
  if (to != nullptr) {
    to(values...);
  }
}

}  // namespace tavo
