// What libFuzzer calls, for every door.
#include "fuzz/harness/door.h"

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace tavo::fuzz {
namespace {

std::atomic<bool> trying = false;

}  // namespace

bool is_trying() {
  return trying.load(std::memory_order_relaxed);
}

void expect(bool holds, const char *what) {
  if (!holds) {
    std::fprintf(stderr, "expected: %s\n", what);
    std::abort();
  }
}

}  // namespace tavo::fuzz

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  setenv("TZ", "UTC", 1);
  tzset();
  setenv("MIBS", "", 1);
  // Builders print to standard output; libFuzzer and the sanitizers use standard error.
  if (std::freopen("/dev/null", "w", stdout) == nullptr) {
    std::abort();
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *octets, std::size_t size) {
  tavo::fuzz::trying = true;
  tavo::fuzz::try_input({octets, size});
  tavo::fuzz::trying = false;
  return 0;
}
