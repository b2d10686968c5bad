// The server's own fans, as the management controller knows them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "hardware/fans.h"
#include "hardware/ipmi_sensors.h"
#include "hardware/register.h"
#include "hardware/source.h"

namespace tavo::service {

struct IpmiFans {
  std::vector<Fan> fans;  // in the order of the sensors
  std::vector<Trouble> troubles;
};

IpmiFans ipmi_fans(const std::vector<IpmiSample> &samples, Register &kept);

// "present", "absent" or "unknown", as the entity's presence sensors tell.
std::string_view presence_of(const IpmiEntity &entity, const std::vector<IpmiSample> &samples);

}  // namespace tavo::service
