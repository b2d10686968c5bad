#include "threads/event_thread.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>

#include "core/background_thread.h"
#include "core/health.h"
#include "core/heap.h"
#include "core/record.h"
#include "core/trace.h"
#include "core/zeroed.h"
#include "platform/fault_engine.h"
#include "tables/faults/fault_database.h"
#include "tables/faults/tavoFaultTable.h"
#include "tables/faults/tavoFaultTable_traps.h"

namespace tavo {
namespace {

constexpr const char *source = "event_thread";

// The active faults are read in blocks of this many records, however many there are.
constexpr int records_per_read = 1024;

void free_fault_database() {
  free_entity_nodes();
  std::free(fault_database);
  fault_database = nullptr;
  clear_fault_table_entries();
}

constexpr ThreadDescription description = {
    .start_routine = FE_thread,
    .source = source,
    .creating = "%s:Creating event thread\n",
    .create_failed = "!!! unable to create event_thread thread !!!!\n",
    .stopping = "Stopping EventThread\n",
    .join_failed = "!!! Unable to join event thread !!!!\n",
    .exited = "EventThread exited\n",
    .release_after_attributes = free_fault_database,
};

constinit BackgroundThread event_thread(description);

// Waits while memory is too short for the fault: the engine sends it only once.
void apply(const std::byte *record) {
  constexpr unsigned int pause = 1;  // seconds
  PrintDataFromFE(record);
  const bool clears = Record(record, FAULT_RECORD_SIZE).u32(FAULT_SEVERITY) == 0;
  bool said = false;
  while (populate_fault_table_from_fe(record) == 0 && !clears && !has_node(record) && event_thread.is_running()) {
    if (!said) {
      snmp_log(LOG_WARNING, "memory is short: a fault has to wait\n");
      said = true;
    }
    sleep(pause);
  }
}

// Rows take as much memory as the records that they are made from. So what has been applied is given back on the way.
void apply_all(std::byte *records, int count) {
  constexpr std::size_t step = 64;  // records, 60 KiB
  for (std::size_t applied = 0; applied < static_cast<std::size_t>(count);) {
    apply(records + applied * FAULT_RECORD_SIZE);
    if (++applied % step == 0) {
      give_pages_back(records, applied * FAULT_RECORD_SIZE);
    }
  }
}

// Tries without a pause until it succeeds: changes made without a connection are missed.
void connect(int &connection, bool traces) {
  for (int error = connect_to_fe_broadcaster(&connection); error != 0; error = connect_to_fe_broadcaster(&connection)) {
    if (traces) {
      trace({"FE_thread", __LINE__}, source, "Connection to FE broadcaster failed %0x, Reconnecting\n", error);
    }
    sched_yield();
  }
}

// The engine's list may end early because a fault was cleared between its count and its read: then what was read lacks
// faults that are active, and nobody would send them again. An engine that goes on like this is believed in the end.
// True if the whole list was read.
bool load_whole_list() {
  constexpr int most_tries = 10;
  constexpr unsigned int pause = 1;  // seconds
  for (int tries = 1; init_fault_tables() == -1; ++tries) {
    if (tries == most_tries || !event_thread.is_running() || get_fe_table_count() <= 0) {
      return false;
    }
    if (tries > 1) {
      sleep(pause);
    }
  }
  return true;
}

void load_faults() {
  report(tavo_fault_load_begins);
  const bool whole = load_whole_list();
  report(tavo_fault_load_ends, whole);
  give_memory_back();  // of the block that they were read into, and of those that have gone
}

// Reloads all faults, because changes made without a connection were missed.
void reconnect(int &connection) {
  close(connection);
  connect(connection, false);
  load_faults();
}

void keep_table_in_step() {
  snmp_log(LOG_DEBUG, "EventThread initiated\n");
  tvmc_Startup_Trap();
  load_faults();
  std::atomic_ref<int>(needToSendTrapFlag).store(1);
  int connection = -1;
  connect(connection, true);
  while (event_thread.is_running()) {
    std::array<std::byte, FAULT_RECORD_SIZE> record = {};
    errno = 0;
    const int received = listen_to_fe_broadcaster(&connection, record.data());
    if (received > 0) {
      apply(record.data());
    } else if (received == 0 && errno != EINTR) {
      reconnect(connection);
    }
  }
  close(connection);
}

}  // namespace

int create_FE_thread(void) {
  fault_database = static_cast<EntityNode **>(std::calloc(1, sizeof(FaultBuckets)));
  if (fault_database == nullptr) {
    snmp_log(LOG_DEBUG, "CREATE_EVENT_THREAD:Failed memory allocation\n");
    report(tavo_thread_missing, __func__, ENOMEM);
    return -1;
  }
  if (const int error = event_thread.create(); error != 0) {
    std::free(fault_database);
    fault_database = nullptr;
    return error;
  }
  return 0;
}

void stop_FE_thread(void) {
  event_thread.stop();
}

int join_FE_thread(void) {
  event_thread.join();
  return 1;
}

void *FE_thread(void *) {
  keep_table_in_step();
  pthread_exit(nullptr);
}

int init_fault_tables(void) {
  snmp_log(LOG_DEBUG, "Cleared %d event nodes\n", free_entity_nodes());
  clear_fault_table_entries();
  const auto records = make_zeroed_octets(records_per_read, FAULT_RECORD_SIZE);
  if (records == nullptr) {
    snmp_log(LOG_DEBUG, "INIT_EVENT_THREAD:Failed to allocate memory\n");
    return -1;
  }
  const int count = get_fe_table_count();
  snmp_log(LOG_DEBUG, "FE End Index %d\n", count);
  int start = 0;
  int result = 0;
  do {
    const int wanted = std::clamp(count - start, 0, records_per_read);
    result = get_fe_table(records.get(), start, wanted);
    if (result == -1) {
      snmp_log(LOG_DEBUG, "Reached end of SEL info from FE\n");
      break;
    }
    apply_all(records.get(), wanted);
    start += wanted;
  } while (start < count);
  return result;
}

int FE_poll(int value) {
  return value;
}

void PrintDataFromFE(const void *) {}

}  // namespace tavo
