#include "hardware/ipmi_supplies.h"

#include <freeipmi/freeipmi.h>

#include <algorithm>
#include <array>
#include <limits>
#include <optional>

#include "hardware/set_line.h"
#include "service/causes.h"

namespace tavo::service {
namespace {

constexpr const char *supply_group = "supply";  // in the register

// States of a supply's sensor. The worst come first.
struct BadState {
  unsigned state;
  SupplyDefect defect;
};

constexpr std::int64_t input = supply_without_input.status;
constexpr std::int64_t none_of_the_named = 0x0001;

constexpr auto bad_states = std::to_array<BadState>({
    {IPMI_SENSOR_TYPE_POWER_SUPPLY_POWER_SUPPLY_FAILURE_DETECTED, failed_supply},
    {IPMI_SENSOR_TYPE_POWER_SUPPLY_POWER_SUPPLY_INPUT_LOST_AC_DC, supply_without_input},
    {IPMI_SENSOR_TYPE_POWER_SUPPLY_POWER_SUPPLY_INPUT_LOST_OR_OUT_OF_RANGE, supply_with_doubtful_input},
    {IPMI_SENSOR_TYPE_POWER_SUPPLY_POWER_SUPPLY_INPUT_OUT_OF_RANGE_BUT_PRESENT,
     {.status = input, .severity = "minor", .sentence = " has an input out of range"}},
    {IPMI_SENSOR_TYPE_POWER_SUPPLY_CONFIGURATION_ERROR,
     {.status = none_of_the_named, .severity = "minor", .sentence = " does not fit the others"}},
    // It still works, so its status is good.
    {IPMI_SENSOR_TYPE_POWER_SUPPLY_PREDICTIVE_FAILURE,
     {.status = 0, .severity = "minor", .sentence = " is about to fail"}},
});

bool is_state_of_supply(const IpmiSensor &sensor) {
  return sensor.type == IPMI_SENSOR_TYPE_POWER_SUPPLY &&
         sensor.event_type == IPMI_EVENT_READING_TYPE_CODE_SENSOR_SPECIFIC;
}

// A place for a supply.
struct Bay {
  std::string key;  // tells it from the others, for ever
  IpmiEntity entity;
  std::vector<const IpmiSample *> states = {};  // none: it has only a FRU area
};

// Other entities, such as the board, have several supplies.
bool is_of_one_supply(const IpmiEntity &entity) {
  return entity.id == IPMI_ENTITY_ID_POWER_SUPPLY;
}

std::string key_of(const IpmiEntity &entity) {
  return "ipmi supply " + std::to_string(entity.id) + '.' + std::to_string(entity.instance);
}

// Whether something was seen of the bay, now or before.
bool is_sure_of(const Bay &bay, std::string_view presence, Register &kept) {
  return presence != "unknown" || kept.parts(supply_group).contains(bay.key);
}

Bay &bay_with(std::vector<Bay> &bays, const std::string &key, const IpmiEntity &entity) {
  const auto found = std::ranges::find_if(bays, [&](const Bay &bay) { return bay.key == key; });
  return found != bays.end() ? *found : bays.emplace_back(Bay{.key = key, .entity = entity});
}

// Each with its states or, where there are none, with its FRU area, in the order of the instances.
std::vector<Bay> bays_of(const std::vector<IpmiSample> &samples, const std::map<IpmiEntity, IpmiFru> &frus) {
  std::vector<Bay> bays;
  for (const IpmiSample &sample : samples) {
    if (is_state_of_supply(sample.sensor)) {
      const IpmiEntity &entity = sample.sensor.entity;
      bay_with(bays, supply_key(sample.sensor), entity).states.push_back(&sample);
    }
  }
  for (const auto &entry : frus) {
    if (is_of_one_supply(entry.first)) {
      bay_with(bays, key_of(entry.first), entry.first);
    }
  }
  std::ranges::stable_sort(bays, {}, [](const Bay &bay) { return bay.entity.instance; });
  bays.resize(std::min(bays.size(), supply_limit));
  return bays;
}

// "present", "absent" or "unknown". Sensors of states that are all clear tell of a supply that is not there, unless
// another sensor knows better.
std::string_view presence_of_supply(const Bay &bay, const std::vector<IpmiSample> &samples,
                                    const std::map<IpmiEntity, IpmiFru> &frus) {
  const std::string_view told = is_of_one_supply(bay.entity) ? presence_of(bay.entity, samples) : "unknown";
  if (told != "unknown") {
    return told;
  }
  const auto says_present = [](const IpmiSample *state) {
    return state->is_in(IPMI_SENSOR_TYPE_POWER_SUPPLY_PRESENCE_DETECTED);
  };
  if (std::ranges::any_of(bay.states, says_present)) {
    return "present";
  }
  if (!bay.states.empty() && std::ranges::all_of(bay.states, &IpmiSample::is_known)) {
    return "absent";
  }
  const auto fru = frus.find(bay.entity);
  return fru != frus.end() && fru->second != IpmiFru() ? "present" : "unknown";
}

const SupplyDefect *defect_of(const Bay &bay) {
  const auto found = std::ranges::find_if(bad_states, [&](const BadState &bad) {
    return std::ranges::any_of(bay.states, [&](const IpmiSample *state) { return state->is_in(bad.state); });
  });
  return found != bad_states.end() ? &found->defect : nullptr;
}

Part described_part(const IpmiFru &fru, bool present, const SupplyDefect *defect) {
  constexpr unsigned most = std::numeric_limits<std::uint16_t>::max();
  Part part = supply_part(present, defect);
  if (present) {
    set_line(part, "model", fru.product_name.empty() ? fru.product_part : fru.product_name);
    set_line(part, "revision", fru.product_version);
    set_line(part, "serial", fru.product_serial);
    part.set_number("output-power-max", std::min(fru.supply_capacity.value_or(0), most));
  }
  return part;
}

const IpmiSample *fan_of(const IpmiEntity &entity, const std::vector<IpmiSample> &samples) {
  const auto found = std::ranges::find_if(samples, [&](const IpmiSample &sample) {
    return sample.sensor.type == IPMI_SENSOR_TYPE_FAN && sample.sensor.conversion && sample.sensor.entity == entity;
  });
  return found != samples.end() ? &*found : nullptr;
}

}  // namespace

std::string supply_key(const IpmiSensor &sensor) {
  return is_of_one_supply(sensor.entity) ? key_of(sensor.entity) : "ipmi supply of " + sensor_key(sensor);
}

Supplies ipmi_supplies(const std::vector<IpmiSample> &samples, const std::map<IpmiEntity, IpmiFru> &frus,
                       Register &kept) {
  Supplies found;
  found.is_vague = true;
  for (const Bay &bay : bays_of(samples, frus)) {
    const std::int64_t number = kept.number_of(supply_group, bay.key);
    const auto fru = frus.find(bay.entity);
    const std::string_view presence = presence_of_supply(bay, samples, frus);
    found.is_vague = found.is_vague && !is_sure_of(bay, presence, kept);
    const bool present = presence == "present" || (presence == "unknown" && kept.parts(supply_group).contains(bay.key));
    const SupplyDefect *defect = present ? defect_of(bay) : nullptr;
    const IpmiSample *fan = is_of_one_supply(bay.entity) ? fan_of(bay.entity, samples) : nullptr;
    if (!place_supply(found.supplies, number,
                      described_part(fru != frus.end() ? fru->second : IpmiFru(), present, defect))) {
      continue;
    }
    if (fan != nullptr) {
      found.fans.push_back({.supply = number, .presence = presence});
    }
    const auto add = [&](const std::string &what, std::string_view severity, std::string_view sentence) {
      found.troubles.push_back(supply_trouble(bay.key + what, number, severity, cause::failed, sentence));
    };
    const std::string name = "Power supply " + std::to_string(number);
    if (const auto part = missing_part(kept, supply_group, bay.key, name, presence)) {
      found.troubles.push_back(
          missing(supply_trouble(bay.key + " missing", number, "warning", cause::missing, ""), *part));
    }
    if (defect != nullptr) {
      add(" defect", defect->severity, defect->sentence);
    }
    if (present && fan != nullptr && fan->too_low != IpmiLevel::Good) {
      add(" fan", "major", ": its fan has failed");
    }
  }
  return found;
}

}  // namespace tavo::service
