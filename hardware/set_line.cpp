#include "hardware/set_line.h"

#include <algorithm>

namespace tavo::service {

std::string one_line(std::string_view text, std::size_t most) {
  std::string line(text.substr(0, most));
  std::ranges::replace_if(
      line, [](unsigned char c) { return c < ' ' || c >= 0x7f; }, '?');
  return line;
}

void set_line(Part &part, std::string_view field, std::string_view text) {
  part.set(field, one_line(text, find_field(part.kind(), field)->size));
}

}  // namespace tavo::service
