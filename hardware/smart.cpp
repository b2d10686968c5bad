#include "hardware/smart.h"

#include "hardware/printed_json.h"

namespace tavo::service {
namespace {

using nlohmann::json;

std::string first_message(const json &report) {
  const json *messages = find_printed(report, {"smartctl", "messages"});
  if (messages == nullptr || !messages->is_array() || messages->empty()) {
    return "no answer";
  }
  const std::string text = printed_text(messages->front(), {"string"});
  return text.empty() ? "no answer" : text;
}

std::optional<std::int64_t> number_at(const json &report, std::initializer_list<const char *> path) {
  const json *found = find_printed(report, path);
  return found != nullptr && found->is_number_integer() ? std::optional(found->get<std::int64_t>()) : std::nullopt;
}

}  // namespace

SmartReport parse_smart(std::string_view text) {
  const json report = parse_printed(text);
  SmartReport parsed;
  if (!report.is_object()) {
    parsed.why_silent = "smartctl printed no JSON";
    return parsed;
  }
  const json *passed = find_printed(report, {"smart_status", "passed"});
  parsed.firmware = printed_text(report, {"firmware_version"});
  parsed.model = printed_text(report, {"model_name"});
  if (passed != nullptr && passed->is_boolean()) {
    parsed.healthy = passed->get<bool>();
  }
  if (const auto warnings = number_at(report, {"smart_status", "nvme", "value"})) {
    constexpr std::int64_t temperature = 0x02;
    parsed.has_bad_temperature = (*warnings & temperature) != 0;
    parsed.healthy = parsed.healthy ? std::optional((*warnings & ~temperature) == 0) : std::nullopt;
  }
  parsed.temperature = number_at(report, {"temperature", "current"});
  parsed.critical_temperature = number_at(report, {"temperature", "drive_trip"});
  // A SCSI drive has another name for its model, and need not know SMART.
  if (parsed.healthy || !parsed.model.empty() || !printed_text(report, {"scsi_product"}).empty()) {
    parsed.state = SmartReport::State::Answers;
    return parsed;
  }
  parsed.why_silent = first_message(report);
  if (parsed.why_silent.find("STANDBY") != std::string::npos || parsed.why_silent.find("SLEEP") != std::string::npos) {
    parsed.state = SmartReport::State::Sleeps;
  }
  return parsed;
}

}  // namespace tavo::service
