// Maps the platform's codes to columns' values.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>

namespace tavo {

struct CodeValue {
  std::uint32_t code;
  std::int32_t value;
};

// The value for `code`; 0 for a code that is not in `values`.
constexpr std::int32_t value_of(std::span<const CodeValue> values, std::uint32_t code) {
  const auto found = std::ranges::find(values, code, &CodeValue::code);
  return found == values.end() ? 0 : found->value;
}

}  // namespace tavo
