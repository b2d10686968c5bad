// Temperatures and consumed power, as the management controller measures them.
#pragma once

#include <map>
#include <optional>
#include <vector>

#include "hardware/ipmi_sensors.h"
#include "hardware/source.h"

namespace tavo::service {

// Enters those of the board and, if `with_processors`, those of the processors with these numbers.
void enter_temperatures(Inventory &inventory, const std::vector<IpmiSample> &samples,
                        const std::map<std::uint8_t, std::int64_t> &processors, bool with_processors);

// The temperatures that are too high.
std::vector<Trouble> temperature_troubles(const std::vector<IpmiSample> &samples,
                                          const std::map<std::uint8_t, std::int64_t> &processors, bool with_processors);

// The server's power in watts: what the controller itself says or, if it does not, a sensor or the sum of those of the
// power supplies. Throws IpmiSilence.
std::optional<double> consumed_power(IpmiDevice &device, const std::vector<IpmiSample> &samples);

}  // namespace tavo::service
