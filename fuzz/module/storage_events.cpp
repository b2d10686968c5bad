// The stream of storage events, as the storage event thread sees it.
#include "fuzz/harness/platform.h"
#include "threads/stor_event_thread.h"

namespace tavo::fuzz {

void try_input(Octets input) {
  Platform platform(input);
  platform.at_end = stop_stor_thread;
  expect(create_stor_thread() == 0, "the thread starts");
  join_stor_thread();
}

}  // namespace tavo::fuzz
