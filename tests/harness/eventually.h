// Waits in a test for other threads.
#pragma once

#include <chrono>
#include <thread>

namespace tavo {

// Polls until the condition holds; false when it does not within the limit.
template <class Condition>
bool eventually(Condition condition, std::chrono::seconds limit = std::chrono::seconds(20)) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  for (;;) {
    // Read before the condition: one that came true while this thread was not scheduled is still in time.
    const bool late = std::chrono::steady_clock::now() > deadline;
    if (condition()) {
      return true;
    }
    if (late) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace tavo
