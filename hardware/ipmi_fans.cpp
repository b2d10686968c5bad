#include "hardware/ipmi_fans.h"

#include <freeipmi/freeipmi.h>

#include <algorithm>

#include "core/class_number.h"
#include "service/causes.h"

namespace tavo::service {
namespace {

bool is_speed(const IpmiSample &sample) {
  return sample.sensor.type == IPMI_SENSOR_TYPE_FAN && sample.sensor.conversion &&
         sample.sensor.entity.id != IPMI_ENTITY_ID_POWER_SUPPLY;
}

bool is_in_turns(const IpmiSample &sample) {
  return sample.sensor.unit == IPMI_SENSOR_UNIT_RPM;
}

// A fan may have a speed and, besides, a share of its full power. Some have nothing else.
std::vector<const IpmiSample *> speeds(const std::vector<IpmiSample> &samples) {
  std::vector<const IpmiSample *> found;
  for (const IpmiSample &sample : samples) {
    if (is_speed(sample)) {
      found.push_back(&sample);
    }
  }
  if (std::ranges::any_of(found, [](const IpmiSample *sample) { return is_in_turns(*sample); })) {
    std::erase_if(found, [](const IpmiSample *sample) { return !is_in_turns(*sample); });
  }
  return found;
}

// Other entities, such as the board, have several fans, and their presence is not a fan's.
bool is_of_one_fan(const IpmiEntity &entity) {
  return entity.id == IPMI_ENTITY_ID_FAN_COOLING_DEVICE || entity.id == IPMI_ENTITY_ID_COOLING_UNIT_COOLING_DOMAIN;
}

std::string_view presence_of_fan(const IpmiSample &sample, const std::vector<IpmiSample> &samples) {
  const std::string_view told =
      is_of_one_fan(sample.sensor.entity) ? presence_of(sample.sensor.entity, samples) : "unknown";
  return told == "unknown" && sample.is_known ? "present" : told;
}

}  // namespace

std::string_view presence_of(const IpmiEntity &entity, const std::vector<IpmiSample> &samples) {
  for (const IpmiSample &sample : samples) {
    if (sample.sensor.entity != entity || !sample.is_known) {
      continue;
    }
    if (sample.sensor.type == IPMI_SENSOR_TYPE_ENTITY_PRESENCE &&
        sample.sensor.event_type == IPMI_EVENT_READING_TYPE_CODE_SENSOR_SPECIFIC) {
      return sample.is_in(IPMI_SENSOR_TYPE_ENTITY_PRESENCE_ENTITY_ABSENT) ? "absent" : "present";
    }
    constexpr unsigned device_absent = 0;
    if (sample.sensor.event_type == IPMI_EVENT_READING_TYPE_CODE_DEVICE_PRESENT) {
      return sample.is_in(device_absent) ? "absent" : "present";
    }
  }
  return "unknown";
}

IpmiFans ipmi_fans(const std::vector<IpmiSample> &samples, Register &kept) {
  IpmiFans found;
  const std::vector<const IpmiSample *> all = speeds(samples);
  for (std::size_t i = 0; i < all.size(); ++i) {
    const IpmiSample &sample = *all[i];
    const std::string_view presence = presence_of_fan(sample, samples);
    const std::string key = sensor_key(sample.sensor);
    const std::string fan = "Fan " + std::to_string(i + 1) + " (" + sample.sensor.name + ')';
    const auto missing = missing_part(kept, "fan", key, sample.sensor.name, presence);
    const bool has_failed = presence != "absent" && sample.too_low != IpmiLevel::Good;
    found.fans.push_back({.has_failed = has_failed, .presence = presence});
    Trouble trouble{.key = key + " failed",
                    .class_code = class_number::system_fan,
                    .unit = fan_unit(i, all.size()),
                    .severity = "major",
                    .cause = cause::failed,
                    .description = fan + " has failed"};
    if (has_failed) {
      found.troubles.push_back(trouble);
    } else if (missing) {
      trouble.key = key + " missing";
      trouble.severity = "warning";
      trouble.cause = cause::missing;
      trouble.description = fan + " is missing";
      trouble.missing = missing;
      found.troubles.push_back(trouble);
    }
  }
  return found;
}

}  // namespace tavo::service
