#include "hardware/ipmi.h"

#include "hardware/decimal.h"
#include "hardware/hwmon.h"
#include "hardware/ipmi_environment.h"
#include "hardware/ipmi_storage.h"
#include "service/causes.h"

namespace tavo::service {

IpmiSource::IpmiSource(Roots roots) : IpmiSource(roots, std::make_unique<OpenIpmiDevice>(roots.dev / "ipmi0")) {}

IpmiSource::IpmiSource(Roots roots, std::unique_ptr<IpmiDevice> device)
    : roots_(std::move(roots)), device_(std::move(device)) {}

void IpmiSource::read_definitions() {
  const auto state = sdr_state(*device_);
  if (!state || state == definitions_state_) {
    return;
  }
  sensors_.define(decode_sdr(read_sdr(*device_)).sensors);
  definitions_state_ = state;
}

void IpmiSource::read_controller() {
  read_definitions();
  sensors_.read(*device_);
  chassis_ = read_chassis(*device_);
  power_ = consumed_power(*device_, sensors_.samples());
}

// From what was read last, even if the controller has gone silent since.
Finding IpmiSource::finding() {
  const Measured by_hwmon = measured_by_hwmon(roots_.sys);
  const std::vector<IpmiSample> &samples = sensors_.samples();
  const IpmiFans fans = by_hwmon.fans ? IpmiFans() : ipmi_fans(samples, seen_);
  const bool with_processors = !by_hwmon.processors;
  Finding finding;
  finding.enter = [=, chassis = chassis_, power = power_](Inventory &inventory) {
    enter_fans(inventory, fans.fans);
    enter_temperatures(inventory, samples, with_processors);
    if (power && inventory.environment.text("power") == "0") {
      inventory.environment.set("power", with_one_decimal(*power));
    }
    if (chassis) {
      enter_chassis(inventory, *chassis);
    }
  };
  finding.troubles = temperature_troubles(samples, with_processors);
  finding.troubles.insert(finding.troubles.end(), fans.troubles.begin(), fans.troubles.end());
  if (has_answered_ && !definitions_state_) {
    finding.unreadable.emplace_back("the controller has no sensor records");
  }
  return finding;
}

Finding IpmiSource::read() {
  std::string silence;
  try {
    read_controller();
    has_answered_ = true;
  } catch (const IpmiSilence &why) {
    if (!has_answered_ && !device_->exists()) {
      throw;
    }
    silence = why.what();
  }
  Finding found = finding();
  if (!silence.empty()) {
    found.unreadable.push_back(silence);
    found.troubles.push_back(
        {.key = "ipmi silent",
         .class_code = server_class,
         .unit = 1,
         .severity = "warning",
         .cause = cause::failed,
         .description = "The management controller does not answer: what it shows is out of date"});
  }
  return found;
}

}  // namespace tavo::service
