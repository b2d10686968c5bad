#include "hardware/ipmi_supplies.h"

#include <freeipmi/freeipmi.h>

#include <algorithm>
#include <array>
#include <limits>
#include <optional>

#include "core/class_number.h"
#include "hardware/set_line.h"
#include "service/causes.h"

namespace tavo::service {
namespace {

constexpr const char *supply_group = "supply";  // in the register

// What can be wrong with a supply, and which bits of its PMBus status word say so. The worst come first.
struct Defect {
  unsigned state;
  std::int64_t status;
  std::string_view severity;
  std::string_view sentence;
};

constexpr std::int64_t off_and_power_not_good = 0x0840;
constexpr std::int64_t input = 0x2000;
constexpr std::int64_t none_of_the_named = 0x0001;

constexpr auto defects = std::to_array<Defect>({
    {.state = IPMI_SENSOR_TYPE_POWER_SUPPLY_POWER_SUPPLY_FAILURE_DETECTED,
     .status = off_and_power_not_good,
     .severity = "major",
     .sentence = " has failed"},
    {.state = IPMI_SENSOR_TYPE_POWER_SUPPLY_POWER_SUPPLY_INPUT_LOST_AC_DC,
     .status = input,
     .severity = "major",
     .sentence = " has no input"},
    {.state = IPMI_SENSOR_TYPE_POWER_SUPPLY_POWER_SUPPLY_INPUT_LOST_OR_OUT_OF_RANGE,
     .status = input,
     .severity = "major",
     .sentence = " has no input, or one out of range"},
    {.state = IPMI_SENSOR_TYPE_POWER_SUPPLY_POWER_SUPPLY_INPUT_OUT_OF_RANGE_BUT_PRESENT,
     .status = input,
     .severity = "minor",
     .sentence = " has an input out of range"},
    {.state = IPMI_SENSOR_TYPE_POWER_SUPPLY_CONFIGURATION_ERROR,
     .status = none_of_the_named,
     .severity = "minor",
     .sentence = " does not fit the others"},
    // It still works, so its status is good.
    {.state = IPMI_SENSOR_TYPE_POWER_SUPPLY_PREDICTIVE_FAILURE,
     .status = 0,
     .severity = "minor",
     .sentence = " is about to fail"},
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
      const std::string key = is_of_one_supply(entity) ? key_of(entity) : "ipmi supply of " + sensor_key(sample.sensor);
      bay_with(bays, key, entity).states.push_back(&sample);
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

const Defect *defect_of(const Bay &bay) {
  const auto found = std::ranges::find_if(defects, [&](const Defect &defect) {
    return std::ranges::any_of(bay.states, [&](const IpmiSample *state) { return state->is_in(defect.state); });
  });
  return found != defects.end() ? &*found : nullptr;
}

Part supply_part(const IpmiFru &fru, bool present, const Defect *defect) {
  constexpr unsigned most = std::numeric_limits<std::uint16_t>::max();
  Part part(supply_kind);
  part.set("present", present ? "yes" : "no");
  if (present) {
    set_line(part, "model", fru.product_name.empty() ? fru.product_part : fru.product_name);
    set_line(part, "revision", fru.product_version);
    set_line(part, "serial", fru.product_serial);
    part.set_number("output-power-max", std::min(fru.supply_capacity.value_or(0), most));
    part.set_number("status", defect != nullptr ? defect->status : 0);
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

IpmiSupplies ipmi_supplies(const std::vector<IpmiSample> &samples, const std::map<IpmiEntity, IpmiFru> &frus,
                           Register &kept) {
  IpmiSupplies found;
  for (const Bay &bay : bays_of(samples, frus)) {
    const std::int64_t number = kept.number_of(supply_group, bay.key);
    const auto row = static_cast<std::size_t>(number);
    if (row > supply_limit) {
      continue;
    }
    if (found.supplies.size() < row) {
      found.supplies.resize(row, supply_part(IpmiFru(), false, nullptr));
    }
    const auto fru = frus.find(bay.entity);
    const std::string_view presence = presence_of_supply(bay, samples, frus);
    const bool present = presence == "present" || (presence == "unknown" && kept.parts(supply_group).contains(bay.key));
    const Defect *defect = present ? defect_of(bay) : nullptr;
    const IpmiSample *fan = is_of_one_supply(bay.entity) ? fan_of(bay.entity, samples) : nullptr;
    found.supplies[row - 1] = supply_part(fru != frus.end() ? fru->second : IpmiFru(), present, defect);
    if (fan != nullptr) {
      found.fans.push_back({.supply = number, .presence = presence});
    }
    const std::string supply = "Power supply " + std::to_string(number);
    const auto add = [&](const std::string &what, std::string_view severity, int cause, std::string_view sentence) {
      found.troubles.push_back({.key = bay.key + what,
                                .class_code = class_number::power_supply_fan,
                                .unit = number,
                                .severity = std::string(severity),
                                .cause = cause,
                                .description = supply + std::string(sentence)});
    };
    if (const auto missing = missing_part(kept, supply_group, bay.key, supply, presence)) {
      add(" missing", "warning", cause::missing, " is missing");
      found.troubles.back().missing = missing;
    }
    if (defect != nullptr) {
      add(" defect", defect->severity, cause::failed, defect->sentence);
    }
    if (present && fan != nullptr && fan->too_low != IpmiLevel::Good) {
      add(" fan", "major", cause::failed, ": its fan has failed");
    }
  }
  return found;
}

}  // namespace tavo::service
