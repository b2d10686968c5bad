// Texts in fixed arrays. Whatever is written ends with a NUL; what does not fit is cut off.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tavo {

template <std::size_t N>
void copy_text(char (&to)[N], std::string_view text) {
  const std::size_t length = std::min(text.size(), N - 1);
  text.copy(to, length);
  to[length] = '\0';
}

// As printf. Returns false when the text was cut off. Not inline, so that the compiler does not warn of a cut: it is
// intended.
[[gnu::format(printf, 3, 4)]] bool format_text(char *to, std::size_t size, const char *format, ...);

template <std::size_t N, class... Args>
bool format_text(char (&to)[N], const char *format, Args... args) {
  return format_text(to, N, format, args...);
}

// Takes the decimal number that a text begins with, and the blanks before it, off the text. Empty, and the text left
// alone, when it begins with none. A number of more than 32 bits becomes the nearest that has them.
std::optional<std::int32_t> take_number(std::string_view &text);

// The same where the rest does not matter.
inline std::optional<std::int32_t> leading_number(std::string_view text) {
  return take_number(text);
}

// Takes the next word, up to a blank, and the blanks before it off the text. Empty when there is none.
std::string_view take_word(std::string_view &text);

}  // namespace tavo
