#include "hardware/decimal.h"

#include <array>
#include <cstdio>

namespace tavo::service {

std::string with_one_decimal(double number) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f", number);
  return text.data();
}

std::string from_thousandths(std::int64_t thousandths) {
  return with_one_decimal(static_cast<double>(thousandths) / 1000);
}

}  // namespace tavo::service
