#include "tests/fakes/searches.h"

#include <atomic>

namespace tavo::fakes {
namespace {

std::atomic<std::size_t> searched = 0;

}  // namespace

std::size_t octets_searched() {
  return searched;
}

void forget_octets_searched() {
  searched = 0;
}

}  // namespace tavo::fakes

extern "C" {

void *__real_memmem(const void *text, std::size_t size, const void *needle, std::size_t needle_size);

void *__wrap_memmem(const void *text, std::size_t size, const void *needle, std::size_t needle_size) {
  void *found = __real_memmem(text, size, needle, needle_size);
  tavo::fakes::searched +=
      found == nullptr
          ? size
          : static_cast<std::size_t>(static_cast<const char *>(found) - static_cast<const char *>(text)) + needle_size;
  return found;
}
}
