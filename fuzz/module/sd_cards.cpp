// The SD-card service's answers.
#include "fuzz/harness/platform.h"
#include "fuzz/harness/tables.h"
#include "refresh/storage_reload.h"
#include "tables/sd_cards/tavoStorageVeltroCardTable.h"
#include "tables/sd_cards/tavoStorageVeltroControllerTable.h"
#include "tables/sd_cards/tavoStorageVeltroDriveTable.h"

namespace tavo::fuzz {

void try_input(Octets input) {
  const Platform platform(input);
  const auto tables = {&tavoStorageVeltroControllerTable_table, &tavoStorageVeltroCardTable_table,
                       &tavoStorageVeltroDriveTable_table};
  reinit_velt_table(1);
  serve(tables);
  empty(tables);
}

}  // namespace tavo::fuzz
