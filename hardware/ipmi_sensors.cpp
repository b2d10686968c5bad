#include "hardware/ipmi_sensors.h"

#include <freeipmi/freeipmi.h>

#include "hardware/limits.h"

namespace tavo::service {
namespace {

// Thresholds change rarely: when someone sets them, or with a part that is put in.
constexpr int readings_of_a_threshold = 20;

// As many may be missing in a row before a sensor counts as one without a reading.
constexpr int patience = 3;

bool is_of_interest(const IpmiSensor &sensor) {
  switch (sensor.type) {
    case IPMI_SENSOR_TYPE_TEMPERATURE:
    case IPMI_SENSOR_TYPE_FAN:
    case IPMI_SENSOR_TYPE_POWER_SUPPLY:
    case IPMI_SENSOR_TYPE_ENTITY_PRESENCE:
      return sensor.is_readable;
    default:
      return sensor.is_readable && sensor.unit == IPMI_SENSOR_UNIT_WATTS;
  }
}

IpmiCommand to_sensor(const IpmiSensor &sensor, std::uint8_t command) {
  return {.net_fn = IPMI_NET_FN_SENSOR_EVENT_RQ, .command = command, .data = {sensor.number}, .lun = sensor.lun};
}

// Firmware sets thresholds that it does not use to 0, which no fan can fall below, and no temperature in a server stay
// below.
void drop_unused_thresholds(IpmiSensor &sensor) {
  const auto drop = [](std::optional<double> &threshold) {
    if (threshold && *threshold <= 0) {
      threshold.reset();
    }
  };
  drop(sensor.thresholds.lower_critical);
  drop(sensor.thresholds.lower_non_recoverable);
  drop(sensor.thresholds.upper_critical);
  drop(sensor.thresholds.upper_non_recoverable);
}

}  // namespace

IpmiLevel level_above(const IpmiSensor &sensor, double value, IpmiLevel before) {
  const auto is_over = [&](const std::optional<double> &threshold, IpmiLevel level) {
    return threshold && is_reached(value - *threshold, sensor.rising_hysteresis, before >= level);
  };
  if (is_over(sensor.thresholds.upper_non_recoverable, IpmiLevel::NonRecoverable)) {
    return IpmiLevel::NonRecoverable;
  }
  return is_over(sensor.thresholds.upper_critical, IpmiLevel::Critical) ? IpmiLevel::Critical : IpmiLevel::Good;
}

IpmiLevel level_below(const IpmiSensor &sensor, double value, IpmiLevel before) {
  const auto is_under = [&](const std::optional<double> &threshold, IpmiLevel level) {
    return threshold && is_reached(*threshold - value, sensor.falling_hysteresis, before >= level);
  };
  if (is_under(sensor.thresholds.lower_non_recoverable, IpmiLevel::NonRecoverable)) {
    return IpmiLevel::NonRecoverable;
  }
  return is_under(sensor.thresholds.lower_critical, IpmiLevel::Critical) ? IpmiLevel::Critical : IpmiLevel::Good;
}

void enter_reading(IpmiSample &sample, const std::optional<IpmiOctets> &answer) {
  constexpr std::uint8_t is_scanned = 0x40;
  constexpr std::uint8_t is_unavailable = 0x20;
  constexpr std::uint8_t states_of_high_octet = 0x7f;  // the last bit is always set
  const bool has_reading =
      answer && answer->size() >= 2 && ((*answer)[1] & is_scanned) != 0 && ((*answer)[1] & is_unavailable) == 0;
  if (!has_reading) {
    if (++sample.missed >= patience) {
      sample = {.sensor = sample.sensor, .missed = sample.missed};
    }
    return;
  }
  sample.is_known = true;
  sample.missed = 0;
  if (!sample.sensor.conversion) {
    const unsigned first = answer->size() > 2 ? (*answer)[2] : 0;
    const unsigned second = answer->size() > 3 ? (*answer)[3] & states_of_high_octet : 0;
    sample.states = static_cast<std::uint16_t>(first | second << 8);
    return;
  }
  sample.value = sample.sensor.conversion->value(answer->front());
  if (sample.value) {
    sample.too_high = level_above(sample.sensor, *sample.value, sample.too_high);
    sample.too_low = level_below(sample.sensor, *sample.value, sample.too_low);
  }
}

bool may_tell_yet(const IpmiSample &sample) {
  return !sample.is_known && sample.missed < patience;
}

std::string sensor_key(const IpmiSensor &sensor) {
  return "ipmi sensor " + std::to_string(sensor.number) + '.' + std::to_string(sensor.lun);
}

void IpmiSensors::define(const std::vector<IpmiSensor> &sensors) {
  samples_.clear();
  conversions_.clear();
  readings_ = 0;
  for (const IpmiSensor &sensor : sensors) {
    if (is_of_interest(sensor)) {
      samples_.push_back({.sensor = sensor});
      drop_unused_thresholds(samples_.back().sensor);
    }
  }
}

void IpmiSensors::read(IpmiDevice &device) {
  if (readings_++ % readings_of_a_threshold == 0) {
    read_thresholds(device);
  }
  for (IpmiSample &sample : samples_) {
    auto answer = ask(device, to_sensor(sample.sensor, IPMI_CMD_GET_SENSOR_READING));
    if (!sample.sensor.is_linear && answer && !answer->empty()) {
      const auto conversion = conversion_of(device, sample.sensor, answer->front());
      if (conversion) {
        set_conversion(sample.sensor, *conversion);
      } else {
        answer.reset();
      }
    }
    enter_reading(sample, answer);
  }
}

std::optional<IpmiConversion> IpmiSensors::conversion_of(IpmiDevice &device, const IpmiSensor &sensor,
                                                         std::uint8_t octet) {
  if (sensor.is_linear) {
    return sensor.conversion;
  }
  const Key key{sensor_key(sensor), octet};
  const auto known = conversions_.find(key);
  if (known != conversions_.end()) {
    return known->second;
  }
  IpmiCommand command = to_sensor(sensor, IPMI_CMD_GET_SENSOR_READING_FACTORS);
  command.data.push_back(octet);
  const auto answer = ask(device, command);
  const auto conversion = answer ? decode_factors(sensor, *answer) : std::nullopt;
  if (conversion) {
    conversions_[key] = *conversion;
  }
  return conversion;
}

void IpmiSensors::read_thresholds(IpmiDevice &device) {
  for (IpmiSample &sample : samples_) {
    if (!sample.sensor.conversion) {
      continue;
    }
    const auto answer = ask(device, to_sensor(sample.sensor, IPMI_CMD_GET_SENSOR_THRESHOLDS));
    const auto convert = [&](std::uint8_t octet) {
      const auto conversion = conversion_of(device, sample.sensor, octet);
      return conversion ? conversion->value(octet) : std::nullopt;
    };
    const auto thresholds = answer ? decode_thresholds(*answer, convert) : std::nullopt;
    if (thresholds) {
      sample.sensor.thresholds = *thresholds;
      drop_unused_thresholds(sample.sensor);
    }
  }
}

}  // namespace tavo::service
