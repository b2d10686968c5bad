// Calendar times also beyond 2038: seconds since 1970 have 64 bits here, however wide the platform's time_t is. On a
// platform whose C library knows no wider one than that of 32 bits, later times do not exist.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>

namespace tavo {

// The time of day in seconds since 1970. Nothing if the platform cannot tell it.
std::optional<std::int64_t> time_of_day();

// The time in the controller's time zone. Nothing if the platform has no such time.
std::optional<std::tm> local_time(std::int64_t seconds);

// The reverse of local_time(). Takes what mktime() takes, and decides itself whether it is summer.
std::optional<std::int64_t> seconds_since_1970(std::tm local);

}  // namespace tavo
