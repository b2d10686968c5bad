#include "core/array.h"

namespace tavo {

bool make_wider(void **elements, std::size_t *capacity, std::size_t size) {
  const std::size_t wider = *capacity == 0 ? 16 : 2 * *capacity;
  void *grown = reallocarray(*elements, wider, size);
  if (grown == nullptr) {
    return false;
  }
  *elements = grown;
  *capacity = wider;
  return true;
}

}  // namespace tavo
