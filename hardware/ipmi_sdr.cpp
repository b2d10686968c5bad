#include "hardware/ipmi_sdr.h"

#include <freeipmi/freeipmi.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <set>
#include <span>

#include "core/class_number.h"
#include "hardware/source.h"
#include "hardware/told_text.h"

namespace tavo::service {
namespace {

// Instances from here on count the parts of one device, not those of the server.
constexpr std::uint8_t first_of_device = 0x60;

constexpr std::uint8_t controller_address = IPMI_SLAVE_ADDRESS_BMC >> 1;

struct Destroy {
  void operator()(ipmi_sdr_ctx_t context) const { ipmi_sdr_ctx_destroy(context); }
};

// One record, and libfreeipmi's view of it. A function of its that fails leaves what it was to fill as it was.
class Record {
 public:
  Record(ipmi_sdr_ctx_t context, const IpmiOctets &octets) : context_(context), octets_(octets) {}

  // Calls a function of libfreeipmi with this record. Returns whether it has succeeded.
  template <class Function, class... Arguments>
  bool parse(Function function, Arguments... arguments) const {
    return function(context_, octets_.data(), static_cast<unsigned>(octets_.size()), arguments...) >= 0;
  }

 private:
  ipmi_sdr_ctx *const context_;
  const IpmiOctets &octets_;
};

// What the record calls its sensors, followed by `ending`, which tells those of one record apart.
std::string name_of(const Record &record, const IpmiSensor &sensor, const std::string &ending = "") {
  std::array<char, IPMI_SDR_MAX_SENSOR_NAME_LENGTH + 1> text{};
  record.parse(ipmi_sdr_parse_id_string, text.data(), static_cast<unsigned>(text.size() - 1));
  const std::string name = told_text(text.data());
  return name.empty() ? "Sensor " + std::to_string(sensor.number) : name + ending;
}

std::optional<std::uint8_t> unit_of(const Record &record) {
  std::uint8_t percentage = 0;
  std::uint8_t modifier = 0;
  std::uint8_t rate = 0;
  std::uint8_t base = 0;
  std::uint8_t modifier_unit = 0;
  const bool known = record.parse(ipmi_sdr_parse_sensor_units, &percentage, &modifier, &rate, &base, &modifier_unit);
  return known && percentage == 0 && modifier == 0 && rate == 0 ? std::optional(base) : std::nullopt;
}

// The thresholds whose bits are set in `readable`, from the six octets in the order of IPMI.
IpmiThresholds thresholds_from(const std::function<std::optional<double>(std::uint8_t)> &convert, unsigned readable,
                               std::span<const std::uint8_t, 6> octets) {
  constexpr std::size_t lower_critical = 1;
  constexpr std::size_t lower_non_recoverable = 2;
  constexpr std::size_t upper_critical = 4;
  constexpr std::size_t upper_non_recoverable = 5;
  const auto at = [&](std::size_t position) {
    return (readable >> position & 1) != 0 ? convert(octets[position]) : std::nullopt;
  };
  return {.lower_critical = at(lower_critical),
          .lower_non_recoverable = at(lower_non_recoverable),
          .upper_critical = at(upper_critical),
          .upper_non_recoverable = at(upper_non_recoverable)};
}

// How much a number of steps of the octet is.
double size_of_steps(const IpmiConversion &conversion, std::uint8_t steps) {
  const auto none = conversion.value(0);
  const auto all = conversion.value(steps);
  return none && all ? std::abs(*all - *none) : 0;
}

// The thresholds that the record holds, with the sensor's conversion.
void add_thresholds(const Record &record, IpmiSensor &sensor) {
  std::array<std::uint8_t, 6> readable{};
  std::array<std::uint8_t, 6> octets{};
  if (record.parse(ipmi_sdr_parse_threshold_readable, &readable[0], &readable[1], &readable[2], &readable[3],
                   &readable[4], &readable[5]) &&
      record.parse(ipmi_sdr_parse_thresholds_raw, &octets[0], &octets[1], &octets[2], &octets[3], &octets[4],
                   &octets[5])) {
    unsigned bits = 0;
    for (std::size_t i = 0; i < readable.size(); ++i) {
      bits |= (readable[i] != 0 ? 1U : 0U) << i;
    }
    const auto convert = [&](std::uint8_t octet) { return sensor.conversion->value(octet); };
    sensor.thresholds = thresholds_from(convert, bits, octets);
  }
}

void add_numbers(const Record &record, IpmiSensor &sensor) {
  constexpr std::uint8_t first_non_linear = 0x70;
  constexpr std::uint8_t last_non_linear = 0x7f;
  IpmiConversion conversion;
  if (sensor.event_type != IPMI_EVENT_READING_TYPE_CODE_THRESHOLD ||
      !record.parse(ipmi_sdr_parse_sensor_decoding_data, &conversion.result_exponent, &conversion.offset_exponent,
                    &conversion.multiplier, &conversion.offset, &conversion.linearization, &conversion.format)) {
    return;
  }
  sensor.is_linear = conversion.linearization < first_non_linear;
  if (conversion.linearization > (sensor.is_linear ? IPMI_SDR_LINEARIZATION_CUBERT : last_non_linear)) {
    return;
  }
  if (!record.parse(ipmi_sdr_parse_hysteresis, &sensor.rising_steps, &sensor.falling_steps)) {
    sensor.rising_steps = 0;
    sensor.falling_steps = 0;
  }
  if (!sensor.is_linear) {
    // The controller gives factors for each reading, between which the sensor is linear.
    conversion.linearization = IPMI_SDR_LINEARIZATION_LINEAR;
  }
  set_conversion(sensor, conversion);
  if (sensor.is_linear) {
    add_thresholds(record, sensor);
  }
}

// Nothing if the sensor is not the controller's own, which is counted.
std::optional<IpmiSensor> sensor_of(const Record &record, int &of_others) {
  std::uint8_t owner_type = 0;
  std::uint8_t owner = 0;
  std::uint8_t channel = 0;
  std::uint8_t instance_type = 0;
  IpmiSensor sensor;
  const bool complete = record.parse(ipmi_sdr_parse_sensor_owner_id, &owner_type, &owner) &&
                        record.parse(ipmi_sdr_parse_sensor_owner_lun, &sensor.lun, &channel) &&
                        record.parse(ipmi_sdr_parse_sensor_number, &sensor.number) &&
                        record.parse(ipmi_sdr_parse_entity_id_instance_type, &sensor.entity.id, &sensor.entity.instance,
                                     &instance_type) &&
                        record.parse(ipmi_sdr_parse_sensor_type, &sensor.type) &&
                        record.parse(ipmi_sdr_parse_event_reading_type_code, &sensor.event_type);
  if (!complete) {
    return std::nullopt;
  }
  if (owner_type != IPMI_SDR_SENSOR_OWNER_ID_TYPE_IPMB_SLAVE_ADDRESS || owner != controller_address) {
    ++of_others;
    return std::nullopt;
  }
  sensor.name = name_of(record, sensor);
  sensor.unit = unit_of(record);
  return sensor;
}

// "7", or "H" if the record counts in letters.
std::string ending_of(unsigned position, bool in_letters) {
  constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
  return in_letters && position < letters.size() ? std::string(1, letters[position]) : std::to_string(position);
}

// One compact record may stand for several sensors with consecutive numbers.
std::vector<IpmiSensor> shared_sensors(const Record &record, const IpmiSensor &first) {
  std::uint8_t count = 1;
  std::uint8_t in_letters = 0;
  std::uint8_t first_position = 0;
  std::uint8_t instances_differ = 0;
  const bool is_shared =
      record.parse(ipmi_sdr_parse_sensor_record_sharing, &count, &in_letters, &first_position, &instances_differ) &&
      count > 1;
  if (!is_shared) {
    return {first};
  }
  std::vector<IpmiSensor> sensors;
  for (unsigned step = 0; step < count && first.number + step <= UINT8_MAX; ++step) {
    IpmiSensor &sensor = sensors.emplace_back(first);
    sensor.number = static_cast<std::uint8_t>(first.number + step);
    sensor.entity.instance = static_cast<std::uint8_t>(first.entity.instance + (instances_differ != 0 ? step : 0));
    sensor.name = name_of(record, sensor, ' ' + ending_of(first_position + step, in_letters != 0));
  }
  return sensors;
}

// Nothing if it is no area that the controller itself gives.
std::optional<IpmiFruDevice> fru_of(const Record &record) {
  std::uint8_t access_address = 0;
  std::uint8_t device = 0;
  std::uint8_t bus = 0;
  std::uint8_t lun = 0;
  std::uint8_t is_logical = 0;
  std::uint8_t channel = 0;
  IpmiEntity entity;
  if (!record.parse(ipmi_sdr_parse_fru_device_locator_parameters, &access_address, &device, &bus, &lun, &is_logical,
                    &channel) ||
      !record.parse(ipmi_sdr_parse_fru_entity_id_and_instance, &entity.id, &entity.instance) || is_logical == 0 ||
      access_address != controller_address || lun != 0) {
    return std::nullopt;
  }
  return IpmiFruDevice{.id = device, .entity = entity};
}

void add_record(const Record &record, IpmiInventory &inventory) {
  std::uint16_t id = 0;
  std::uint8_t type = 0;
  if (!record.parse(ipmi_sdr_parse_record_id_and_type, &id, &type)) {
    return;
  }
  if (type == IPMI_SDR_FORMAT_FRU_DEVICE_LOCATOR_RECORD) {
    if (const auto fru = fru_of(record)) {
      inventory.frus.push_back(*fru);
    }
  } else if (type == IPMI_SDR_FORMAT_FULL_SENSOR_RECORD) {
    if (auto sensor = sensor_of(record, inventory.of_others)) {
      sensor->is_readable = true;
      add_numbers(record, *sensor);
      inventory.sensors.push_back(std::move(*sensor));
    }
  } else if (type == IPMI_SDR_FORMAT_COMPACT_SENSOR_RECORD || type == IPMI_SDR_FORMAT_EVENT_ONLY_RECORD) {
    int without_reading = 0;
    const bool is_readable = type == IPMI_SDR_FORMAT_COMPACT_SENSOR_RECORD;
    if (auto sensor = sensor_of(record, is_readable ? inventory.of_others : without_reading)) {
      sensor->is_readable = is_readable;
      const auto sensors = shared_sensors(record, *sensor);
      inventory.sensors.insert(inventory.sensors.end(), sensors.begin(), sensors.end());
    }
  }
}

}  // namespace

std::optional<double> IpmiConversion::value(std::uint8_t octet) const {
  double number = 0;
  if (ipmi_sensor_decode_value(result_exponent, offset_exponent, multiplier, offset, linearization, format, octet,
                               &number) < 0 ||
      !std::isfinite(number)) {
    return std::nullopt;
  }
  return number;
}

bool is_of_processor(const IpmiSensor &sensor) {
  return sensor.entity.id == IPMI_ENTITY_ID_PROCESSOR || sensor.entity.id == IPMI_ENTITY_ID_PROCESSOR_CPU;
}

std::map<std::uint8_t, std::int64_t> processor_numbers(const std::vector<IpmiSensor> &sensors) {
  constexpr auto firsts = std::to_array<std::uint8_t>({0, 1, first_of_device, first_of_device + 1});
  std::set<std::uint8_t> instances;
  for (const IpmiSensor &sensor : sensors) {
    if (is_of_processor(sensor)) {
      instances.insert(sensor.entity.instance);
    }
  }
  if (instances.empty() || std::ranges::find(firsts, *instances.begin()) == firsts.end() ||
      *instances.rbegin() - *instances.begin() + 1U != instances.size()) {
    return {};
  }
  std::map<std::uint8_t, std::int64_t> numbers;
  for (const std::uint8_t instance : instances) {
    numbers[instance] = instance - *instances.begin() + 1;
  }
  return numbers;
}

FaultyPart part_of(const IpmiSensor &sensor, const std::map<std::uint8_t, std::int64_t> &processors) {
  const auto number = processors.find(sensor.entity.instance);
  return is_of_processor(sensor) && number != processors.end()
             ? FaultyPart{.class_code = class_number::processor, .unit = number->second}
             : FaultyPart{.class_code = class_number::server, .unit = 1};
}

IpmiInventory decode_sdr(const std::vector<IpmiOctets> &records) {
  const std::unique_ptr<ipmi_sdr_ctx, Destroy> context(ipmi_sdr_ctx_create());
  IpmiInventory inventory;
  if (!context) {
    return inventory;
  }
  for (const IpmiOctets &octets : records) {
    // The last octet of a record's header is the length of the rest.
    if (octets.size() < sdr_header || octets.size() < sdr_header + octets[sdr_header - 1]) {
      continue;
    }
    add_record(Record(context.get(), octets), inventory);
  }
  return inventory;
}

std::optional<IpmiThresholds> decode_thresholds(
    const IpmiOctets &answer, const std::function<std::optional<double>(std::uint8_t octet)> &convert) {
  constexpr std::size_t count = 6;
  if (answer.size() < 1 + count) {
    return std::nullopt;
  }
  return thresholds_from(convert, answer[0], std::span(answer).subspan<1, count>());
}

std::optional<IpmiConversion> decode_factors(const IpmiSensor &sensor, const IpmiOctets &answer) {
  constexpr std::size_t size = 7;  // the next reading, M, M and tolerance, B, B and accuracy, accuracy, exponents
  constexpr int high_bits = 0xc0;
  if (answer.size() < size || !sensor.conversion) {
    return std::nullopt;
  }
  const auto signed_bits = [](int number, int bits) {
    return number >= 1 << (bits - 1) ? number - (1 << bits) : number;
  };
  const auto ten_bits = [&](std::size_t low, std::size_t high) {
    return static_cast<std::int16_t>(signed_bits(answer[low] | (answer[high] & high_bits) << 2, 10));
  };
  IpmiConversion conversion = *sensor.conversion;
  conversion.multiplier = ten_bits(1, 2);
  conversion.offset = ten_bits(3, 4);
  conversion.result_exponent = static_cast<std::int8_t>(signed_bits(answer[6] >> 4, 4));
  conversion.offset_exponent = static_cast<std::int8_t>(signed_bits(answer[6] & 0x0f, 4));
  return conversion;
}

void set_conversion(IpmiSensor &sensor, const IpmiConversion &conversion) {
  sensor.conversion = conversion;
  sensor.rising_hysteresis = size_of_steps(conversion, sensor.rising_steps);
  sensor.falling_hysteresis = size_of_steps(conversion, sensor.falling_steps);
}

}  // namespace tavo::service
