#include "hardware/ipmi_sel.h"

#include <freeipmi/freeipmi.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>

#include "hardware/same_error.h"
#include "service/causes.h"

namespace tavo::service {
namespace {

struct Destroy {
  void operator()(ipmi_sel_ctx_t context) const { ipmi_sel_ctx_destroy(context); }
};

// States that do not pass by themselves.
struct LastingState {
  std::uint8_t type;
  std::uint8_t state;
  std::string_view severity;
  std::string_view sentence;
  const char *error = "";  // as Trouble::error
};

constexpr auto lasting_states = std::to_array<LastingState>({
    {IPMI_SENSOR_TYPE_PROCESSOR, IPMI_SENSOR_TYPE_PROCESSOR_IERR, "critical",
     "the processor has had an internal error"},
    {IPMI_SENSOR_TYPE_PROCESSOR, IPMI_SENSOR_TYPE_PROCESSOR_THERMAL_TRIP, "critical",
     "the processor has switched itself off, because it was too hot"},
    {IPMI_SENSOR_TYPE_PROCESSOR, IPMI_SENSOR_TYPE_PROCESSOR_FRB1_BIST_FAILURE, "major",
     "the processor has failed its own test"},
    {IPMI_SENSOR_TYPE_PROCESSOR, IPMI_SENSOR_TYPE_PROCESSOR_FRB2_HANG_IN_POST_FAILURE, "major",
     "the processor has hung while the server started"},
    {IPMI_SENSOR_TYPE_PROCESSOR, IPMI_SENSOR_TYPE_PROCESSOR_FRB3_PROCESSOR_STARTUP_INITIALIZATION_FAILURE, "major",
     "the processor has not started"},
    {IPMI_SENSOR_TYPE_PROCESSOR, IPMI_SENSOR_TYPE_PROCESSOR_SMBIOS_UNCORRECTABLE_CPU_COMPLEX_ERROR, "critical",
     "the processor has had an error that cannot be corrected"},
    {IPMI_SENSOR_TYPE_PROCESSOR, IPMI_SENSOR_TYPE_PROCESSOR_MACHINE_CHECK_EXCEPTION, "critical",
     "the processor has reported a machine check"},
    {IPMI_SENSOR_TYPE_MEMORY, IPMI_SENSOR_TYPE_MEMORY_UNCORRECTABLE_MEMORY_ERROR, "critical",
     "memory has had an error that cannot be corrected", uncorrected_memory_error},
    {IPMI_SENSOR_TYPE_MEMORY, IPMI_SENSOR_TYPE_MEMORY_PARITY, "critical", "memory has had a parity error"},
    {IPMI_SENSOR_TYPE_MEMORY, IPMI_SENSOR_TYPE_MEMORY_MEMORY_DEVICE_DISABLED, "major",
     "a memory module has been disabled"},
    {IPMI_SENSOR_TYPE_MEMORY, IPMI_SENSOR_TYPE_MEMORY_CORRECTABLE_MEMORY_ERROR_LOGGING_LIMIT_REACHED, "minor",
     "memory has had many corrected errors", corrected_memory_errors},
    {IPMI_SENSOR_TYPE_DRIVE_SLOT, IPMI_SENSOR_TYPE_DRIVE_SLOT_DRIVE_FAULT, "major", "the drive has failed"},
    {IPMI_SENSOR_TYPE_DRIVE_SLOT, IPMI_SENSOR_TYPE_DRIVE_SLOT_PREDICTIVE_FAILURE, "minor",
     "the drive is about to fail"},
});

const LastingState *find_state(std::uint8_t type, std::uint8_t state) {
  const auto found = std::ranges::find_if(
      lasting_states, [&](const LastingState &one) { return one.type == type && one.state == state; });
  return found != lasting_states.end() ? &*found : nullptr;
}

}  // namespace

std::optional<SelEvent> decode_sel(const IpmiOctets &record) {
  const std::unique_ptr<ipmi_sel_ctx, Destroy> context(ipmi_sel_ctx_create(nullptr, nullptr));
  const auto parse = [&](auto function, std::uint8_t &octet) {
    return function(context.get(), record.data(), static_cast<unsigned>(record.size()), &octet) == 0;
  };
  std::uint8_t record_type = 0;
  std::uint8_t direction = 0;
  std::uint8_t event_type = 0;
  SelEvent event;
  if (!context || !parse(ipmi_sel_parse_read_record_type, record_type) ||
      record_type != IPMI_SEL_RECORD_TYPE_SYSTEM_EVENT_RECORD ||
      !parse(ipmi_sel_parse_read_generator_id, event.generator) ||
      !parse(ipmi_sel_parse_read_sensor_type, event.type) || !parse(ipmi_sel_parse_read_sensor_number, event.sensor) ||
      !parse(ipmi_sel_parse_read_event_direction, direction) ||
      !parse(ipmi_sel_parse_read_event_type_code, event_type) ||
      !parse(ipmi_sel_parse_read_event_data1_offset_from_event_reading_type_code, event.state) ||
      event_type != IPMI_EVENT_READING_TYPE_CODE_SENSOR_SPECIFIC) {
    return std::nullopt;
  }
  event.is_entered = direction == IPMI_SEL_RECORD_ASSERTION_EVENT;
  return event;
}

void SelFaults::note(const SelEvent &event) {
  const Active fault{.type = event.type, .state = event.state, .generator = event.generator, .sensor = event.sensor};
  if (find_state(event.type, event.state) == nullptr) {
    return;
  }
  if (event.is_entered) {
    active_.insert(fault);
  } else {
    active_.erase(fault);
  }
}

std::vector<Trouble> SelFaults::troubles(const std::vector<IpmiSensor> &sensors) const {
  const auto processors = processor_numbers(sensors);
  std::vector<Trouble> troubles;
  for (const Active &active : active_) {
    const auto found = std::ranges::find_if(sensors, [&](const IpmiSensor &sensor) {
      return active.generator == IPMI_SLAVE_ADDRESS_BMC && sensor.number == active.sensor && sensor.type == active.type;
    });
    const IpmiSensor *sensor = found != sensors.end() ? &*found : nullptr;
    const LastingState &state = *find_state(active.type, active.state);
    const FaultyPart part = part_of(sensor != nullptr ? *sensor : IpmiSensor(), processors);
    const std::string number = std::to_string(active.sensor);
    troubles.push_back({.key = "ipmi event " + std::to_string(active.type) + '.' + std::to_string(active.state) +
                               " of " + std::to_string(active.generator) + '.' + number,
                        .class_code = part.class_code,
                        .unit = part.unit,
                        .severity = std::string(state.severity),
                        .cause = cause::failed,
                        .description = (sensor != nullptr ? sensor->name : "Sensor " + number) + ": " +
                                       std::string(state.sentence) + ", as the event log says",
                        .error = state.error});
  }
  return troubles;
}

}  // namespace tavo::service
