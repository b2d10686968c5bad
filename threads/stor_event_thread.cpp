#include "threads/stor_event_thread.h"

#include <unistd.h>

#include "core/access_lock.h"
#include "core/background_thread.h"
#include "core/record.h"
#include "platform/storage_client.h"

namespace tavo {
namespace {

// What the inventory refresh thread takes for a changed storage configuration.
constexpr int storage_class = 208;

constexpr unsigned int pause_without_event = 1;  // seconds

constinit BackgroundThread thread(ThreadDescription{
    .start_routine = stor_thread,
    .source = "stor_event_thread",
    .creating = "%s: Creating Storage thread\n",
    .create_failed = "Unable to create storage thread\n",
    .stopping = "Stopping StorageThread\n",
    .join_failed = "Unable to join storage thread\n",
    .exited = "StorageThread exited\n",
});

void request_refresh() {
  acquire_inventory_lock();
  signal_inventory_condition(storage_class);
  release_inventory_lock();
}

void serve_next_event(void *events) {
  const void *event = se_get_next_storage_event(events);
  if (event == nullptr) {
    sleep(pause_without_event);  // the stream should have waited; asking again at once could keep the processor busy
  } else if (Record(event, STORAGE_EVENT_SIZE).u32(STORAGE_EVENT_TYPE) == STORAGE_EVENT_CONFIGURATION_CHANGED) {
    request_refresh();
  }
}

}  // namespace
}  // namespace tavo

int create_stor_thread(void) {
  return tavo::thread.create(__func__, __LINE__);
}

void *stor_thread(void *) {
  tavo::run_thread(__func__, [] {
    snmp_log(LOG_DEBUG, "StorageThread initiated\n");
    void *const events = se_open_storage_events(0, 0);
    while (tavo::thread.is_running()) {
      tavo::serve_next_event(events);
    }
    se_close_storage_events(events);
  });
}

void stop_stor_thread(void) {
  tavo::thread.stop();
}

int join_stor_thread(void) {
  tavo::thread.join();
  return 0;
}
