// Drives, their controllers, and the kernel's RAID arrays (md).
#pragma once

#include <map>
#include <set>
#include <string>

#include "hardware/register.h"
#include "hardware/smart.h"
#include "hardware/source.h"

namespace tavo::service {

// Where the kernel shows a drive: its controller, and its place there.
struct DrivePlace {
  std::string controller;  // the PCI address; empty: the drive is on no PCI device
  std::string place;       // what the kernel calls its port, target or namespace: "ata3", "target0:0:1", "nvme0n1"
};

// From the path in /sys/devices that the link in /sys/block leads to.
DrivePlace place_of(const std::filesystem::path &device);

class DiskSource : public Source {
 public:
  // `numbers` outlives the source. It keeps each place's slot.
  DiskSource(Roots roots, Register &numbers, std::string smartctl = "smartctl");

  std::string_view name() const override { return "disks"; }
  std::chrono::seconds interval() const override { return std::chrono::seconds(10); }
  Finding read() override;

 private:
  using Found = std::map<std::string, RaidController>;  // by PCI address; empty: drives on no PCI device

  struct Asked {
    std::chrono::steady_clock::time_point when;
    SmartReport report;
  };
  // What there is to say of a drive that has gone.
  struct Seen {
    std::int64_t slot;
    std::string name;
    std::string dn;  // of its controller
  };

  // How long a drive's own report is believed. Asking costs the drive a little.
  static constexpr std::chrono::minutes report_age{5};

  const SmartReport &report_of(const std::string &device);
  void find_controllers(Found &found);
  void find_drive(Found &found, const std::filesystem::path &disk, const std::filesystem::path &device,
                  Finding &finding);
  RaidController &controller_at(Found &found, const std::string &address, const std::string &location);
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
