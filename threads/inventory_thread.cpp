#include "threads/inventory_thread.h"

#include <unistd.h>

#include <ctime>

#include "core/access_lock.h"
#include "core/background_thread.h"
#include "core/class_number.h"
#include "core/shortage.h"
#include "refresh/refresh_pass.h"
#include "tables/storage/tavoStorageLocalDiskTable.h"

namespace tavo {
namespace {

constexpr ThreadDescription description = {
    .start_routine = inventory_thread,
    .source = "inventory_refresh.c",
    .creating = "%s: Creating Inventory thread\n",
    .create_failed = "Unable to create inventory thread\n",
    .stopping = "Stopping InventoryThread\n",
    .join_failed = "Unable to join inventory thread\n",
    .exited = "InventoryThread exited\n",
    .release_before_attributes = [] { destroy_inventory_resource(); },
};

constinit BackgroundThread thread(description);

// Whole seconds on a clock that nobody sets. On the time of day, a clock set back would stop every refresh until it has
// caught up. Not in finer units: the sleep between two passes would then always count as more than ten seconds.
std::time_t seconds_so_far() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec;
}

// A query tool that prints nothing empties the disk table, and nothing would rebuild it before the next storage event.
// `said`: whether that is logged already.
void ask_again_for_drive_slots(bool &said) {
  const bool unknown = drive_slots_are_unknown();
  if (unknown && !said) {
    snmp_log(LOG_WARNING, "no disks are shown: datactl prints nothing about the drive slots; asking it again\n");
  }
  said = unknown;
  if (unknown) {
    request_refresh(class_number::storage);
  }
}

void keep_fresh() {
  snmp_log(LOG_DEBUG, "InventoryThread initiated\n");
  std::time_t last_check = seconds_so_far();
  std::time_t last_periodic = last_check;
  int periodic_passes = 0;
  bool said_that_tool_is_silent = false;
  sleep(60);
  while (thread.is_running()) {
    if (seconds_so_far() - last_check > 10) {
      if (shortage_is_over()) {
        RefreshPass(all_tables()).rebuild_all();
      }
      RefreshPass pass(all_tables());
      pass.serve(RefreshRequests::take());
      if (seconds_so_far() - last_periodic > 100) {
        pass.refresh_periodically(periodic_passes++);
        ask_again_for_drive_slots(said_that_tool_is_silent);
        last_periodic = seconds_so_far();
      }
      last_check = seconds_so_far();
    }
    sleep(10);
  }
}

}  // namespace

int create_inventory_thread(void) {
  return thread.create();
}

void stop_inventory_thread(void) {
  thread.stop();
}

int join_inventory_thread(void) {
  thread.join();
  return 0;
}

void *inventory_thread(void *) {
  keep_fresh();
  pthread_exit(nullptr);
}

}  // namespace tavo
