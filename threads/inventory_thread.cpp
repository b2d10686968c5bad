#include "threads/inventory_thread.h"

#include <unistd.h>

#include <ctime>

#include "core/access_lock.h"
#include "core/background_thread.h"
#include "refresh/refresh_pass.h"

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

void keep_fresh() {
  snmp_log(LOG_DEBUG, "InventoryThread initiated\n");
  std::time_t last_check = std::time(nullptr);
  std::time_t last_periodic = last_check;
  int periodic_passes = 0;
  sleep(60);
  while (thread.is_running()) {
    if (std::time(nullptr) - last_check > 10) {
      RefreshPass pass(all_tables());
      pass.serve(RefreshRequests::take());
      if (std::time(nullptr) - last_periodic > 100) {
        pass.refresh_periodically(periodic_passes++);
        last_periodic = std::time(nullptr);
      }
      last_check = std::time(nullptr);
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
  run_thread(__func__, keep_fresh);
}

}  // namespace tavo
