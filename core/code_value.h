// What a code of the platform means as a column's value.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>

namespace tavo {

struct CodeValue {
  std::uint32_t code;
  std::int32_t value;
};

// The value that `values` has for `code`, `otherwise` for a code that is not among them.
constexpr std::int32_t value_of(std::span<const CodeValue> values, std::uint32_t code, std::int32_t otherwise = 0) {
  const auto found = std::ranges::find(values, code, &CodeValue::code);
  return found == values.end() ? otherwise : found->value;
}

}  // namespace tavo
