// The time that poll() may wait.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>

namespace tavo {

// Until `when`, or for ever.
inline int poll_time(std::optional<std::chrono::steady_clock::time_point> when) {
  if (!when) {
    return -1;
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*when - std::chrono::steady_clock::now());
  return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
}

}  // namespace tavo
