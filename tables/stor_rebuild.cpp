#include "tables/stor_rebuild.h"

#include "core/access_lock.h"
#include "storage/stor_info.h"
#include "tables/tavoStorageControllerTable.h"
#include "tables/tavoStorageLocalDiskTable.h"
#include "tables/tavoStorageLocalLunTable.h"
#include "tables/tavoStorageRaidBatteryTable.h"

namespace {
constexpr tavo::ListLock storage_lock = tavo::ListLock::subagent(2);
}

int reinit_stor_table(int refresh) {
  const tavo::ListGuard guard(storage_lock);
  head_stor_ptr = nullptr;
  if (get_stor_info(&head_stor_ptr) == 1) {
    initialize_controller_table(refresh);
    initialize_local_disk_table(refresh);
    initialize_local_lun_table(refresh);
    initialize_bbu_table(refresh);
  } else {
    tavoStorageControllerTable_removeAllEntries();
    tavoStorageLocalDiskTable_removeAllEntries();
    tavoStorageLocalLunTable_removeAllEntries();
    tavoStorageRaidBatteryTable_removeAllEntries();
  }
  tavo::free_stor_info(head_stor_ptr);
  return 1;
}
