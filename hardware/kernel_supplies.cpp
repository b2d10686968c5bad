#include "hardware/kernel_supplies.h"

#include <algorithm>
#include <array>
#include <map>
#include <string_view>
#include <system_error>
#include <vector>

#include "hardware/chip_place.h"
#include "hardware/set_line.h"
#include "hardware/sysfs.h"
#include "service/causes.h"

namespace tavo::service {
namespace {

namespace fs = std::filesystem;

struct KernelSupply {
  std::string place;  // names it for ever
  Part part;
  const SupplyDefect *defect;  // null: it is good
  bool has_fan = false;
  bool fan_has_failed = false;
};

// An adapter that feeds the machine, not something that is plugged into it. Batteries and UPSs are no supplies.
bool is_mains_of_machine(const fs::path &supply) {
  return read_attribute(supply / "type") == "Mains" && read_attribute(supply / "scope") != "Device" &&
         read_number(supply / "online").has_value();
}

std::vector<KernelSupply> mains(const fs::path &sys) {
  std::vector<KernelSupply> found;
  for (const fs::path &supply : entries(sys / "class/power_supply")) {
    if (is_mains_of_machine(supply)) {
      const SupplyDefect *defect = is_set(supply / "online") ? nullptr : &supply_without_input;
      Part part = supply_part(true, defect);
      set_line(part, "model", read_attribute(supply / "model_name").value_or(""));
      set_line(part, "serial", read_attribute(supply / "serial_number").value_or(""));
      found.push_back({.place = supply.filename(), .part = part, .defect = defect});
    }
  }
  return found;
}

// By the alarms that the supply's own firmware sets: its input, its output, its temperature.
const SupplyDefect *defect_of(const fs::path &chip) {
  const auto any = [&](std::initializer_list<const char *> alarms) {
    return std::ranges::any_of(alarms, [&](const char *alarm) { return is_set(chip / alarm); });
  };
  if (any({"in1_lcrit_alarm", "in1_min_alarm"})) {
    return &supply_with_doubtful_input;
  }
  return any({"in2_lcrit_alarm", "curr2_crit_alarm", "temp1_crit_alarm"}) ? &failed_supply : nullptr;
}

// A chip stays in the list when its supply is pulled out, but cannot be read.
KernelSupply supply_of(const std::string &place, const fs::path &chip) {
  const bool is_present = read_number(chip / "in1_input") || read_number(chip / "in2_input");
  const SupplyDefect *defect = is_present ? defect_of(chip) : nullptr;
  std::error_code error;
  return {.place = place,
          .part = supply_part(is_present, defect),
          .defect = defect,
          .has_fan = fs::exists(chip / "fan1_input", error),
          .fan_has_failed = is_present && (is_set(chip / "fan1_alarm") || is_set(chip / "fan1_fault"))};
}

std::vector<KernelSupply> all_supplies(const fs::path &sys) {
  std::vector<KernelSupply> found = mains(sys);
  for (const auto &[place, chip] : chips_by_place(sys / "class/hwmon")) {
    if (is_supply_driver(read_attribute(chip / "name").value_or(""))) {
      found.push_back(supply_of(place, chip));
    }
  }
  return found;
}

}  // namespace

bool is_supply_driver(const std::string &driver) {
  constexpr auto drivers =
      std::to_array<std::string_view>({"acbel_fsg032", "cffps", "cffps1", "cffps2", "dps920ab", "intel_crps185",
                                       "ipsps1", "pfe1100", "pfe3000", "yh5151e", "ym2151e"});
  return std::ranges::find(drivers, driver) != drivers.end();
}

Supplies kernel_supplies(const fs::path &sys, Register &kept) {
  Supplies found;
  std::vector<KernelSupply> supplies = all_supplies(sys);
  std::map<std::string, std::string> here;
  for (const KernelSupply &supply : supplies) {
    here[supply.place] = "";
  }
  kept.free_absent("kernel-supply", here);
  for (KernelSupply &supply : supplies) {
    const std::int64_t number = kept.number_of("kernel-supply", supply.place);
    const bool is_present = supply.part.flag("present");
    if (!place_supply(found.supplies, number, std::move(supply.part))) {
      found.unreadable.push_back("power supply " + supply.place + ": there are no more than " +
                                 std::to_string(supply_limit) + " numbers for power supplies");
      continue;
    }
    if (supply.has_fan) {
      found.fans.push_back({.supply = number, .presence = is_present ? "present" : "absent"});
    }
    const auto add = [&](const std::string &what, std::string_view severity, std::string_view sentence) {
      found.troubles.push_back(
          supply_trouble("supply " + supply.place + what, number, severity, cause::failed, sentence));
    };
    if (supply.defect != nullptr) {
      add(" defect", supply.defect->severity, supply.defect->sentence);
    }
    if (supply.fan_has_failed) {
      add(" fan", "major", ": its fan has failed");
    }
  }
  return found;
}

}  // namespace tavo::service
