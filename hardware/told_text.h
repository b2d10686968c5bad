// What a part says of itself in a text: a name, a model, a serial number.
#pragma once

#include <string>
#include <string_view>

namespace tavo::service {

// Without what fields are filled up with, at both ends: blanks, control characters, and octets of 255, which erased
// memory holds.
std::string_view trimmed(std::string_view text);

// A line of printable ASCII, trimmed. The text ends at its first NUL that comes after something else. Other octets turn
// into '?'. Phrases such as "To Be Filled By O.E.M.", which say that nobody has written a text, are no text: empty.
std::string told_text(std::string_view text);

}  // namespace tavo::service
