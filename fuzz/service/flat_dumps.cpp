// What flatkv reads: the JSON of the other query tools.
#include <string_view>

#include "fuzz/harness/door.h"
#include "service/queries.h"

namespace tavo::fuzz {

void try_input(Octets input) {
  service::flattened({reinterpret_cast<const char *>(input.data()), input.size()});
}

}  // namespace tavo::fuzz
