#include "simulator/drift.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace tavo::service {
namespace {

// Moves a reading up or down by at most `most`, but not below 0.1. A reading of 0 is one that the server lacks, and
// stays.
void step(Part &part, std::string_view field, double most, std::minstd_rand &random) {
  const double now = std::strtod(part.text(field).c_str(), nullptr);
  if (now == 0) {
    return;
  }
  constexpr double least = 0.1;
  const double next = std::fmax(least, now + std::uniform_real_distribution(-most, most)(random));
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f", next);
  part.set(field, text.data());
}

void move_readings(Inventory &inventory, std::minstd_rand &random) {
  step(inventory.environment, "power", 4, random);
  step(inventory.environment, "current", 0.1, random);
  step(inventory.environment, "voltage", 0.1, random);
  for (const std::string_view reading : {"ambient", "front", "iohub1", "iohub2", "rear"}) {
    step(inventory.environment, reading, 0.6, random);
  }
  for (Part &processor : inventory.processors) {
    step(processor, "temperature", 1, random);
  }
  for (Part &dimm : inventory.dimms) {
    step(dimm, "temperature", 0.6, random);
  }
}

}  // namespace

void Drift::advance(Machine &machine, unsigned seconds) {
  const auto interval = machine.read([](const Inventory &i) { return i.environment.number("drift"); });
  waited_ = interval > 0 ? waited_ + seconds : 0;
  if (interval <= 0 || waited_ < interval) {
    return;
  }
  waited_ = 0;
  machine.change_readings([&](Inventory &inventory) { move_readings(inventory, random_); });
}

}  // namespace tavo::service
