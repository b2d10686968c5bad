// Texts in fixed arrays. Whatever is written ends with a NUL; what does not fit is cut off.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tavo {

template <std::size_t N>
void copy_text(char (&to)[N], std::string_view text) {
  const std::size_t length = std::min(text.size(), N - 1);
  text.copy(to, length);
  to[length] = '\0';
}

// The same for a text that carries its length, which does not count the NUL.
template <std::size_t N>
void copy_counted_text(char (&to)[N], std::int32_t &length, std::string_view text) {
  copy_text(to, text);
  length = static_cast<std::int32_t>(std::min(text.size(), N - 1));
}

// As printf. A function of its own for any size: the compiler must not warn of the cut, which is meant.
[[gnu::format(printf, 3, 4)]] void format_text(char *to, std::size_t size, const char *format, ...);

template <std::size_t N, class... Args>
void format_text(char (&to)[N], const char *format, Args... args) {
  format_text(to, N, format, args...);
}

}  // namespace tavo
