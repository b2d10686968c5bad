// Integers in the controller's byte order, whatever order this machine uses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tavo::service {

// Fills all of `to` with the low octets of `value`, the lowest first.
inline void put_little_endian(std::span<std::byte> to, std::uint64_t value) {
  for (std::byte &octet : to) {
    octet = static_cast<std::byte>(value);
    value >>= 8;
  }
}

// The unsigned integer that fills `from`, which has at most 8 octets.
inline std::uint64_t little_endian(std::span<const std::byte> from) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < from.size(); ++i) {
    value |= std::to_integer<std::uint64_t>(from[i]) << (8 * i);
  }
  return value;
}

}  // namespace tavo::service
