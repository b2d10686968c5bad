// The rebuilds of the tables that share a source: the storage snapshot (RAID tables) or the SD-card service. Their
// descriptions name it. All tables of a source are rebuilt together, under the storage lock.
#pragma once

namespace tavo {

#pragma GCC visibility push(default)
extern "C" {

// Reads the storage snapshot, passes `refresh` to the builders of the RAID tables, and frees the snapshot. With
// `refresh` 1, the tables then show only what the snapshot says. A snapshot that cannot be read whole empties them in
// any case. Always 1.
int reinit_stor_table(int refresh);

// Queries the SD-card service and rebuilds the SD-card tables. `refresh` is not used: the old rows always go. Always 1.
int reinit_velt_table(int refresh);
}
#pragma GCC visibility pop

}  // namespace tavo
