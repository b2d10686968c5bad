// Batteries of RAID controllers, as a tool of the controllers' maker tells of them.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "hardware/pci.h"
#include "hardware/raid_report.h"
#include "hardware/register.h"
#include "hardware/source.h"
#include "hardware/tool_run.h"

namespace tavo::service {

class RaidBatterySource : public Source {
 public:
  // `numbers` outlives the source. It keeps which controllers should have a battery. Of the tools, which are searched
  // in PATH, the first that is there is run.
  RaidBatterySource(Roots roots, Register &numbers,
                    std::vector<std::string> tools = {"storcli64", "storcli", "perccli64"},
                    std::chrono::milliseconds limit = std::chrono::seconds(30))
      : roots_(std::move(roots)), numbers_(numbers), tools_(std::move(tools)), limit_(limit), pci_(roots_.sys) {}

  std::string_view name() const override { return "RAID-batteries"; }
  std::chrono::seconds interval() const override { return std::chrono::minutes(5); }
  Finding read() override;

 private:
  bool has_controllers() const;
  RaidReport report();
  Trouble trouble(const RaidBattery &battery, std::int64_t number, const std::string &what) const;

  const Roots roots_;
  Register &numbers_;
  const std::vector<std::string> tools_;
  const std::chrono::milliseconds limit_;
  PciBus pci_;
  std::unique_ptr<ToolRun> run_;  // the last one
};

}  // namespace tavo::service
