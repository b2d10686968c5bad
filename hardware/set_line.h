// Texts of the hardware, which may be long and hold anything, in the fields of parts.
#pragma once

#include <string>
#include <string_view>

#include "service/part.h"

namespace tavo::service {

// Sets a text field to as much of the text as fits, with '?' for what does not belong on a line.
void set_line(Part &part, std::string_view field, std::string_view text);

}  // namespace tavo::service
