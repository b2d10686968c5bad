// Readings as fields of parts hold them.
#pragma once

#include <cstdint>
#include <string>

namespace tavo::service {

// "21.0": readings of whole degrees are written with one decimal, as all others are.
std::string with_one_decimal(double number);
std::string from_thousandths(std::int64_t thousandths);

}  // namespace tavo::service
