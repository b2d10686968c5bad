// Fans in the inventory. A fan is two sensors there: its speed, and whether it is there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hardware/register.h"
#include "hardware/source.h"
#include "service/inventory.h"

namespace tavo::service {

struct Fan {
  std::string place{};                    // tells it from the source's others, for ever
  std::string key{};                      // what the keys of its troubles begin with
  std::string name{};                     // its sensor's, for the operator; may be empty
  std::string_view presence = "present";  // as a sensor's field of that name is written
  bool has_failed = false;
  std::optional<MissingPart> missing = {};  // it was there once, and is not now
};

// Gives each fan of a source the position that it had before, whatever fans come and go, also over restarts.
class FanPlaces {
 public:
  // `kept` outlives this object. The group in it is the source's own.
  FanPlaces(Register &kept, std::string group) : kept_(kept), group_(std::move(group)) {}

  // The fans in the order of their positions. One that has gone since the start, or that comes before one that is
  // there, is absent. None if there are none.
  std::vector<Fan> in_places(const std::vector<Fan> &fans);

 private:
  Register &kept_;
  const std::string group_;
  std::size_t places_ = 0;  // also of those that have gone
};

// What is to be shown of all fans of the server's own, in the order of their positions from 0, and their troubles.
Account account_of_fans(const std::vector<Fan> &fans);

// Adds the fan of the power supply with this number, from 1. To be called after the server's own have been entered.
void enter_supply_fan(Inventory &inventory, std::int64_t supply, std::string_view presence);

}  // namespace tavo::service
