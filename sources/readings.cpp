#include "sources/readings.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <limits>
#include <optional>

#include "core/calendar.h"
#include "core/conversions.h"

namespace tavo {

std::int32_t whole_reading(const char *text) {
  float reading = 0;
  if (std::sscanf(text, "%f", &reading) != 1 || std::isnan(reading)) {
    return 0;
  }
  using Whole = std::numeric_limits<std::int32_t>;
  return static_cast<std::int32_t>(std::clamp<double>(reading + 0.5, Whole::min(), Whole::max()));
}

void take_collection_time(const char *text, CollectionTime &collected) {
  std::tm calendar{};
  if (strptime(text, "%Y-%m-%dT%H:%M:%S", &calendar) == nullptr) {
    return;
  }
  const std::optional<std::int64_t> seconds = seconds_since_1970(calendar);
  std::array<unsigned char, 32> octets{};
  std::size_t length = octets.size();
  if (seconds && write_date_and_time(*seconds, octets.data(), &length) == 0) {
    std::memcpy(collected, octets.data(), length);
  }
}

}  // namespace tavo
