#include "hardware/ipmi_environment.h"

#include <freeipmi/freeipmi.h>

#include <algorithm>
#include <array>
#include <cctype>

#include "hardware/decimal.h"
#include "service/causes.h"

namespace tavo::service {
namespace {

bool is_temperature(const IpmiSample &sample) {
  return sample.sensor.type == IPMI_SENSOR_TYPE_TEMPERATURE && sample.sensor.unit == IPMI_SENSOR_UNIT_DEGREES_C;
}

// What a sensor has that is not broken. Nothing in a server is colder or hotter.
bool is_plausible(const IpmiSample &sample) {
  constexpr double coldest = -60;
  constexpr double hottest = 200;
  return sample.value && *sample.value >= coldest && *sample.value <= hottest;
}

bool has_word(const IpmiSensor &sensor, std::string_view word) {
  const auto is_same = [](char a, char b) { return std::toupper(static_cast<unsigned char>(a)) == b; };
  const std::string &name = sensor.name;
  return std::search(name.begin(), name.end(), word.begin(), word.end(), is_same) != name.end();
}

// Where a sensor is that a column stands for. Controllers say so by the entity or by the name.
struct BoardPlace {
  std::string_view field;
  std::array<std::string_view, 3> words;  // in upper case, the best first; unused ones are empty
  std::array<std::uint8_t, 2> entities;   // 0: none
  std::size_t position = 0;               // among the sensors that match equally well
};

constexpr auto board_places = std::to_array<BoardPlace>({
    {.field = "ambient",
     .words = {"AMBIENT", "INLET"},
     .entities = {IPMI_ENTITY_ID_AIR_INLET, IPMI_ENTITY_ID_AIR_INLET_B}},
    {.field = "front", .words = {"FRONT", "INLET"}, .entities = {IPMI_ENTITY_ID_AIR_INLET, IPMI_ENTITY_ID_AIR_INLET_B}},
    {.field = "rear", .words = {"REAR", "EXHAUST", "OUTLET"}, .entities = {}},
    {.field = "iohub1", .words = {"PCH", "IOH", "I/O HUB"}, .entities = {}},
    {.field = "iohub2", .words = {"PCH", "IOH", "I/O HUB"}, .entities = {}, .position = 1},
});

template <class Matches>
const IpmiSample *find_temperature(const std::vector<IpmiSample> &samples, std::size_t position, Matches matches) {
  for (const IpmiSample &sample : samples) {
    if (is_temperature(sample) && is_plausible(sample) && matches(sample.sensor) && position-- == 0) {
      return &sample;
    }
  }
  return nullptr;
}

const IpmiSample *sample_at(const BoardPlace &place, const std::vector<IpmiSample> &samples) {
  for (const std::string_view word : place.words) {
    const auto matches = [&](const IpmiSensor &sensor) { return !word.empty() && has_word(sensor, word); };
    if (const IpmiSample *found = find_temperature(samples, place.position, matches)) {
      return found;
    }
  }
  for (const std::uint8_t entity : place.entities) {
    const auto matches = [&](const IpmiSensor &sensor) { return entity != 0 && sensor.entity.id == entity; };
    if (const IpmiSample *found = find_temperature(samples, place.position, matches)) {
      return found;
    }
  }
  return nullptr;
}

// How hot the processor is. Other sensors of a processor tell how far it is from its limit, or are its regulators'.
bool is_processor_temperature(const IpmiSample &sample) {
  return is_temperature(sample) && is_of_processor(sample.sensor) && !has_word(sample.sensor, "MARGIN") &&
         !has_word(sample.sensor, "VR");
}

// The answer to DCMI's "get power reading"; nothing if the controller does not measure it.
std::optional<double> decode_power(const IpmiOctets &answer) {
  constexpr std::size_t state = 17;
  constexpr std::uint8_t is_active = 0x40;
  if (answer.size() <= state || (answer[state] & is_active) == 0) {
    return std::nullopt;
  }
  return answer[1] | answer[2] << 8;
}

bool is_power(const IpmiSample &sample) {
  constexpr double most = 100'000;
  return sample.sensor.unit == IPMI_SENSOR_UNIT_WATTS && sample.value && *sample.value >= 0 && *sample.value <= most;
}

bool is_of_server(const IpmiSensor &sensor) {
  constexpr auto entities =
      std::to_array<std::uint8_t>({IPMI_ENTITY_ID_SYSTEM_BOARD, IPMI_ENTITY_ID_BASEBOARD_MAIN_SYSTEM_BOARD,
                                   IPMI_ENTITY_ID_POWER_UNIT_POWER_DOMAIN, IPMI_ENTITY_ID_SYSTEM_CHASSIS});
  return std::ranges::find(entities, sensor.entity.id) != entities.end();
}

}  // namespace

void enter_board_temperatures(Inventory &inventory, const std::vector<IpmiSample> &samples) {
  for (const BoardPlace &place : board_places) {
    if (const IpmiSample *sample = sample_at(place, samples)) {
      inventory.environment.set(place.field, with_one_decimal(*sample->value));
    }
  }
}

void enter_processor_temperatures(Inventory &inventory, const std::vector<IpmiSample> &samples,
                                  const std::map<std::uint8_t, std::int64_t> &processors) {
  for (const auto &[instance, number] : processors) {
    const auto found = std::ranges::find_if(samples, [&, wanted = instance](const IpmiSample &sample) {
      return is_processor_temperature(sample) && sample.sensor.entity.instance == wanted;
    });
    const auto position = static_cast<std::size_t>(number - 1);
    if (found != samples.end() && position < inventory.processors.size() && is_plausible(*found)) {
      inventory.processors[position].set("temperature", with_one_decimal(*found->value));
    }
  }
}

bool knows_processor_temperatures(const std::vector<IpmiSample> &samples) {
  return std::ranges::any_of(samples, [](const IpmiSample &sample) {
    return is_temperature(sample) && is_of_processor(sample.sensor) && sample.value;
  });
}

std::vector<Trouble> temperature_troubles(const std::vector<IpmiSample> &samples,
                                          const std::map<std::uint8_t, std::int64_t> &processors, bool of_processors) {
  std::vector<Trouble> troubles;
  for (const IpmiSample &sample : samples) {
    if (!is_temperature(sample) || sample.too_high == IpmiLevel::Good ||
        is_of_processor(sample.sensor) != of_processors) {
      continue;
    }
    const FaultyPart part = part_of(sample.sensor, processors);
    const bool is_critical = sample.too_high == IpmiLevel::Critical;
    troubles.push_back(
        {.key = sensor_key(sample.sensor) + " too hot",
         .class_code = part.class_code,
         .unit = part.unit,
         .severity = is_critical ? "major" : "critical",
         .cause = cause::failed,
         .description = sample.sensor.name + (is_critical ? " is at its critical temperature"
                                                          : " is at a temperature that damages hardware")});
  }
  return troubles;
}

std::optional<double> consumed_power(IpmiDevice &device, const std::vector<IpmiSample> &samples) {
  constexpr std::uint8_t system_power = 1;
  const auto answer = ask(device, {.net_fn = IPMI_NET_FN_GROUP_EXTENSION_RQ,
                                   .command = IPMI_CMD_DCMI_GET_POWER_READING,
                                   .data = {IPMI_NET_FN_GROUP_EXTENSION_IDENTIFICATION_DCMI, system_power, 0, 0}});
  const auto told = answer ? decode_power(*answer) : std::nullopt;
  if (told) {
    return told;
  }
  double sum = 0;
  bool any = false;
  for (const IpmiSample &sample : samples) {
    if (is_power(sample) && is_of_server(sample.sensor)) {
      return sample.value;
    }
    if (is_power(sample) && sample.sensor.entity.id == IPMI_ENTITY_ID_POWER_SUPPLY && !has_word(sample.sensor, "OUT")) {
      sum += *sample.value;
      any = true;
    }
  }
  return any ? std::optional(sum) : std::nullopt;
}

}  // namespace tavo::service
