// Marker files: only their existence matters.
#pragma once

#include <sys/stat.h>

namespace tavo {

inline bool marker_exists(const char *path) {
  struct stat status = {};
  return stat(path, &status) == 0;
}

}  // namespace tavo
