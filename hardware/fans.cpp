#include "hardware/fans.h"

#include <algorithm>
#include <map>

#include "core/class_number.h"
#include "platform/inventory.h"
#include "service/causes.h"

namespace tavo::service {
namespace {

// Faults are known by fan module and fan, two fans to a module, and by no more modules than this.
constexpr std::size_t modules_with_faults = 7;

struct Place {
  std::size_t module;  // from 1
  std::size_t fan;     // in the module, 1 or 2
};

// A module for each fan as long as that goes.
Place place_of(std::size_t position, std::size_t count) {
  return count <= modules_with_faults ? Place{.module = position + 1, .fan = 1}
                                      : Place{.module = position / 2 + 1, .fan = position % 2 + 1};
}

Part sensor(const std::string &name, int entity, std::int64_t instance, int type, std::string_view presence) {
  Part part(sensor_kind);
  part.set("name", name);
  part.set_number("entity", entity);
  part.set_number("instance", instance);
  part.set_number("type", type);
  part.set("presence", presence);
  return part;
}

constexpr std::size_t most_sensors = 256;
constexpr std::size_t most_fans = most_sensors / 2;

// The fans' speeds come first and without a gap, because readers stop at the first number that they cannot read.
void insert(Inventory &inventory, Part speed, Part presence) {
  std::vector<Part> &sensors = inventory.sensors;
  if (sensors.size() + 2 > most_sensors) {
    return;
  }
  const auto is_no_fan = [](const Part &part) { return part.number("type") != SENSOR_TYPE_FAN; };
  sensors.insert(std::ranges::find_if(sensors, is_no_fan), std::move(speed));
  sensors.push_back(std::move(presence));
  for (std::size_t i = 0; i < sensors.size(); ++i) {
    sensors[i].set_number("number", static_cast<std::int64_t>(i));
  }
}

void enter_fans(Inventory &inventory, const std::vector<Fan> &fans) {
  for (std::size_t i = 0; i < fans.size(); ++i) {
    const Place place = place_of(i, fans.size());
    const auto instance = static_cast<std::int64_t>(i) + 1;
    const std::string name = "FAN" + std::to_string(place.module) + "_TACH" + std::to_string(place.fan);
    insert(inventory, sensor(name, ENTITY_FAN, instance, SENSOR_TYPE_FAN, fans[i].presence),
           sensor("FAN" + std::to_string(instance) + "_PRES", ENTITY_FAN, instance, SENSOR_TYPE_ENTITY_PRESENCE,
                  fans[i].presence));
  }
}

// The number by which a fan's faults know it.
std::int64_t unit_of(std::size_t position, std::size_t count) {
  const Place place = place_of(position, count);
  return static_cast<std::int64_t>((place.module - 1) * 2 + place.fan - 1);
}

// Of a fan that has failed or is missing.
Trouble trouble_of(const std::vector<Fan> &fans, std::size_t position) {
  const Fan &fan = fans[position];
  const std::string name = fan.name.empty() ? "" : " (" + fan.name + ')';
  Trouble trouble{.key = fan.key + (fan.has_failed ? " failed" : " missing"),
                  .class_code = class_number::system_fan,
                  .unit = unit_of(position, fans.size()),
                  .description = "Fan " + std::to_string(position + 1) + name};
  if (!fan.has_failed) {
    return missing(trouble, *fan.missing);
  }
  trouble.severity = "major";
  trouble.description += " has failed";
  return trouble;
}

}  // namespace

std::vector<Fan> FanPlaces::in_places(const std::vector<Fan> &fans) {
  if (fans.empty()) {
    return {};
  }
  std::map<std::size_t, const Fan *> by_number;
  for (const Fan &fan : fans) {
    const auto number = static_cast<std::size_t>(kept_.number_of(group_, fan.place));
    if (number <= most_fans) {
      by_number[number] = &fan;
      places_ = std::max(places_, number);
    }
  }
  std::vector<Fan> placed(places_, {.presence = "absent"});
  for (const auto &[number, fan] : by_number) {
    placed[number - 1] = *fan;
  }
  return placed;
}

Account account_of_fans(const std::vector<Fan> &fans) {
  Account account{.enter = [fans](Inventory &inventory) { enter_fans(inventory, fans); }};
  for (std::size_t i = 0; i < fans.size(); ++i) {
    if (fans[i].has_failed || fans[i].missing) {
      account.troubles.push_back(trouble_of(fans, i));
    }
  }
  return account;
}

void enter_supply_fan(Inventory &inventory, std::int64_t supply, std::string_view presence) {
  const std::string name = "PSU" + std::to_string(supply);
  insert(inventory, sensor(name + "_FAN_SPEED", ENTITY_POWER_SUPPLY, supply, SENSOR_TYPE_FAN, presence),
         sensor(name + "_PRES", ENTITY_POWER_SUPPLY, supply, SENSOR_TYPE_ENTITY_PRESENCE, presence));
}

}  // namespace tavo::service
