// Sensor data records: which sensors and FRU areas a management controller has, and what a sensor's octets mean.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "hardware/ipmi_device.h"
#include "hardware/source.h"

namespace tavo::service {

// Octets of a record's header: its number, version, type, and the length of the rest.
inline constexpr std::size_t sdr_header = 5;

// What a sensor belongs to: a code of IPMI such as "power supply", and which of these it is.
struct IpmiEntity {
  std::uint8_t id = 0;
  std::uint8_t instance = 0;

  auto operator<=>(const IpmiEntity &) const = default;
};

// Where a reading is a trouble, in the sensor's unit. Nothing: there is no such threshold.
struct IpmiThresholds {
  std::optional<double> lower_critical;
  std::optional<double> lower_non_recoverable;
  std::optional<double> upper_critical;
  std::optional<double> upper_non_recoverable;
};

// How a reading's octet becomes a number.
struct IpmiConversion {
  std::int8_t result_exponent = 0;
  std::int8_t offset_exponent = 0;
  std::int16_t multiplier = 0;
  std::int16_t offset = 0;
  std::uint8_t linearization = 0;
  std::uint8_t format = 0;

  // Nothing if the octet stands for no finite number.
  std::optional<double> value(std::uint8_t octet) const;
};

// A sensor of the controller itself.
struct IpmiSensor {
  std::uint8_t number = 0;
  std::uint8_t lun = 0;
  std::uint8_t type = 0;        // IPMI_SENSOR_TYPE_...
  std::uint8_t event_type = 0;  // IPMI_EVENT_READING_TYPE_CODE_...
  bool is_readable = false;     // or else it only logs events
  IpmiEntity entity{};
  std::string name{};                  // one line; never empty
  std::optional<std::uint8_t> unit{};  // IPMI_SENSOR_UNIT_...; nothing if it is no plain one: percentages, rates
  std::optional<IpmiConversion> conversion{};  // of a sensor with thresholds
  bool is_linear = true;                       // or else the controller has a conversion for each reading
  std::uint8_t rising_steps = 0;               // the hysteresis, in steps of the octet
  std::uint8_t falling_steps = 0;
  IpmiThresholds thresholds{};
  double rising_hysteresis = 0;   // how far below an upper threshold a reading has to fall to be good again
  double falling_hysteresis = 0;  // the same above a lower threshold
};

struct IpmiFruDevice {
  std::uint8_t id;
  IpmiEntity entity;
};

// In the order of the records.
struct IpmiInventory {
  std::vector<IpmiSensor> sensors;
  std::vector<IpmiFruDevice> frus;
  int of_others = 0;  // sensors with readings that other controllers own, behind this one: they are left out
};

bool is_of_processor(const IpmiSensor &sensor);

// The processors' numbers, from 1, by their entities' instances. Controllers count those from 0 or from 1; if they do
// neither, or leave numbers out, which processor a sensor belongs to is not known, and there are none.
std::map<std::uint8_t, std::int64_t> processor_numbers(const std::vector<IpmiSensor> &sensors);

// The sensor's processor, or else the server: other entities have no numbers that faults know.
FaultyPart part_of(const IpmiSensor &sensor, const std::map<std::uint8_t, std::int64_t> &processors);

// Records that are cut short or contradict themselves are left out.
IpmiInventory decode_sdr(const std::vector<IpmiOctets> &records);

// The thresholds in the answer to "get sensor thresholds", whose octets `convert` makes numbers; nothing if it is cut
// short.
std::optional<IpmiThresholds> decode_thresholds(
    const IpmiOctets &answer, const std::function<std::optional<double>(std::uint8_t octet)> &convert);

// The conversion in the answer to "get sensor reading factors", for a sensor that is not linear; nothing if it is cut
// short.
std::optional<IpmiConversion> decode_factors(const IpmiSensor &sensor, const IpmiOctets &answer);

// Gives the sensor a conversion, and the hysteresis that goes with it.
void set_conversion(IpmiSensor &sensor, const IpmiConversion &conversion);

}  // namespace tavo::service
