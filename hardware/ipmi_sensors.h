// The sensors of the management controller and what they read.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "hardware/ipmi_sdr.h"

namespace tavo::service {

// How far a reading is beyond its thresholds.
enum class IpmiLevel { Good, Critical, NonRecoverable };

struct IpmiSample {
  IpmiSensor sensor;
  bool is_known = false;          // the controller has given a reading
  std::optional<double> value{};  // in the sensor's unit; nothing: a sensor of states, or no reading
  std::uint16_t states = 0;       // of a sensor of states: a bit for each that it is in
  int missed = 0;                 // readings in a row that the controller has not given
  IpmiLevel too_high = IpmiLevel::Good;
  IpmiLevel too_low = IpmiLevel::Good;

  bool is_in(unsigned state) const { return is_known && (states >> state & 1) != 0; }
};

// The level of a reading that had another one before. It leaves a level only once the hysteresis is behind it.
IpmiLevel level_above(const IpmiSensor &sensor, double value, IpmiLevel before);
IpmiLevel level_below(const IpmiSensor &sensor, double value, IpmiLevel before);

// Enters the answer to "get sensor reading" into the sample. A reading that is missing now and then, because the
// controller is busy, is what it was before.
void enter_reading(IpmiSample &sample, const std::optional<IpmiOctets> &answer);

// Whether the sensor has had no reading yet, but may only have been refused by a controller that is busy.
bool may_tell_yet(const IpmiSample &sample);

// "ipmi sensor 48.0": names the sensor in a trouble's key.
std::string sensor_key(const IpmiSensor &sensor);

// The sensors whose readings mean something here.
class IpmiSensors {
 public:
  // Takes over the sensors, without readings.
  void define(const std::vector<IpmiSensor> &sensors);

  // Reads all of them. Throws IpmiSilence.
  void read(IpmiDevice &device);

  const std::vector<IpmiSample> &samples() const { return samples_; }

 private:
  using Key = std::pair<std::string, std::uint8_t>;  // a sensor's, and an octet

  void read_thresholds(IpmiDevice &device);
  // How the octet of the sensor becomes a number. Nothing if the controller does not say.
  std::optional<IpmiConversion> conversion_of(IpmiDevice &device, const IpmiSensor &sensor, std::uint8_t octet);

  std::vector<IpmiSample> samples_;
  std::map<Key, IpmiConversion> conversions_;  // of sensors that are not linear, as far as they were asked for
  int readings_ = 0;                           // since the thresholds were read
};

}  // namespace tavo::service
