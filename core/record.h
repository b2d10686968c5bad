// Reads a record of the platform field by field. Records have the layout of a 32-bit little-endian controller on any
// machine, so fields are read by their offsets, never through a struct.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

namespace tavo {

class Record {
 public:
  explicit constexpr Record(std::span<const std::byte> octets) : octets_(octets) {}
  // `record`: `size` octets.
  Record(const void *record, std::size_t size) : octets_(static_cast<const std::byte *>(record), size) {}

  constexpr std::size_t size() const { return octets_.size(); }

  // Integers; 0 if the record ends first.
  constexpr std::uint8_t u8(std::size_t offset) const { return static_cast<std::uint8_t>(unsigned_at(offset, 1)); }
  constexpr std::uint32_t u32(std::size_t offset) const { return static_cast<std::uint32_t>(unsigned_at(offset, 4)); }
  constexpr std::int32_t i32(std::size_t offset) const { return static_cast<std::int32_t>(u32(offset)); }
  constexpr std::uint64_t u64(std::size_t offset) const { return unsigned_at(offset, 8); }

  // The text in a field of `capacity` octets: up to its NUL, or the whole field if it has none.
  std::string_view text(std::size_t offset, std::size_t capacity) const {
    const std::span<const std::byte> field = part(offset, capacity).octets_;
    const auto *const start = reinterpret_cast<const char *>(field.data());
    return {start, field.empty() ? 0 : ::strnlen(start, field.size())};
  }

  // `length` octets from `offset` on, or fewer if the record ends first.
  constexpr Record part(std::size_t offset, std::size_t length) const {
    const auto rest = octets_.subspan(offset < octets_.size() ? offset : octets_.size());
    return Record(rest.first(length < rest.size() ? length : rest.size()));
  }

 private:
  constexpr std::uint64_t unsigned_at(std::size_t offset, std::size_t width) const {
    const std::span<const std::byte> field = part(offset, width).octets_;
    if (field.size() < width) {
      return 0;
    }
    std::uint64_t value = 0;
    for (std::size_t i = width; i-- > 0;) {
      value = value << 8 | std::to_integer<std::uint64_t>(field[i]);
    }
    return value;
  }

  std::span<const std::byte> octets_;
};

}  // namespace tavo
