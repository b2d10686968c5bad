// Zeroed heap memory that frees itself. Null, not an exception, if memory is short.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <memory>

namespace tavo {

struct FreeMemory {
  void operator()(void *memory) const { std::free(memory); }
};

template <class T>
using Zeroed = std::unique_ptr<T, FreeMemory>;

// Since core/shortage last looked: how often memory was short for what the module shows.
inline constinit std::atomic<unsigned> failed_allocations = 0;

void count_failed_allocation();

// `count` zeroed blocks of `size` octets, back to back, for free(). Null, too, if the product overflows.
void *allocate_zeroed(std::size_t count, std::size_t size);

// One zeroed object.
template <class T>
Zeroed<T> make_zeroed() {
  return Zeroed<T>(static_cast<T *>(allocate_zeroed(1, sizeof(T))));
}

// See allocate_zeroed.
inline Zeroed<std::byte[]> make_zeroed_octets(std::size_t count, std::size_t size) {
  return Zeroed<std::byte[]>(static_cast<std::byte *>(allocate_zeroed(count, size)));
}

}  // namespace tavo
