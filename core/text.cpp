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
  text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
  return text;
}

}  // namespace

std::size_t copy_text(char *to, std::size_t size, std::string_view text) {
  const std::size_t length = std::min(text.size(), size - 1);
  std::copy_n(text.data(), length, to);
  to[length] = '\0';
  return length;
}

std::size_t copy_text(char *to, std::size_t size, const char *text) {
  return copy_text(to, size, std::string_view(text));
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
  digits.remove_prefix(static_cast<std::size_t>(end - digits.data()));
  text = digits;
  return number;
}

std::int32_t leading_number_or(std::int32_t otherwise, std::string_view text) {
  return take_number(text).value_or(otherwise);
}

std::int32_t leading_number_or(std::int32_t otherwise, const char *text) {
  return leading_number_or(otherwise, std::string_view(text));
}

std::string_view take_word(std::string_view &text) {
  text = without_leading_blanks(text);
  const std::string_view word(text.data(), std::min(text.find_first_of(blanks), text.size()));
  text.remove_prefix(word.size());
  return word;
}

}  // namespace tavo
