// Makes faults of troubles: raises one when a trouble has lasted for a while, and clears it when the trouble has been
// over for a while, so that what comes and goes does not flood the operator.
#pragma once

#include <chrono>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "hardware/register.h"
#include "hardware/source.h"
#include "service/machine.h"

namespace tavo::service {

// What the sources say at a time.
struct Situation {
  std::vector<Trouble> troubles;
  std::map<std::string, std::vector<std::string>> undecided;  // as Finding::undecided, by source
};

class FaultKeeper {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr std::chrono::seconds raised_after{3};
  static constexpr std::chrono::seconds cleared_after{20};

  // `kept` outlives the keeper. Its faults are taken to be active. One that cannot be
  // is dropped, with a line on standard error.
  explicit FaultKeeper(Register &kept);

  // The active faults as parts, for the inventory with which a machine starts.
  std::vector<Part> active() const;

  // Compares the troubles that there are now with the active faults. A trouble whose severity or description has
  // changed updates its fault at once; one that is now another part's clears it and raises another. An error of which
  // several troubles tell is one fault. Of troubles with the same key, the first counts: the others would update its
  // fault each time.
  void settle(const Situation &situation, Clock::time_point now, Machine &machine);

 private:
  struct Known {
    bool is_fault = false;
    bool is_there = false;
    Clock::time_point since{};  // when is_there changed
    RegisteredFault fault{};
  };

  void note(const Trouble &trouble, Clock::time_point now, Machine &machine);
  void raise(const std::string &key, Known &known, Machine &machine);
  void clear(const std::string &key, Known &known, Machine &machine);

  Register &register_;
  std::map<std::string, Known> known_;  // by the trouble's key
};

}  // namespace tavo::service
