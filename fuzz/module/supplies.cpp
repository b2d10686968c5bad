// The power supplies' files, and the FRU areas of supplies and board.
#include <string>

#include "fuzz/harness/platform.h"
#include "fuzz/harness/tables.h"
#include "tables/compute/tavoComputeBoardTable.h"
#include "tables/equipment/tavoEquipmentPsuTable.h"

namespace tavo::fuzz {

void try_input(Octets input) {
  Platform platform(input);
  FuzzedDataProvider &answers = platform.answers;
  platform.files["/var/pmbus/num_psu"] = answers.ConsumeRandomLengthString(5);
  for (const char *supply : {"0", "1", "3", "4", "254"}) {
    for (const char *name : {"status", "pin", "poutmax", "rev", "model"}) {
      if (answers.ConsumeBool()) {
        platform.files["/var/pmbus/ps" + std::string(supply) + '/' + name] = answers.ConsumeRandomLengthString(40);
      }
    }
  }
  initialize_psu_table(1);
  initialize_board_table();
  serve({&tavoEquipmentPsuTable_table, &tavoComputeBoardTable_table});
  empty({&tavoEquipmentPsuTable_table, &tavoComputeBoardTable_table});
}

}  // namespace tavo::fuzz
