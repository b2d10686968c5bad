// Marker files: only their existence matters.
#pragma once

#include <sys/stat.h>

namespace tavo {

// Records that the start-up notification was sent. /var is volatile, so there is none until a minute after a cold boot.
inline constexpr const char *warm_start_marker = "/var/tvmcWarmStartup";

inline bool marker_exists(const char *path) {
  struct stat status = {};
  return stat(path, &status) == 0;
}

}  // namespace tavo
