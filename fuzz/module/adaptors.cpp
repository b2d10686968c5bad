// The adaptor cards: the slots' count, the dump and each card's firmware.
#include "fuzz/harness/platform.h"
#include "fuzz/harness/tables.h"
#include "tables/adaptors/tavoAdaptorUnitTable.h"

namespace tavo::fuzz {

void try_input(Octets input) {
  Platform platform(input);
  FuzzedDataProvider &answers = platform.answers;
  platform.printed = {answers.ConsumeRandomLengthString(12), answers.ConsumeRandomLengthString(140),
                      answers.ConsumeRandomLengthString(140)};
  platform.files["/var/adapterInventory"] = answers.ConsumeRemainingBytesAsString();
  initialize_adaptorunit_table(1);
  serve({&tavoAdaptorUnitTable_table});
  empty({&tavoAdaptorUnitTable_table});
}

}  // namespace tavo::fuzz
