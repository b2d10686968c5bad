// Drives and their controllers.
#pragma once

#include <map>
#include <string>

#include "hardware/kernel_events.h"
#include "hardware/pci.h"
#include "hardware/register.h"
#include "hardware/smart.h"
#include "hardware/source.h"

namespace tavo::service {

class DiskSource : public Source {
 public:
  // `numbers` outlives the source. It keeps each place's slot, and which drives should be there.
  DiskSource(Roots roots, Register &numbers, std::string smartctl = "smartctl");

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

  // How long a drive's own report is believed. Asking costs the drive a little.
  static constexpr std::chrono::minutes report_age{5};

  const SmartReport &report_of(const std::filesystem::path &disk);
  std::vector<RaidController> controllers();
  std::vector<Drive> drives(Finding &finding);
  Part drive_part(const std::filesystem::path &disk, const std::string &place, Finding &finding);
  void find_troubles(const std::vector<Drive> &present, Finding &finding);

  const Roots roots_;
  Register &numbers_;
  const std::string smartctl_;
  PciBus pci_;
  KernelEvents events_{"block"};
  std::map<std::string, Asked> asked_;  // by device
};

}  // namespace tavo::service
