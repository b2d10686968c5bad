#include "hardware/set_line.h"

#include <algorithm>

namespace tavo::service {

void set_line(Part &part, std::string_view field, std::string_view text) {
  std::string line(text.substr(0, find_field(part.kind(), field)->size));
  std::ranges::replace_if(
      line, [](unsigned char c) { return c < ' ' || c == 0x7f; }, '?');
  part.set(field, line);
}

}  // namespace tavo::service
