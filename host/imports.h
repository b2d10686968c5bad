// Which names a shared object expects others to define.
#pragma once

#include <string_view>
#include <vector>

namespace tavo {

// Of a library that dlopen() has loaded: the names that it cannot do without, unless they are weak. They stay valid
// while the library is loaded. Empty for a library that exports nothing itself.
std::vector<std::string_view> imported_names(void *library);

}  // namespace tavo
