#include "core/zeroed.h"

namespace tavo {

void count_failed_allocation() {
  ++failed_allocations;
}

void *allocate_zeroed(std::size_t count, std::size_t size) {
  void *memory = std::calloc(count, size);
  if (memory == nullptr) {
    count_failed_allocation();
  }
  return memory;
}

}  // namespace tavo
