// Readings that move, so that a dashboard has something to show.
#pragma once

#include <random>

#include "service/machine.h"

namespace tavo::service {

class Drift {
 public:
  // Moves every reading a little if the environment's drift says that it is time. Called about once a second with the
  // seconds since the last call.
  void advance(Machine &machine, unsigned seconds);

 private:
  unsigned waited_ = 0;  // seconds since the readings moved
  std::minstd_rand random_;
};

}  // namespace tavo::service
