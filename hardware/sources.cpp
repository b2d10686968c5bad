#include "hardware/sources.h"

#include <algorithm>

#include "hardware/adapters.h"
#include "hardware/arrays.h"
#include "hardware/disks.h"
#include "hardware/edac.h"
#include "hardware/hwmon.h"
#include "hardware/ipmi_source.h"
#include "hardware/leds.h"
#include "hardware/raid_batteries.h"
#include "hardware/sd_cards.h"
#include "hardware/smbios.h"
#include "hardware/thermal.h"

namespace tavo::service {

std::vector<std::unique_ptr<Source>> all_sources(const Roots &roots, Register &numbers) {
  std::vector<std::unique_ptr<Source>> sources;
  sources.push_back(std::make_unique<SmbiosSource>(roots, numbers));
  sources.push_back(std::make_unique<HwmonSource>(roots, numbers));
  sources.push_back(ipmi_source(roots, numbers));
  sources.push_back(std::make_unique<ThermalSource>(roots));
  sources.push_back(std::make_unique<EdacSource>(roots));
  sources.push_back(std::make_unique<AdapterSource>(roots, numbers));
  sources.push_back(std::make_unique<DiskSource>(roots, numbers));
  sources.push_back(std::make_unique<RaidBatterySource>(roots, numbers));
  sources.push_back(std::make_unique<ArraySource>(roots, numbers));
  sources.push_back(std::make_unique<SdCardSource>(roots, numbers));
  sources.push_back(std::make_unique<LedSource>(roots));
  return sources;
}

std::vector<std::string_view> source_names() {
  Register nothing_kept("");
  std::vector<std::string_view> names;
  for (const auto &source : all_sources(Roots(), nothing_kept)) {
    names.push_back(source->name());
  }
  return names;
}

void add_interval(const std::string &word, Intervals &intervals) {
  constexpr std::int64_t day = 86'400;
  const std::size_t equals = word.find('=');
  const std::string wanted = word.substr(0, equals);
  const auto names = source_names();
  if (std::ranges::find(names, wanted) == names.end()) {
    throw BadInput("unknown source '" + wanted + "'; expected one of " + joined(names));
  }
  if (equals == std::string::npos) {
    throw BadInput("'" + word + "' is not of the form SOURCE=SECONDS");
  }
  intervals[wanted] = std::chrono::seconds(parse_number(word.substr(equals + 1), "seconds", 1, day));
}

}  // namespace tavo::service
