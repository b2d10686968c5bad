#include "hardware/vital_product_data.h"

#include <cstdint>
#include <string_view>

#include "hardware/told_text.h"

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

std::string_view characters(std::span<const std::byte> octets) {
  return {reinterpret_cast<const char *>(octets.data()), octets.size()};
}

// Each field has a keyword of two letters, the length of its text in an octet, and the text.
void read_fields(std::span<const std::byte> fields, VitalProductData &data) {
  constexpr std::size_t header = 3;
  while (fields.size() >= header) {
    const std::size_t length = octet(fields, 2);
    if (length > fields.size() - header) {
      return;
    }
    const std::string_view keyword = characters(fields.first(2));
    const std::string_view text = characters(fields.subspan(header, length));
    if (keyword == "PN") {
      data.part_number = told_text(text);
    } else if (keyword == "SN") {
      data.serial = told_text(text);
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
      data.product = told_text(characters(content));
    } else if (tag == read_only_fields) {
      read_fields(content, data);
    }
    octets = octets.subspan(header + length);
  }
  return data;
}

}  // namespace tavo::service
