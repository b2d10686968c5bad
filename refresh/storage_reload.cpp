#include "refresh/storage_reload.h"

#include "core/table.h"
#include "sources/stor_info.h"
#include "sources/velt_info.h"

namespace tavo {
namespace {

// Calls `work` for each table of the source, in the order of start-up.
template <class Work>
void for_each_of(TableSource source, Work work) {
  for (Table *table : all_tables()) {
    if (table->description().source == source) {
      work(*table);
    }
  }
}

}  // namespace

int reinit_stor_table(int refresh) {
  const ListGuard guard(storage_lock);
  head_stor_ptr = nullptr;
  if (get_stor_info(&head_stor_ptr) == 1) {
    for_each_of(TableSource::StorageSnapshot, [&](Table &table) { table.description().build(refresh); });
  } else {
    // The storage lock guards each of them, which the analysis cannot see.
    for_each_of(TableSource::StorageSnapshot,
                [](Table &table) TAVO_LOCKING(no_thread_safety_analysis) { table.remove_all(); });
  }
  free_stor_info(head_stor_ptr);
  return 1;
}

int reinit_velt_table(int) {
  const ListGuard guard(storage_lock);
  snmp_log(LOG_DEBUG, "Got the trigger from VELT\n");
  populate_velt();
  for_each_of(TableSource::SdCards, [](Table &table) { table.description().build(1); });
  return 1;
}

}  // namespace tavo
