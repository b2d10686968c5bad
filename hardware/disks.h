// Drives and their controllers.
#pragma once

#include <optional>
#include <set>
#include <string>

#include "hardware/descriptor_set.h"
#include "hardware/drive_heat.h"
#include "hardware/drive_reports.h"
#include "hardware/kernel_events.h"
#include "hardware/pci.h"
#include "hardware/register.h"
#include "hardware/source.h"

namespace tavo::service {

class DiskSource : public Source {
 public:
  // `numbers` outlives the source. It keeps each place's slot, which drives should be there, and which were
  // failing or too hot.
  DiskSource(Roots roots, Register &numbers, std::string smartctl = "smartctl", const DriveReports::Times &times = {});

  std::string_view name() const override { return "disks"; }
  std::chrono::seconds interval() const override { return std::chrono::seconds(10); }
  int watch() const override { return watched_.descriptor(); }
  Finding read() override;

 private:
  struct Drive {
    std::filesystem::path disk;    // in /sys/block
    std::filesystem::path device;  // in /sys/devices
    std::string place;
    bool comes_and_goes;  // nobody misses it
    AskedDrive asked;
    Part part{drive_kind};
    DriveReport report = {};
    std::optional<bool> is_too_hot = {};  // nothing: not known yet
  };

  std::vector<RaidController> controllers();
  std::vector<Drive> drives(Finding &finding);
  DriveReport report_of(const Drive &drive);
  Part drive_part(const Drive &drive);
  void find_troubles(const std::vector<Drive> &present, Finding &finding);
  void forget_what_is_gone(const std::vector<Drive> &present);

  const Roots roots_;
  Register &numbers_;
  DriveReports reports_;
  DriveHeat heat_;
  PciBus pci_;
  KernelEvents events_{"block"};
  DescriptorSet watched_;
  // The places of drives that were failing when the service ended, and have neither told of their health nor gone
  // since.
  std::set<std::string> failing_before_;
  // Those of drives that were too hot then, of whose temperature nothing is known since.
  std::set<std::string> hot_before_;
  // Those of drives that had said so themselves, and have not said since whether it is over.
  std::set<std::string> warned_before_;
};

}  // namespace tavo::service
