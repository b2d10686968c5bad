// Made-up structures of the firmware's table.
#pragma once

#include <cstddef>
#include <string>

namespace tavo::service {

// A structure of `size` octets, with fields at their offsets and texts after it.
class Structure {
 public:
  Structure(int type, std::size_t size) : octets_(size, '\0') {
    octets_[0] = static_cast<char>(type);
    octets_[1] = static_cast<char>(size);
  }

  Structure &octet(std::size_t offset, int value) {
    octets_[offset] = static_cast<char>(value);
    return *this;
  }
  Structure &word(std::size_t offset, int value) { return octet(offset, value & 0xff).octet(offset + 1, value >> 8); }
  Structure &text(std::size_t offset, const std::string &text) {
    texts_ += text + '\0';
    return octet(offset, ++count_);
  }

  std::string octets() const { return octets_ + (texts_.empty() ? std::string(1, '\0') : texts_) + '\0'; }

 private:
  std::string octets_;
  std::string texts_;
  int count_ = 0;
};

}  // namespace tavo::service
