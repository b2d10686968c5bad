#include "threads/stor_event_thread.h"

#include <unistd.h>

#include "core/access_lock.h"
#include "core/background_thread.h"
#include "core/class_number.h"
#include "core/record.h"
#include "platform/storage_client.h"

namespace tavo {
namespace {

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

void serve_next_event(void *events) {
  const void *event = se_get_next_storage_event(events);
  if (event == nullptr) {
    sleep(pause_without_event);  // the stream should have waited; asking again at once could busy-loop
  } else if (Record(event, STORAGE_EVENT_SIZE).u32(STORAGE_EVENT_TYPE) == STORAGE_EVENT_CONFIGURATION_CHANGED) {
    request_refresh(class_number::storage);
  }
}

}  // namespace

int create_stor_thread(void) {
  return thread.create();
}

void *stor_thread(void *) {
  snmp_log(LOG_DEBUG, "StorageThread initiated\n");
  void *const events = se_open_storage_events(0, 0);
  while (thread.is_running()) {
    serve_next_event(events);
  }
  se_close_storage_events(events);
  pthread_exit(nullptr);
}

void stop_stor_thread(void) {
  thread.stop();
}

int join_stor_thread(void) {
  thread.join();
  return 0;
}

}  // namespace tavo
