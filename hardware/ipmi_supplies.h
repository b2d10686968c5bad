// Power supplies and their fans, as the management controller knows them.
#pragma once

#include <map>
#include <string_view>
#include <vector>

#include "hardware/ipmi_fans.h"
#include "hardware/ipmi_fru.h"
#include "hardware/ipmi_sensors.h"
#include "hardware/source.h"

namespace tavo::service {

struct SupplyFan {
  std::int64_t supply;  // its number, from 1
  std::string_view presence;
};

struct IpmiSupplies {
  std::vector<Part> supplies;  // a supply's number is its position, from 1; absent ones fill the gaps
  std::vector<SupplyFan> fans;
  std::vector<Trouble> troubles;
};

// A supply is what has sensors for the state of a power supply, or a FRU area as one. Its number is kept. One of which
// the controller does not say whether it is there counts as there if it was there once.
IpmiSupplies ipmi_supplies(const std::vector<IpmiSample> &samples, const std::map<IpmiEntity, IpmiFru> &frus,
                           Register &kept);

}  // namespace tavo::service
