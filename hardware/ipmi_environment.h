// Temperatures and consumed power, as the management controller measures them.
#pragma once

#include <map>
#include <optional>
#include <vector>

#include "hardware/ipmi_sensors.h"
#include "hardware/source.h"

namespace tavo::service {

// Enters the board's temperatures.
void enter_board_temperatures(Inventory &inventory, const std::vector<IpmiSample> &samples);

// Enters the temperatures of the processors with these numbers.
void enter_processor_temperatures(Inventory &inventory, const std::vector<IpmiSample> &samples,
                                  const std::map<std::uint8_t, std::int64_t> &processors);

// Whether a sensor of a processor tells its temperature.
bool knows_processor_temperatures(const std::vector<IpmiSample> &samples);

// The temperatures that are too high: those of the processors, or all others.
std::vector<Trouble> temperature_troubles(const std::vector<IpmiSample> &samples,
                                          const std::map<std::uint8_t, std::int64_t> &processors, bool of_processors);

// The server's power in watts: what the controller itself says or, if it does not, a sensor or the sum of those of the
// power supplies. Throws IpmiSilence.
std::optional<double> consumed_power(IpmiDevice &device, const std::vector<IpmiSample> &samples);

}  // namespace tavo::service
