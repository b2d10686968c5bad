// Finding the function that one of the daemon's own exported functions stands in front of. Symbols of the executable
// win over those of every library, so a library or the module that calls such a name reaches the daemon first.
#pragma once

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace tavo {

// The next definition of `name` in load order. Ends the process when there is none: it was linked against one.
template <class Function>
Function *next_definition(const char *name) {
  void *found = dlsym(RTLD_NEXT, name);
  if (found == nullptr) {
    std::fprintf(stderr, "snmp-subagentd: no library defines %s\n", name);
    std::abort();
  }
  return reinterpret_cast<Function *>(found);
}

}  // namespace tavo
