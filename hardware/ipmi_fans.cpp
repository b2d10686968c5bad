#include "hardware/ipmi_fans.h"

#include <freeipmi/freeipmi.h>

#include <algorithm>

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

std::vector<Fan> ipmi_fans(const std::vector<IpmiSample> &samples, Register &kept) {
  std::vector<Fan> fans;
  for (const IpmiSample *sample : speeds(samples)) {
    const std::string_view presence = presence_of_fan(*sample, samples);
    const std::string place = sensor_key(sample->sensor);
    fans.push_back({.place = place,
                    .key = place,
                    .name = sample->sensor.name,
                    .presence = presence,
                    .has_failed = presence != "absent" && sample->too_low != IpmiLevel::Good,
                    .missing = missing_part(kept, ipmi_fan_group, place, sample->sensor.name, presence)});
  }
  return fans;
}

bool is_sure_of_fans(const std::vector<Fan> &fans, Register &kept) {
  const auto before = kept.parts(ipmi_fan_group);
  return std::ranges::any_of(
      fans, [&](const Fan &fan) { return fan.presence != "unknown" || fan.has_failed || before.contains(fan.place); });
}

}  // namespace tavo::service
