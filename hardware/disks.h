// Drives, their controllers, and the kernel's RAID arrays (md).
#pragma once

#include <map>
#include <set>
#include <string>

#include "hardware/register.h"
#include "hardware/smart.h"
#include "hardware/source.h"

namespace tavo::service {

// Where a drive is plugged in, from the path in /sys/devices that the link in /sys/block leads to: the PCI address of
// its controller, and what the kernel calls its port, target or namespace: "0000:00:1f.2 target2:0:0".
std::string place_of(const std::filesystem::path &device);

class DiskSource : public Source {
 public:
  // `numbers` outlives the source. It keeps each place's slot.
  DiskSource(Roots roots, Register &numbers, std::string smartctl = "smartctl");

  std::string_view name() const override { return "disks"; }
  std::chrono::seconds interval() const override { return std::chrono::seconds(10); }
  Finding read() override;

 private:
  struct Asked {
    std::chrono::steady_clock::time_point when;
    SmartReport report;
  };
  // What there is to say of a drive that has gone.
  struct Seen {
    std::int64_t slot;
    std::string name;
  };

  // How long a drive's own report is believed. Asking costs the drive a little.
  static constexpr std::chrono::minutes report_age{5};

  const SmartReport &report_of(const std::string &device);
  std::vector<RaidController> controllers();
  std::vector<Part> drives(Finding &finding);
  Part drive_part(const std::filesystem::path &disk, const std::string &place, Finding &finding);
  Trouble trouble(const std::string &place, const std::string &what, const std::string &severity, int cause,
                  const std::string &sentence) const;

  const Roots roots_;
  Register &numbers_;
  const std::string smartctl_;
  std::map<std::string, Asked> asked_;  // by device
  std::map<std::string, Seen> seen_;    // every drive since the start, by its place
  std::set<std::string> present_;       // the places of those that are there now
};

}  // namespace tavo::service
