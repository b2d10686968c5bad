// What the module imports from the daemon that loads it.
#pragma once

#include <string>
#include <vector>

namespace tavo::fakes {

// Notes what the module reports of its health (core/health.h) while it lives. One at a time.
class RecordedReports {
 public:
  RecordedReports();
  ~RecordedReports();
  RecordedReports(const RecordedReports &) = delete;
  RecordedReports &operator=(const RecordedReports &) = delete;

  // The reports since the last call, oldest first, such as "tavoFaultTable is registered".
  static std::vector<std::string> take();
};

}  // namespace tavo::fakes
