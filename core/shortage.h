// What to do while the process, or the machine, is short of file descriptors or memory.
#pragma once

#include "core/background_thread.h"

namespace tavo {

// accept4() with close-on-exec; but while no descriptor is free, tries again every second as long as `thread` is to
// run: the peer waits in the backlog. Logs once that it waits for one, as `name`.
int accept_when_possible(int listener, const char *name, const BackgroundThread &thread);

// The following two are start-up's, and then the inventory refresh thread's alone.

// Called when a table has been built: remembers, and logs, that it may be incomplete because its builder lacked
// descriptors for files and tools, or because an allocation has failed, on whichever thread.
void look_for_shortage();
// True, which it logs, once a remembered shortage is over: the tables built meanwhile may lack rows or values.
bool shortage_is_over();

}  // namespace tavo
