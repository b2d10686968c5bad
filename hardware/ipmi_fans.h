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

inline constexpr const char *ipmi_fan_group = "fan";  // in the register

// In the order of the sensors. Those that are there are kept in the register.
std::vector<Fan> ipmi_fans(const std::vector<IpmiSample> &samples, Register &kept);

// Whether the controller knows of at least one of its fans whether it is there, or did so once: records may describe
// fans of which it tells nothing.
bool is_sure_of_fans(const std::vector<Fan> &fans, Register &kept);

// "present", "absent" or "unknown", as the entity's presence sensors tell.
std::string_view presence_of(const IpmiEntity &entity, const std::vector<IpmiSample> &samples);

}  // namespace tavo::service
