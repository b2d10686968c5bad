// The processor inventory's counts and records.
#include "fuzz/harness/platform.h"
#include "fuzz/harness/tables.h"
#include "tables/processors/tavoProcessorUnitTable.h"

namespace tavo::fuzz {

void try_input(Octets input) {
  const Platform platform(input);
  initialize_processor_table(1);
  serve({&tavoProcessorUnitTable_table});
  empty({&tavoProcessorUnitTable_table});
}

}  // namespace tavo::fuzz
