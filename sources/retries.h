// Waiting for the platform, whose tools and libraries may not answer yet when a table is built.
#pragma once

#include <unistd.h>

namespace tavo {

inline constexpr int default_tries = 5;

// Calls `attempt` until it gives true, at most `tries` times. A pause of 5 s follows every failed try, the last one
// too. False when all have failed.
template <class Attempt>
bool try_repeatedly(Attempt attempt, int tries = default_tries) {
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
