// The build asks the C library for a time_t of 64 bits in this file: include nothing that shares times with other
// files.
#include "core/calendar.h"

namespace tavo {

std::optional<std::int64_t> time_of_day() {
  const std::time_t seconds = std::time(nullptr);
  if (seconds == -1) {
    return std::nullopt;
  }
  return seconds;
}

std::optional<std::tm> local_time(std::int64_t seconds) {
  const auto time = static_cast<std::time_t>(seconds);
  std::tm local{};
  if (time != seconds || localtime_r(&time, &local) == nullptr) {
    return std::nullopt;  // the number of seconds or of the year is too large
  }
  return local;
}

std::optional<std::int64_t> seconds_since_1970(std::tm local) {
  local.tm_isdst = -1;
  local.tm_wday = -1;  // mktime() sets it if it succeeds; its result of -1 may also be the last second of 1969
  const std::time_t seconds = std::mktime(&local);
  if (seconds == -1 && local.tm_wday < 0) {
    return std::nullopt;
  }
  return seconds;
}

}  // namespace tavo
