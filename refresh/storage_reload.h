// The rebuilds of the tables that share a source: the four RAID tables, and the three SD-card tables. Their
// descriptions name the source; all of a source are rebuilt together, under the storage lock.
#pragma once

namespace tavo {

#pragma GCC visibility push(default)
extern "C" {

// Reads the storage snapshot anew, hands `refresh` to the builders of the RAID tables, and frees the snapshot. With
// `refresh` 1 the tables then hold nothing but what the snapshot says; a snapshot that cannot be read whole empties
// them whatever `refresh` is. Always 1.
int reinit_stor_table(int refresh);

// Asks the SD-card service anew and rebuilds the SD-card tables. `refresh` is not used: the old rows always go.
// Always 1.
int reinit_velt_table(int refresh);
}
#pragma GCC visibility pop

}  // namespace tavo
