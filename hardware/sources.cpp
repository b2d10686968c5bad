#include "hardware/sources.h"

#include "hardware/adapters.h"
#include "hardware/arrays.h"
#include "hardware/disks.h"
#include "hardware/edac.h"
#include "hardware/hwmon.h"
#include "hardware/ipmi.h"
#include "hardware/leds.h"
#include "hardware/sd_cards.h"
#include "hardware/smbios.h"

namespace tavo::service {

std::vector<std::unique_ptr<Source>> all_sources(const Roots &roots, Register &numbers) {
  std::vector<std::unique_ptr<Source>> sources;
  sources.push_back(std::make_unique<SmbiosSource>(roots));
  sources.push_back(std::make_unique<HwmonSource>(roots));
  sources.push_back(std::make_unique<IpmiSource>(roots, numbers));
  sources.push_back(std::make_unique<EdacSource>(roots));
  sources.push_back(std::make_unique<AdapterSource>(roots, numbers));
  sources.push_back(std::make_unique<DiskSource>(roots, numbers));
  sources.push_back(std::make_unique<ArraySource>(roots, numbers));
  sources.push_back(std::make_unique<SdCardSource>(roots, numbers));
  sources.push_back(std::make_unique<LedSource>(roots));
  return sources;
}

}  // namespace tavo::service
