// A made-up management controller, and the source that asks it.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "controller.h"
#include "hardware/ipmi.h"
#include "tree.h"

namespace tavo::service {

inline constexpr std::uint8_t fan_type = 4;
inline constexpr std::uint8_t fan_entity = 0x1d;
inline constexpr std::uint8_t turns = 18;
inline constexpr std::uint8_t presence_type = 0x25;
inline constexpr std::uint8_t specific = 0x6f;

// It turns at a hundred times what it reads, and is slow at 500.
inline MadeUpSensor fan(std::uint8_t number, const std::string &name) {
  return {.number = number,
          .type = fan_type,
          .entity = fan_entity,
          .instance = number,
          .name = name,
          .unit = turns,
          .multiplier = 100,
          .lower_critical = 5,
          .hysteresis = 2};
}

inline MadeUpSensor temperature(std::uint8_t number, const std::string &name) {
  return {.number = number,
          .name = name,
          .readable = 0x30,
          .upper_non_recoverable = 90,
          .upper_critical = 80,
          .hysteresis = 5};
}

class Ipmi : public Tree {
 protected:
  static std::unique_ptr<MadeUpController> make_controller() { return std::make_unique<MadeUpController>(); }

  // One reading of the sensors: they are read every sixth time.
  Finding read() {
    for (int i = 0; i < 5; ++i) {
      source_.read();
    }
    return read_alone(source_);
  }

  Inventory found() {
    Inventory inventory;
    read().enter(inventory);
    return inventory;
  }

  std::vector<std::string> descriptions() {
    std::vector<std::string> all;
    for (const Trouble &trouble : read().troubles) {
      all.push_back(trouble.severity + ": " + trouble.description);
    }
    return all;
  }

  std::unique_ptr<MadeUpController> made_ = make_controller();
  MadeUpController &controller_ = *made_;
  Register register_{directory_ / "register.json"};
  IpmiSource source_{register_, std::move(made_)};
};

}  // namespace tavo::service
