// The rebuild of the four tables that the storage snapshot feeds. It stands here and not with the snapshot's reader,
// which knows nothing of tables.
#pragma once

#pragma GCC visibility push(default)
extern "C" {

// Reads the snapshot anew, hands `refresh` to the builders of the controller, local disk, local LUN and RAID battery
// tables, and frees the snapshot, all under subagent lock 2. With `refresh` 1 the tables then hold nothing but what the
// snapshot says; a snapshot that cannot be read whole empties them whatever `refresh` is. Always 1.
int reinit_stor_table(int refresh);
}
#pragma GCC visibility pop
