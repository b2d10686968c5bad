// The memory inventory's counts and records.
#include "fuzz/harness/platform.h"
#include "fuzz/harness/tables.h"
#include "tables/memory/tavoMemoryUnitTable.h"

namespace tavo::fuzz {

void try_input(Octets input) {
  const Platform platform(input);
  initialize_memory_table(1);
  serve({&tavoMemoryUnitTable_table});
  empty({&tavoMemoryUnitTable_table});
}

}  // namespace tavo::fuzz
