#include "core/text.h"

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <limits>

namespace tavo {
namespace {

constexpr std::string_view blanks = " \t\n\v\f\r";

std::string_view without_leading_blanks(std::string_view text) {
  return text.substr(std::min(text.find_first_not_of(blanks), text.size()));
}

}  // namespace

std::size_t copy_text(char *to, std::size_t size, std::string_view text) {
  const std::size_t length = std::min(text.size(), size - 1);
  std::copy_n(text.data(), length, to);
  to[length] = '\0';
  return length;
}

bool format_text(char *to, std::size_t size, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(to, size, format, arguments);
  va_end(arguments);
  return length >= 0 && static_cast<std::size_t>(length) < size;
}

std::optional<std::int32_t> take_number(std::string_view &text) {
  std::string_view digits = without_leading_blanks(text);
  if (digits.starts_with('+') && !digits.starts_with("+-")) {
    digits.remove_prefix(1);
  }
  std::int32_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error == std::errc::invalid_argument) {
    return std::nullopt;
  }
  if (error == std::errc::result_out_of_range) {
    using Limits = std::numeric_limits<std::int32_t>;
    number = digits.starts_with('-') ? Limits::min() : Limits::max();
  }
  text = digits.substr(static_cast<std::size_t>(end - digits.data()));
  return number;
}

std::string_view take_word(std::string_view &text) {
  const std::string_view rest = without_leading_blanks(text);
  const std::string_view word = rest.substr(0, rest.find_first_of(blanks));
  text = rest.substr(word.size());
  return word;
}

}  // namespace tavo
