// The sensors: types, entities and the names of fans.
#include "fuzz/harness/platform.h"
#include "fuzz/harness/tables.h"
#include "tables/equipment/tavoEquipmentFanTable.h"

namespace tavo::fuzz {

void try_input(Octets input) {
  const Platform platform(input);
  initialize_fan_table(1);
  serve({&tavoEquipmentFanTable_table});
  empty({&tavoEquipmentFanTable_table});
}

}  // namespace tavo::fuzz
