// The socket on which the SD-card service reports changes: whoever connects, and what they send.
#include "fuzz/harness/platform.h"
#include "fuzz/harness/tables.h"
#include "tables/sd_cards/tavoStorageVeltroCardTable.h"
#include "tables/sd_cards/tavoStorageVeltroControllerTable.h"
#include "tables/sd_cards/tavoStorageVeltroDriveTable.h"
#include "threads/velt_event_thread.h"

namespace tavo::fuzz {

void try_input(Octets input) {
  Platform platform(input);
  platform.at_end = stop_velt_thread;
  expect(create_velt_thread() == 0, "the thread starts");
  join_velt_thread();
  const auto tables = {&tavoStorageVeltroControllerTable_table, &tavoStorageVeltroCardTable_table,
                       &tavoStorageVeltroDriveTable_table};
  serve(tables);
  empty(tables);
}

}  // namespace tavo::fuzz
