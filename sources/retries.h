// Waiting for the platform, whose tools and libraries may not answer yet when a table is built.
#pragma once

#include <unistd.h>

namespace tavo {

// Calls `attempt` until it gives true, `tries` times at most. Every failed try is followed by a pause of 5 s, the last
// one too. False when all have failed.
template <class Attempt>
bool try_repeatedly(Attempt attempt, int tries = 5) {
  constexpr unsigned pause = 5;  // seconds
  for (int i = 0; i < tries; ++i) {
    if (attempt()) {
      return true;
    }
    ::sleep(pause);
  }
  return false;
}

}  // namespace tavo
