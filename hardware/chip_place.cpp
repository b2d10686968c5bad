#include "hardware/chip_place.h"

#include <algorithm>
#include <optional>
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

// A device's name without the number of the bus that it is on: "3-0058" is "0058". An empty number is no bus.
std::string name_on_bus(const std::string &name, const std::string &number) {
  return !number.empty() && name.starts_with(number + '-') ? name.substr(number.size() + 1) : name;
}

// A bus behind a multiplexer on the bus with the number `parent`: "0070 channel-1". The kernel makes the two links that
// tell so after the bus and its devices; until then, there is no name.
std::optional<std::string> channel_name(const fs::path &bus, const std::string &parent) {
  std::error_code error;
  const fs::path multiplexer = fs::canonical(bus / "mux_device", error);
  if (error) {
    return std::nullopt;
  }
  for (const fs::path &channel : entries(multiplexer, "channel-")) {
    if (fs::equivalent(channel, bus, error)) {
      return name_on_bus(multiplexer.filename(), parent) + ' ' + channel.filename().string();
    }
  }
  return std::nullopt;
}

// The kernel numbers I2C buses in the order in which it finds their controllers, which may be another one each time.
// Those of one controller, it always finds in the same order. Nothing if the bus is gone.
std::optional<std::string> controllers_bus_name(const fs::path &bus) {
  std::vector<fs::path> buses = entries(bus.parent_path(), "i2c-");
  std::erase_if(buses, [](const fs::path &other) { return bus_number(other.filename()).empty(); });
  const auto found = std::ranges::find(buses, bus);
  return found == buses.end() ? std::nullopt : std::optional("i2c #" + std::to_string(found - buses.begin() + 1));
}

// The device's directory without the numbers of the I2C buses in it: ".../i2c-3/3-0058" is ".../i2c #1/0058". Nothing
// if a bus has no name that will last.
std::optional<std::string> stable_name(const fs::path &device) {
  fs::path stable;
  fs::path directory;
  std::string parent;  // the number of the bus that the next directory may be on
  for (const fs::path &step : device) {
    directory /= step;
    const std::string number = bus_number(step);
    if (number.empty()) {
      stable /= name_on_bus(step, parent);
    } else {
      // A bus right below another one is behind a multiplexer.
      const auto name = parent.empty() ? controllers_bus_name(directory) : channel_name(directory, parent);
      if (!name) {
        return std::nullopt;
      }
      stable /= *name;
    }
    parent = number;
  }
  return stable.string();
}

std::optional<std::string> place_of(const fs::path &chip) {
  std::error_code error;
  const fs::path device = fs::canonical(chip / "device", error);
  return error ? read_attribute(chip / "name").value_or("") : stable_name(device);
}

}  // namespace

std::map<std::string, fs::path> chips_by_place(const fs::path &directory) {
  std::map<std::string, fs::path> chips;
  for (const fs::path &chip : entries(directory, "hwmon")) {
    const std::optional<std::string> device = place_of(chip);
    if (!device) {
      continue;
    }
    std::string place = *device;
    for (int number = 2; chips.contains(place); ++number) {
      place = *device + " #" + std::to_string(number);
    }
    chips[place] = chip;
  }
  return chips;
}

}  // namespace tavo::service
