// A simulated server of the fuzzer's own.
#pragma once

#include "service/machine.h"

namespace tavo::service {

// The server of one-of-everything.yaml as it starts.
const Inventory &small_inventory();
// Its files are in a temporary directory.
const Surroundings &temporary_surroundings();

// Asks for everything that the machine can tell: each record, and what each query tool prints.
void ask_for_everything(Machine &machine);

}  // namespace tavo::service
