// How a test tells a module in the running daemon what to do: one line at a time through a named pipe, whose path is in
// the environment variable TEST_MODULE_CONTROL.
#pragma once

#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

// Everything that the modules serve lies under here, far from the real tables.
inline constexpr unsigned long test_base[] = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 200};
inline constexpr std::size_t test_base_length = std::size(test_base);

// Starts a thread that hands each line to `obey`. It never ends.
inline void obey_control_lines(std::function<void(const std::string &)> obey) {
  const char *path = std::getenv("TEST_MODULE_CONTROL");
  if (path == nullptr) {
    return;
  }
  std::thread([control = std::string(path), obey = std::move(obey)] {
    // For writing as well: with a writer of its own the pipe has no end, at which a line could get lost.
    std::fstream lines(control, std::ios::in | std::ios::out);
    for (std::string line; std::getline(lines, line);) {
      obey(line);
    }
  }).detach();
}
