#include "hardware/hwmon.h"

#include <algorithm>
#include <optional>
#include <system_error>

#include "core/class_number.h"
#include "hardware/chip_place.h"
#include "hardware/decimal.h"
#include "hardware/fans.h"
#include "hardware/kernel_supplies.h"
#include "hardware/pci.h"
#include "hardware/sysfs.h"
#include "service/causes.h"

namespace tavo::service {
namespace {

namespace fs = std::filesystem;

// Of a processor, by its number from 0.
struct ProcessorTemperature {
  std::size_t processor;
  std::int64_t thousandths;
  bool has_limit;
  bool is_critical;
};

struct Readings {
  std::vector<ProcessorTemperature> processors;
  std::vector<Fan> fans;
  std::optional<std::int64_t> power;  // microwatts
};

// Nothing is added if it cannot be read, or the processor has a reading already.
void read_processor(std::size_t processor, const fs::path &chip, const std::string &sensor, ChipLimits &limits,
                    Readings &readings) {
  if (std::ranges::find(readings.processors, processor, &ProcessorTemperature::processor) !=
      readings.processors.end()) {
    return;
  }
  if (const auto now = read_number(chip / (sensor + "_input"))) {
    readings.processors.push_back({.processor = processor,
                                   .thousandths = *now,
                                   .has_limit = read_number(chip / (sensor + "_crit")).value_or(0) > 0,
                                   .is_critical = limits.is_critical(chip, sensor)});
  }
}

// "coretemp" has a chip for each processor, with the label "Package id N".
void read_coretemp(const fs::path &chip, ChipLimits &limits, Readings &readings) {
  constexpr std::string_view package = "Package id ";
  for (const fs::path &label : entries(chip, "temp")) {
    const std::string name = label.filename();
    const std::string text = name.ends_with("_label") ? read_attribute(label).value_or("") : "";
    if (text.starts_with(package)) {
      const int processor = std::atoi(text.c_str() + package.size());
      if (processor >= 0) {
        read_processor(static_cast<std::size_t>(processor), chip, name.substr(0, name.find('_')), limits, readings);
      }
    }
  }
}

void read_fans(const fs::path &chip, const std::string &place, ChipLimits &limits, Readings &readings) {
  const std::string beginning = place + ' ';
  for (const fs::path &input : entries(chip, "fan")) {
    const std::string name = input.filename();
    if (!name.ends_with("_input")) {
      continue;
    }
    const std::string fan = name.substr(0, name.find('_'));
    const auto turns = read_number(input);
    if (turns) {
      const std::string name_of_fan = beginning + fan;
      readings.fans.push_back(
          {.place = name_of_fan, .key = "fan " + name_of_fan, .has_failed = limits.is_too_slow(chip, fan, *turns)});
    }
  }
}

// Whether the chip measures an expansion card, whose fans are not the server's: it is a PCI device itself, or on a
// graphics card's own bus. A chip of the board may be behind a PCI device as well, which then is the board's bus
// controller.
bool is_of_card(const fs::path &chip) {
  constexpr std::string_view display = "0x03";
  std::error_code error;
  fs::path device = fs::canonical(chip / "device", error);
  if (error) {
    return false;
  }
  if (is_pci_address(device.filename().string())) {
    return true;
  }
  while (device.has_relative_path() && !is_pci_address(device.filename().string())) {
    device = device.parent_path();
  }
  return read_attribute(device / "class").value_or("").starts_with(display);
}

// Whether the chip is the management controller, as a driver for some makes shows it: what it measures comes from the
// controller itself.
bool is_controller(const std::string &driver) {
  return driver == "ibmpex" || driver.starts_with("aem");
}

// Processors of AMD have a chip each, in the order of the processors.
Readings read_chips(const fs::path &directory, ChipLimits &limits) {
  Readings readings;
  std::size_t amd_processors = 0;
  for (const auto &[place, chip] : chips_by_place(directory)) {
    const std::string driver = read_attribute(chip / "name").value_or("");
    if (driver == "coretemp") {
      read_coretemp(chip, limits, readings);
    } else if (driver == "k10temp") {
      read_processor(amd_processors++, chip, "temp1", limits, readings);
    } else if (driver == "power_meter") {
      readings.power = read_number(chip / "power1_average");
    }
    if (!is_of_card(chip) && !is_controller(driver) && !is_supply_driver(driver)) {
      read_fans(chip, place, limits, readings);
    }
  }
  return readings;
}

void enter_processors(Inventory &inventory, const std::vector<ProcessorTemperature> &readings) {
  for (const ProcessorTemperature &reading : readings) {
    if (reading.processor < inventory.processors.size()) {
      inventory.processors[reading.processor].set("temperature", from_thousandths(reading.thousandths));
    }
  }
}

std::vector<Trouble> troubles_of_processors(const std::vector<ProcessorTemperature> &readings) {
  std::vector<Trouble> troubles;
  for (const ProcessorTemperature &reading : readings) {
    if (reading.is_critical) {
      const std::string number = std::to_string(reading.processor + 1);
      troubles.push_back({.key = "processor " + number + " too hot",
                          .class_code = class_number::processor,
                          .unit = static_cast<std::int64_t>(reading.processor) + 1,
                          .severity = "critical",
                          .cause = cause::failed,
                          .description = "Processor " + number + " is at its critical temperature"});
    }
  }
  return troubles;
}

}  // namespace

Finding HwmonSource::read() {
  events_.take();
  const fs::path directory = roots_.sys / "class/hwmon";
  const Readings readings = read_chips(directory, limits_);
  Finding finding;
  if (!readings.processors.empty()) {
    finding.accounts[Topic::ProcessorTemperatures] = {
        .enter = [=](Inventory &inventory) { enter_processors(inventory, readings.processors); }};
  }
  if (std::ranges::any_of(readings.processors, &ProcessorTemperature::has_limit)) {
    finding.accounts[Topic::ProcessorHeat] = {.troubles = troubles_of_processors(readings.processors)};
  }
  if (readings.power) {
    finding.accounts[Topic::Power] = {
        .enter = [watts = from_thousandths(*readings.power / 1000)](Inventory &inventory) {
          inventory.environment.set("power", watts);
        }};
  }
  if (const std::vector<Fan> fans = fans_.in_places(readings.fans); !fans.empty()) {
    finding.accounts[Topic::Fans] = account_of_fans(fans);
  }
  const Supplies supplies = kernel_supplies(roots_.sys, numbers_);
  if (!supplies.supplies.empty()) {
    finding.accounts[Topic::Supplies] = account_of_supplies(supplies);
  }
  finding.unreadable = supplies.unreadable;
  if (entries(directory).empty()) {
    finding.unreadable.push_back(directory.string() + ": no chips");
  }
  return finding;
}

}  // namespace tavo::service
