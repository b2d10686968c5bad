#include "hardware/chip_place.h"

#include <algorithm>
#include <string_view>
#include <system_error>
#include <vector>

#include "hardware/sysfs.h"

namespace tavo::service {
namespace {

namespace fs = std::filesystem;

// The number of an I2C bus in the name of its directory; empty if it is none.
std::string bus_number(const std::string &name) {
  constexpr std::string_view beginning = "i2c-";
  const std::string number = name.starts_with(beginning) ? name.substr(beginning.size()) : "";
  return number.find_first_not_of("0123456789") == std::string::npos ? number : "";
}

// The kernel numbers I2C buses in the order in which it finds their controllers, which may be another one each time.
// Those of one controller, it always finds in the same order.
std::string stable_bus(const fs::path &bus) {
  std::vector<fs::path> buses = entries(bus.parent_path(), "i2c-");
  std::erase_if(buses, [](const fs::path &other) { return bus_number(other.filename()).empty(); });
  return "i2c #" + std::to_string(std::ranges::find(buses, bus) - buses.begin() + 1);
}

// The device's directory without the numbers of the I2C buses in it: ".../i2c-3/3-0058" is ".../i2c #1/0058".
std::string stable_name(const fs::path &device) {
  fs::path stable;
  fs::path directory;
  std::string number;  // of the bus that the next directory may be on
  for (const fs::path &step : device) {
    directory /= step;
    std::string name = step.string();
    if (!number.empty() && name.starts_with(number + '-')) {
      name.erase(0, number.size() + 1);
    }
    number = bus_number(step.string());
    stable /= number.empty() ? name : stable_bus(directory);
  }
  return stable.string();
}

std::string place_of(const fs::path &chip) {
  std::error_code error;
  const fs::path device = fs::canonical(chip / "device", error);
  return error ? read_attribute(chip / "name").value_or("") : stable_name(device);
}

}  // namespace

std::map<std::string, fs::path> chips_by_place(const fs::path &directory) {
  std::map<std::string, fs::path> chips;
  for (const fs::path &chip : entries(directory, "hwmon")) {
    const std::string device = place_of(chip);
    std::string place = device;
    for (int number = 2; chips.contains(place); ++number) {
      place = device + " #" + std::to_string(number);
    }
    chips[place] = chip;
  }
  return chips;
}

}  // namespace tavo::service
