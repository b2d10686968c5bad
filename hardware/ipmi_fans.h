// The server's own fans, as the management controller knows them.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "hardware/fans.h"
#include "hardware/ipmi_sensors.h"
#include "hardware/source.h"

namespace tavo::service {

// Parts that have been there, by a key. Only what has been there can be missing: a place may be meant to be empty.
using SeenParts = std::set<std::string>;

struct IpmiFans {
  std::vector<Fan> fans;  // in the order of the sensors
  std::vector<Trouble> troubles;
};

// Adds the fans that are there to `seen`.
IpmiFans ipmi_fans(const std::vector<IpmiSample> &samples, SeenParts &seen);

// "present", "absent" or "unknown", as the entity's presence sensors tell.
std::string_view presence_of(const IpmiEntity &entity, const std::vector<IpmiSample> &samples);

}  // namespace tavo::service
