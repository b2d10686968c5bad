// Lets a test give orders to a test module in the running daemon: lines in a named pipe, whose path is in the
// environment variable TEST_MODULE_CONTROL.
#pragma once

#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

namespace tavo {

// The modules serve their objects below this OID, far from the real tables.
inline constexpr unsigned long test_base[] = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 200};
inline constexpr std::size_t test_base_length = std::size(test_base);

// Starts a thread that calls `obey` with each line. It never ends.
inline void obey_control_lines(std::function<void(const std::string &)> obey) {
  const char *path = std::getenv("TEST_MODULE_CONTROL");
  if (path == nullptr) {
    return;
  }
  std::thread([control = std::string(path), obey = std::move(obey)] {
    // Opened for writing as well, so that the pipe never reports its end: lines that come after that would be lost.
    std::fstream lines(control, std::ios::in | std::ios::out);
    for (std::string line; std::getline(lines, line);) {
      obey(line);
    }
  }).detach();
}

}  // namespace tavo
