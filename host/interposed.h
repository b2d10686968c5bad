// Finds the library function that one of the daemon's own functions replaces. A symbol of the executable wins over
// those of every library, so the module and the libraries call the daemon's function first; this finds the one behind
// it.
#pragma once

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

#include "host/name.h"

namespace tavo {

// The next definition of `name` in load order. Aborts when there is none, which linking rules out.
template <class Function>
Function *next_definition(const char *name) {
  void *found = dlsym(RTLD_NEXT, name);
  if (found == nullptr) {
    std::fprintf(stderr, "%s: no library defines %s\n", daemon_name, name);
    std::abort();
  }
  return reinterpret_cast<Function *>(found);
}

}  // namespace tavo
