#include "hardware/vital_product_data.h"

#include <cstdint>
#include <string_view>

namespace tavo::service {
namespace {

// A resource begins with its tag: a large one has the bit, and then a length of two octets; a small one has its length
// in the three lowest bits.
constexpr std::uint8_t large = 0x80;
constexpr std::uint8_t small_length = 0x07;
constexpr std::uint8_t end_tag = 0x78;  // with any length
constexpr std::uint8_t product_name = 0x82;
constexpr std::uint8_t read_only_fields = 0x90;

std::uint8_t octet(std::span<const std::byte> octets, std::size_t at) {
  return std::to_integer<std::uint8_t>(octets[at]);
}

// Without blanks and NULs, with which fields are filled up.
std::string text_of(std::span<const std::byte> octets) {
  constexpr std::string_view filling(" \0", 2);
  const std::string_view text(reinterpret_cast<const char *>(octets.data()), octets.size());
  const std::size_t first = text.find_first_not_of(filling);
  return first == std::string_view::npos ? ""
                                         : std::string(text.substr(first, text.find_last_not_of(filling) - first + 1));
}

// Each field has a keyword of two letters, the length of its text in an octet, and the text.
void read_fields(std::span<const std::byte> fields, VitalProductData &data) {
  constexpr std::size_t header = 3;
  while (fields.size() >= header) {
    const std::size_t length = octet(fields, 2);
    if (length > fields.size() - header) {
      return;
    }
    const std::string keyword = text_of(fields.first(2));
    const std::span<const std::byte> text = fields.subspan(header, length);
    if (keyword == "PN") {
      data.part_number = text_of(text);
    } else if (keyword == "SN") {
      data.serial = text_of(text);
    }
    fields = fields.subspan(header + length);
  }
}

}  // namespace

VitalProductData parse_vital_product_data(std::span<const std::byte> octets) {
  constexpr std::size_t large_header = 3;
  VitalProductData data;
  while (!octets.empty()) {
    const std::uint8_t tag = octet(octets, 0);
    const bool is_large = (tag & large) != 0;
    const std::size_t header = is_large ? large_header : 1;
    if (octets.size() < header || (tag & ~small_length) == end_tag) {
      break;
    }
    const std::size_t length =
        is_large ? octet(octets, 1) | static_cast<std::size_t>(octet(octets, 2)) << 8 : tag & small_length;
    if (length > octets.size() - header) {
      break;
    }
    const std::span<const std::byte> content = octets.subspan(header, length);
    if (tag == product_name) {
      data.product = text_of(content);
    } else if (tag == read_only_fields) {
      read_fields(content, data);
    }
    octets = octets.subspan(header + length);
  }
  return data;
}

}  // namespace tavo::service
