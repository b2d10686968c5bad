// Zeroed heap memory that frees itself. Null instead of an exception when there is none.
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

// `count` zeroed blocks of `size` octets, back to back. Null, too, when that is more than memory can hold.
inline Zeroed<std::byte[]> make_zeroed_octets(std::size_t count, std::size_t size) {
  return Zeroed<std::byte[]>(static_cast<std::byte *>(std::calloc(count, size)));
}

}  // namespace tavo
