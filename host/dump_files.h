// The files into which the module's tools write what tables are built from.
#pragma once

namespace tavo {

// Logs a warning for each that the daemon's user could not write: the module would try 25 s and more for each, and
// serve the tables without their values.
void warn_of_unwritable_dumps();

}  // namespace tavo
