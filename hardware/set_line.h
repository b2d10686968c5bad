// Texts of the hardware, which may be long and hold anything, where a line of ASCII must stand.
#pragma once

#include <string>
#include <string_view>

#include "service/part.h"

namespace tavo::service {

// The first `most` octets of the text, with '?' for each octet that is no printable ASCII.
std::string one_line(std::string_view text, std::size_t most);

// Sets a text field to as much of the text as fits, as one_line() does.
void set_line(Part &part, std::string_view field, std::string_view text);

}  // namespace tavo::service
