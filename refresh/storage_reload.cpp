#include "refresh/storage_reload.h"

#include "core/health.h"
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

// Their rebuilds last from here on: to read the source may take longer than to build the rows.
void report_rebuilds_of(TableSource source) {
  for_each_of(source, [](const Table &table) { report(tavo_rebuild_begins, table.description().name); });
}

}  // namespace

int reinit_stor_table(int refresh) {
  report_rebuilds_of(TableSource::StorageSnapshot);
  const ListGuard guard(storage_lock);
  head_stor_ptr = nullptr;
  if (get_stor_info(&head_stor_ptr) == 1) {
    for_each_of(TableSource::StorageSnapshot, [&](Table &table) { table.build(refresh); });
  } else {
    // The storage lock guards each of them, which the analysis cannot see.
    for_each_of(TableSource::StorageSnapshot, [](Table &table) TAVO_LOCKING(no_thread_safety_analysis) {
      table.remove_all();
      report(tavo_rebuild_ends, table.description().name, false);
    });
  }
  free_stor_info(head_stor_ptr);
  return 1;
}

int reinit_velt_table(int) {
  report_rebuilds_of(TableSource::SdCards);
  const ListGuard guard(storage_lock);
  snmp_log(LOG_DEBUG, "Got the trigger from VELT\n");
  populate_velt();
  for_each_of(TableSource::SdCards, [](Table &table) { table.build(1); });
  return 1;
}

}  // namespace tavo
