// Writes the platform's records for tests.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tavo::fakes {

// `Size` octets, zeroed at first. The writers throw std::out_of_range beyond the end and return the record. `Record`:
// the type that derives from this.
template <class Record, std::size_t Size>
struct RecordOctets {
  std::array<std::byte, Size> octets{};

  // Copies the text without a NUL.
  Record &text(std::size_t offset, std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
      octets.at(offset + i) = static_cast<std::byte>(text[i]);
    }
    return static_cast<Record &>(*this);
  }

  // Writes the low `width` octets of the number, low octet first.
  Record &number(std::size_t offset, std::uint64_t number, std::size_t width = 4) {
    for (std::size_t i = 0; i < width; ++i) {
      octets.at(offset + i) = static_cast<std::byte>(number >> (8 * i));
    }
    return static_cast<Record &>(*this);
  }
};

template <std::size_t Size>
struct PlatformRecord : RecordOctets<PlatformRecord<Size>, Size> {
  // Copies a record inside this one.
  template <std::size_t PartSize>
  PlatformRecord &part(std::size_t offset, const PlatformRecord<PartSize> &part) {
    for (std::size_t i = 0; i < PartSize; ++i) {
      this->octets.at(offset + i) = part.octets[i];
    }
    return *this;
  }
};

}  // namespace tavo::fakes
