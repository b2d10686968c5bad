#include "hardware/sysfs.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

#include "core/descriptor.h"
#include "hardware/told_text.h"

namespace tavo::service {
namespace {

// Orders "hwmon2" before "hwmon10".
bool in_order_of_numbers(const std::filesystem::path &left, const std::filesystem::path &right) {
  const std::string a = left.filename().string();
  const std::string b = right.filename().string();
  const std::size_t digits_a = a.size() - (a.find_last_not_of("0123456789") + 1);
  const std::size_t digits_b = b.size() - (b.find_last_not_of("0123456789") + 1);
  const bool same_name = a.substr(0, a.size() - digits_a) == b.substr(0, b.size() - digits_b);
  return same_name && a.size() != b.size() ? a.size() < b.size() : a < b;
}

}  // namespace

std::optional<std::string> read_attribute(const std::filesystem::path &file) {
  constexpr std::size_t page = 4096;  // an attribute is not longer
  const Descriptor opened = open_for_reading(file.c_str());
  std::array<char, page> text{};
  const ssize_t length = opened ? read_some(opened, std::as_writable_bytes(std::span(text))) : -1;
  if (length < 0) {
    return std::nullopt;
  }
  return std::string(trimmed({text.data(), static_cast<std::size_t>(length)}));
}

std::optional<std::int64_t> read_number(const std::filesystem::path &file) {
  const auto text = read_attribute(file);
  std::int64_t number = 0;
  if (!text || std::from_chars(text->data(), text->data() + text->size(), number).ec != std::errc()) {
    return std::nullopt;
  }
  return number;
}

bool is_set(const std::filesystem::path &file) {
  return read_number(file).value_or(0) != 0;
}

std::vector<std::filesystem::path> entries(const std::filesystem::path &directory, std::string_view prefix) {
  std::vector<std::filesystem::path> found;
  std::error_code error;
  // Not a range-based loop, which throws if the directory vanishes meanwhile.
  for (std::filesystem::directory_iterator entry(directory, error), end; !error && entry != end;
       entry.increment(error)) {
    if (entry->path().filename().string().starts_with(prefix)) {
      found.push_back(entry->path());
    }
  }
  if (error) {
    return {};
  }
  std::ranges::sort(found, in_order_of_numbers);
  return found;
}

}  // namespace tavo::service
