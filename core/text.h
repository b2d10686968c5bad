// Texts in fixed arrays. They always end with a NUL; what does not fit is cut off.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tavo {

// Copies what fits into `size` octets, which are one at least. Returns its length without the NUL.
std::size_t copy_text(char *to, std::size_t size, std::string_view text);
std::size_t copy_text(char *to, std::size_t size, const char *text);

template <std::size_t N>
std::size_t copy_text(char (&to)[N], std::string_view text) {
  return copy_text(to, N, text);
}

template <std::size_t N>
std::size_t copy_text(char (&to)[N], const char *text) {
  return copy_text(to, N, text);
}

// As printf. False when the text was cut off. Not inline: the compiler would warn about cuts that are intended.
[[gnu::format(printf, 3, 4)]] bool format_text(char *to, std::size_t size, const char *format, ...);

template <std::size_t N, class... Args>
bool format_text(char (&to)[N], const char *format, Args... args) {
  return format_text(to, N, format, args...);
}

// Takes leading blanks and the decimal number behind them off the text. Empty, and the text left alone, when there is
// no number. A number that does not fit into 32 bits becomes the nearest one that does.
std::optional<std::int32_t> take_number(std::string_view &text);

// The same, for callers that do not need the rest.
inline std::optional<std::int32_t> leading_number(std::string_view text) {
  return take_number(text);
}

// leading_number, or `otherwise` when there is none.
std::int32_t leading_number_or(std::int32_t otherwise, std::string_view text);
std::int32_t leading_number_or(std::int32_t otherwise, const char *text);

// Takes leading blanks and the word behind them, up to the next blank, off the text. Empty when there is no word.
std::string_view take_word(std::string_view &text);

}  // namespace tavo
