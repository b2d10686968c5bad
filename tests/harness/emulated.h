// Whether scripts/emulate runs the test.
#pragma once

#include <cstdlib>

namespace tavo {

// Then posix_spawn() succeeds whatever becomes of the program: in QEMU, the process that it makes shares no memory.
inline bool is_emulated() {
  return std::getenv("QEMU_LD_PREFIX") != nullptr;
}
constexpr const char *hides_failed_starts = "QEMU lets posix_spawn() succeed, whatever becomes of the program";

}  // namespace tavo
