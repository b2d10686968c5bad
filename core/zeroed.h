// Zeroed heap memory that frees itself. Null, not an exception, if memory is short.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace tavo {

struct FreeMemory {
  void operator()(void *memory) const { std::free(memory); }
};

template <class T>
using Zeroed = std::unique_ptr<T, FreeMemory>;

// One zeroed object.
template <class T>
Zeroed<T> make_zeroed() {
  return Zeroed<T>(static_cast<T *>(std::calloc(1, sizeof(T))));
}

// `count` zeroed blocks of `size` octets, back to back. Null, too, if the product overflows.
inline Zeroed<std::byte[]> make_zeroed_octets(std::size_t count, std::size_t size) {
  return Zeroed<std::byte[]>(static_cast<std::byte *>(std::calloc(count, size)));
}

}  // namespace tavo
