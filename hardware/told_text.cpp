#include "hardware/told_text.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "hardware/set_line.h"

namespace tavo::service {
namespace {

bool is_placeholder(std::string text) {
  constexpr auto phrases = std::to_array<std::string_view>(
      {"to be filled by o.e.m.", "default string", "not specified", "not provided", "not available", "not applicable",
       "unknown", "no dimm", "no module installed", "none", "n/a", "system serial number", "system product name",
       "system manufacturer", "base board serial number", "base board product name", "base board manufacturer",
       "0123456789"});
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return std::ranges::find(phrases, text) != phrases.end();
}

}  // namespace

std::string_view trimmed(std::string_view text) {
  const auto fills = [](unsigned char c) { return c <= ' ' || c == 0x7f || c == 0xff; };
  while (!text.empty() && fills(static_cast<unsigned char>(text.front()))) {
    text.remove_prefix(1);
  }
  while (!text.empty() && fills(static_cast<unsigned char>(text.back()))) {
    text.remove_suffix(1);
  }
  return text;
}

std::string told_text(std::string_view text) {
  const std::string_view begun = trimmed(text);
  std::string line = one_line(trimmed(begun.substr(0, begun.find('\0'))), std::string_view::npos);
  return is_placeholder(line) ? "" : line;
}

}  // namespace tavo::service
