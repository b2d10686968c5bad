#include "hardware/raid_batteries.h"

#include <algorithm>
#include <array>
#include <map>
#include <stdexcept>

#include "core/class_number.h"
#include "hardware/sysfs.h"
#include "hardware/system_controller.h"
#include "service/affected.h"

namespace tavo::service {
namespace {

constexpr const char *battery_group = "raid-battery";  // in the register

// The key of a trouble, or what the keys of all troubles of the controller's battery begin with.
std::string key_of(const std::string &controller, const std::string &what) {
  return "raid-battery " + controller + ' ' + what;
}

// The codes of the models that the table of batteries has a name for.
struct BatteryType {
  std::string_view model;
  std::int64_t code;
};
constexpr auto battery_types = std::to_array<BatteryType>({{.model = "iBBU", .code = 2},
                                                           {.model = "BBU", .code = 3},
                                                           {.model = "ZCRLegacy", .code = 4},
                                                           {.model = "iTBBU3", .code = 5},
                                                           {.model = "iBBU08", .code = 6},
                                                           {.model = "iBBU09", .code = 7},
                                                           {.model = "TMM-C SuperCap", .code = 8}});

std::int64_t type_of(const std::string &model) {
  const auto found = std::ranges::find(battery_types, model, &BatteryType::model);
  return found != battery_types.end() ? found->code : 0;
}

void enter(Inventory &inventory, const std::map<std::int64_t, RaidBattery> &by_controller) {
  for (RaidController &controller : inventory.controllers) {
    const auto battery = by_controller.find(controller.part.number("id"));
    if (battery != by_controller.end()) {
      controller.part.set("battery-present", "yes");
      controller.part.set_number("battery-type", type_of(battery->second.model));
      controller.part.set("battery-state", battery->second.is_good() ? "operable" : "failed");
    }
  }
}

}  // namespace

bool RaidBatterySource::has_controllers() const {
  const auto bound = entries(roots_.sys / "bus/pci/drivers/megaraid_sas");
  return std::ranges::any_of(bound, [](const auto &entry) { return is_pci_address(entry.filename().string()); });
}

// Throws std::runtime_error if there is none.
RaidReport RaidBatterySource::report() {
  if (run_ && !run_->is_gone()) {
    throw std::runtime_error("the tool still hangs");
  }
  for (const std::string &tool : tools_) {
    // Without `nolog`, the tool writes a log into the working directory.
    run_ = std::make_unique<ToolRun>(std::vector<std::string>{tool, "/call", "show", "all", "J", "nolog"}, limit_);
    run_->wait(run_->deadline());
    if (run_->is_missing()) {
      continue;
    }
    if (!run_->error().empty()) {
      throw std::runtime_error(run_->error());
    }
    const auto report = parse_raid_report(run_->output());
    return report ? *report : throw std::runtime_error(tool + " printed no report");
  }
  throw std::runtime_error("none of the tools is installed: " + joined({tools_.begin(), tools_.end()}));
}

// Without its severity, and with a description that only names the battery.
Trouble RaidBatterySource::trouble(const RaidBattery &battery, std::int64_t number, const std::string &what) const {
  const std::string location = location_of(battery.controller, pci_.slots());
  return {
      .key = key_of(battery.controller, what),
      .class_code = class_number::storage,
      .unit = number,
      .description = "Battery " + std::to_string(number) + " (" + battery.model + ") of RAID controller " + location,
      .affected = storage_dn(location) + "/raid-battery",
      .affected_oid = affected_server().oid};
}

Finding RaidBatterySource::read() {
  const RaidReport told = has_controllers() ? report() : RaidReport();
  Finding finding;
  std::map<std::int64_t, RaidBattery> by_controller;
  std::map<std::string, std::string> present;
  std::int64_t row = 0;
  for (const RaidBattery &battery : told.batteries) {
    ++row;
    present[battery.controller] = battery.model;
    by_controller[numbers_.number_of(controller_group, battery.controller)] = battery;
    if (!battery.is_good()) {
      Trouble bad = trouble(battery, numbers_.number_of(battery_group, battery.controller), "state");
      bad.severity = "major";
      bad.description += " is not good: " + battery.state;
      bad.affected_oid = dn_oid(dn_column::raid_battery, row);
      finding.troubles.push_back(bad);
    }
  }
  // A controller that has failed may be any of those that are not named.
  for (const auto &[controller, battery] : missing_parts(numbers_, battery_group, present)) {
    const RaidBattery known{.controller = controller, .model = battery.name, .state = ""};
    if (told.failures.empty()) {
      finding.troubles.push_back(missing(trouble(known, battery.number, "gone"), battery));
    } else {
      finding.undecided.push_back(key_of(controller, ""));
    }
  }
  finding.unreadable = told.failures;
  finding.enter = [by_controller](Inventory &inventory) { enter(inventory, by_controller); };
  return finding;
}

}  // namespace tavo::service
