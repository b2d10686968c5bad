// Makes one of several servers out of a scenario.
#pragma once

#include "service/inventory.h"

namespace tavo::service {

// Appends the server's number, of three digits or more, to every serial number that is not empty, and ends the UUID
// with it. A serial number that would not fit its field loses the end of its old form.
void number_server(Inventory &inventory, unsigned number);

}  // namespace tavo::service
