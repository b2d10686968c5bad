// Power supplies and their fans, as the management controller knows them.
#pragma once

#include <map>
#include <vector>

#include "hardware/ipmi_fans.h"
#include "hardware/ipmi_fru.h"
#include "hardware/ipmi_sensors.h"
#include "hardware/source.h"
#include "hardware/supplies.h"

namespace tavo::service {

// "ipmi supply 10.1": what the keys of the troubles begin with of the supply that the sensor is about.
std::string supply_key(const IpmiSensor &sensor);

// A supply is what has sensors for the state of a power supply, or a FRU area as one. Its number is kept. One of which
// the controller does not say whether it is there counts as there if it was there once.
Supplies ipmi_supplies(const std::vector<IpmiSample> &samples, const std::map<IpmiEntity, IpmiFru> &frus,
                       Register &kept);

}  // namespace tavo::service
