// Drives and their controllers.
#pragma once

#include <map>
#include <set>
#include <string>

#include "hardware/kernel_events.h"
#include "hardware/pci.h"
#include "hardware/register.h"
#include "hardware/smart.h"
#include "hardware/source.h"

namespace tavo::service {

class DiskSource : public Source {
 public:
  // `numbers` outlives the source. It keeps each place's slot, which drives should be there, and which were failing. A
  // drive's own report is believed for `report_age`: asking costs the drive a little.
  DiskSource(Roots roots, Register &numbers, std::string smartctl = "smartctl",
             std::chrono::seconds report_age = std::chrono::minutes(5));

  std::string_view name() const override { return "disks"; }
  std::chrono::seconds interval() const override { return std::chrono::seconds(10); }
  int watch() const override { return events_.descriptor(); }
  Finding read() override;

 private:
  struct Asked {
    std::chrono::steady_clock::time_point when;
    std::string drive;  // the number that the kernel gives each drive that is plugged in; empty: an old kernel
    SmartReport report;
  };
  struct Drive {
    Part part;
    std::string place;
    bool comes_and_goes;  // nobody misses it
  };

  const SmartReport &report_of(const std::filesystem::path &disk, const std::string &place);
  std::vector<RaidController> controllers();
  std::vector<Drive> drives(Finding &finding);
  Part drive_part(const std::filesystem::path &disk, const std::string &place, Finding &finding);
  void find_troubles(const std::vector<Drive> &present, Finding &finding);
  void forget_what_is_gone(const std::vector<Drive> &present);

  const Roots roots_;
  Register &numbers_;
  Smartctl smartctl_;
  const std::chrono::seconds report_age_;
  PciBus pci_;
  KernelEvents events_{"block"};
  std::map<std::string, Asked> asked_;  // by device
  // The places of drives that were failing when the service ended, and have neither told of their health nor gone
  // since.
  std::set<std::string> failing_before_;
};

}  // namespace tavo::service
