#include "hardware/disks.h"

#include <gmock/gmock.h>

#include <sys/stat.h>

#include <thread>

#include "tests/harness/emulated.h"
#include "tree.h"

namespace tavo::service {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char *healthy = R"({"model_name": "MODEL-1", "serial_number": "S1", "firmware_version": "F1",
  "smart_status": {"passed": true}, "temperature": {"current": 31}})";
constexpr const char *failing = R"({"model_name": "MODEL-1", "smart_status": {"passed": false}})";

std::string nvme_report(int warnings) {
  return R"({"model_name": "M", "smart_status": {"passed": false, "nvme": {"value": )" + std::to_string(warnings) +
         "}}}";
}

TEST(Smart, AReportIsRead) {
  const SmartReport report = parse_smart(healthy);
  EXPECT_EQ(report.state, SmartReport::State::Answers);
  EXPECT_EQ(report.healthy, true);
  EXPECT_EQ(report.model, "MODEL-1");
  EXPECT_EQ(report.firmware, "F1");
}

TEST(Smart, ADriveThatSleepsIsNotSilent) {
  const auto report = parse_smart(R"({"smartctl": {"messages": [{"string": "Device is in STANDBY mode"}]}})");
  EXPECT_EQ(report.state, SmartReport::State::Sleeps);
}

TEST(Smart, AScsiDriveWithoutSmartAnswers) {
  const auto report = parse_smart(R"({"scsi_product": "DISK-1", "smart_support": {"available": false}})");
  EXPECT_EQ(report.state, SmartReport::State::Answers);
  EXPECT_EQ(report.healthy, std::nullopt);
}

TEST(Smart, RubbishIsASilentDrive) {
  for (const char *text : {"", "{", "[]", "7", R"({"smart_status": 3, "model_name": [], "temperature": "x"})",
                           R"({"smartctl": {"messages": [7]}})", R"({"smartctl": {"messages": {}}})"}) {
    EXPECT_EQ(parse_smart(text).state, SmartReport::State::Silent) << text;
  }
  EXPECT_EQ(parse_smart(std::string(100'000, '[')).state, SmartReport::State::Silent);
}

class Disks : public Tree {
 protected:
  Disks() {
    std::filesystem::create_directories(directory_ / "reports");
    std::ofstream(smartctl()) << "#!/bin/sh\nfor last; do :; done\ncat " << (directory_ / "reports").string()
                              << "/${last##*/}\n";
    std::filesystem::permissions(smartctl(), std::filesystem::perms::owner_all);
  }

  std::filesystem::path smartctl() const { return directory_ / "smartctl"; }

  void add_controller(const std::string &address, const std::string &device_class) {
    write("bus/pci/devices/" + address + "/class", device_class + "\n");
    write("bus/pci/devices/" + address + "/vendor", "0xfff1\n");
    write("bus/pci/devices/" + address + "/device", "0xfff2\n");
    write("bus/pci/devices/" + address + "/revision", "0x03\n");
  }

  void add_disk(const std::string &name, const std::string &device, const std::string &report) {
    write(device + "/size", "2048\n");
    write(device + "/queue/rotational", "0\n");
    link("block/" + name, device);
    std::ofstream(directory_ / "reports" / name) << report;
  }

  void report(const std::string &name, const std::string &report) {
    std::ofstream(directory_ / "reports" / name) << report;
  }

  // As if it had become a fault before a restart.
  void keep(const Trouble &trouble) {
    RegisteredFault fault{};
    fault.description = trouble.description;
    register_.keep_fault(trouble.key, fault);
  }

  // A drive that is failing, and whose fault is kept.
  void fail_before_a_restart(const std::string &name, const std::string &device) {
    add_disk(name, device, failing);
    keep(only_trouble(source_));
  }

  static std::vector<std::string> troubles_of(Source &source) {
    std::vector<std::string> descriptions;
    for (const Trouble &trouble : source.read().troubles) {
      descriptions.push_back(trouble.description);
    }
    return descriptions;
  }

  void pull(const std::string &name) { std::filesystem::remove(sys() / "block" / name); }

  Register register_{""};
  DiskSource source_{roots(), register_, smartctl()};
};

constexpr const char *asleep = R"({"smartctl": {"messages": [{"string": "Device is in STANDBY mode"}]}})";

constexpr const char *sda = "devices/pci0000:00/0000:00:1f.2/ata3/host2/target2:0:0/2:0:0:0/block/sda";
constexpr const char *nvme = "devices/pci0000:00/0000:00:01.0/0000:01:00.0/nvme/nvme0/nvme0n1";

constexpr const char *usb_stick =
    "devices/pci0000:00/0000:00:14.0/usb1/1-1/1-1:1.0/host6/target6:0:0/6:0:0:0/block/sdb";

TEST_F(Disks, ADriveIsTheOperatingSystems) {
  add_controller("0000:00:1f.2", "0x010601");
  add_disk("sda", sda, healthy);
  const Inventory inventory = found_by(source_);
  ASSERT_THAT(inventory.controllers, SizeIs(2));
  const Part &controller = inventory.controllers[0].part;
  EXPECT_EQ(controller.text("location"), "0000:00:1f.2");
  EXPECT_EQ(controller.text("type"), "SATA");
  EXPECT_EQ(controller.text("revision"), "03");
  EXPECT_THAT(inventory.controllers[0].drives, IsEmpty());
  EXPECT_EQ(inventory.controllers[1].part.text("location"), "SYSTEM");
  ASSERT_THAT(inventory.controllers[1].drives, SizeIs(1));
  const Part &drive = inventory.controllers[1].drives[0];
  EXPECT_EQ(drive.text("name"), "sda");
  EXPECT_EQ(drive.text("model"), "MODEL-1");
  EXPECT_EQ(drive.text("revision"), "F1");
  EXPECT_EQ(drive.number("capacity"), 2048 * 512);
  EXPECT_EQ(drive.number("blocks"), 2048);
  EXPECT_EQ(drive.number("slot"), 1);
  EXPECT_EQ(drive.written(*find_field(drive_kind, "media")), "SSD");
  EXPECT_EQ(drive.written(*find_field(drive_kind, "state")), "good");
}

TEST_F(Disks, AControllerInASlotIsKnownByIt) {
  add_controller("0000:01:00.0", "0x010802");
  write("bus/pci/slots/4/address", "0000:01:00\n");
  add_disk("nvme0n1", nvme, healthy);
  EXPECT_EQ(found_by(source_).controllers.at(0).part.text("location"), "SLOT-4");
}

TEST_F(Disks, NoTwoDrivesOfTheMachineShareASlot) {
  add_disk("sda", sda, healthy);
  add_disk("nvme0n1", nvme, healthy);
  const Inventory inventory = found_by(source_);
  ASSERT_THAT(inventory.controllers.at(0).drives, SizeIs(2));
  EXPECT_NE(inventory.controllers[0].drives[0].number("slot"), inventory.controllers[0].drives[1].number("slot"));
}

TEST_F(Disks, DrivesComeInTheOrderOfTheirSlots) {
  add_disk("sda", sda, healthy);
  found_by(source_);
  add_disk("nvme0n1", nvme, healthy);
  const Inventory inventory = found_by(source_);
  ASSERT_THAT(inventory.controllers.at(0).drives, SizeIs(2));
  EXPECT_EQ(inventory.controllers[0].drives[0].text("name"), "sda");
  EXPECT_EQ(inventory.controllers[0].drives[1].text("name"), "nvme0n1");
}

TEST_F(Disks, TheServerHasASlotForEachDrive) {
  add_disk("sda", sda, healthy);
  add_disk("nvme0n1", nvme, healthy);
  EXPECT_EQ(found_by(source_).server.number("drive-slots"), 2);
  pull("sda");
  EXPECT_EQ(found_by(source_).server.number("drive-slots"), 2);
}

TEST_F(Disks, WhatIsNoDriveIsLeftOut) {
  add_disk("loop0", "devices/virtual/block/loop0", healthy);
  add_disk("sr0", "devices/pci0000:00/0000:00:1f.2/ata4/host3/target3:0:0/3:0:0:0/block/sr0", healthy);
  const std::string chip = "devices/platform/1c0f000.mmc/mmc_host/mmc0/mmc0:0001/block/";
  add_disk("mmcblk0boot0", chip + "mmcblk0boot0", healthy);
  add_disk("mmcblk1", chip + "mmcblk1", healthy);
  write(chip + "mmcblk1/device/type", "SD\n");
  EXPECT_THAT(found_by(source_).controllers, IsEmpty());
}

TEST_F(Disks, AHiddenWayToADriveIsNone) {
  const std::string controller = "devices/pci0000:00/0000:00:01.0/0000:01:00.0/nvme/nvme0";
  add_disk("nvme0n1", "devices/virtual/nvme-subsystem/nvme-subsys0/nvme0n1", healthy);
  link("devices/virtual/nvme-subsystem/nvme-subsys0/nvme0", controller);
  add_disk("nvme0c0n1", controller + "/nvme0c0n1", healthy);
  write(controller + "/nvme0c0n1/hidden", "1\n");
  const Inventory inventory = found_by(source_);
  ASSERT_THAT(inventory.controllers, SizeIs(1));
  ASSERT_THAT(inventory.controllers[0].drives, SizeIs(1));
  EXPECT_EQ(inventory.controllers[0].drives[0].text("name"), "nvme0n1");
}

TEST_F(Disks, ADriveThatIsFailingIsATrouble) {
  add_disk("sda", sda, failing);
  const Trouble trouble = only_trouble(source_);
  EXPECT_EQ(trouble.description, "Drive sda (MODEL-1) in slot 1 reports that it is failing");
  EXPECT_EQ(trouble.affected, "sys/rack-unit-1/board/storage-SAS-SYSTEM/pd-1");
  EXPECT_EQ(trouble.affected_oid, "1.3.6.1.4.1.61453.4.207.1.45.4.1.2.1");
}

TEST(Smart, ATemperatureAloneIsNoFailure) {
  EXPECT_EQ(parse_smart(nvme_report(2)).healthy, true);
  EXPECT_EQ(parse_smart(nvme_report(2)).has_bad_temperature, true);
  EXPECT_EQ(parse_smart(nvme_report(4)).healthy, false);
  EXPECT_EQ(parse_smart(nvme_report(4)).has_bad_temperature, false);
  EXPECT_EQ(parse_smart(nvme_report(6)).healthy, false);
  EXPECT_EQ(parse_smart(nvme_report(6)).has_bad_temperature, true);
}

// A report with the temperature that the drive switches itself off at.
std::string scsi_report(int temperature) {
  return R"({"scsi_product": "DISK-1", "model_name": "DISK-1", "temperature": {"drive_trip": 65, "current": )" +
         std::to_string(temperature) + "}}";
}

TEST_F(Disks, ADriveThatSaysItIsTooHotIsATrouble) {
  DiskSource source(roots(), register_, smartctl(), {.age = std::chrono::seconds(0)});
  add_disk("sda", sda, scsi_report(64));
  EXPECT_THAT(source.read().troubles, IsEmpty());
  for (const int temperature : {65, 63}) {
    report("sda", scsi_report(temperature));
    const Finding finding = source.read();
    ASSERT_THAT(finding.troubles, SizeIs(1)) << temperature;
    EXPECT_EQ(finding.troubles[0].description, "Drive sda (DISK-1) in slot 1 is at its critical temperature");
  }
  report("sda", scsi_report(62));
  EXPECT_THAT(source.read().troubles, IsEmpty());
}

TEST_F(Disks, ADriveThatIsMeasuredTooHotIsATrouble) {
  const std::string chip_of_sda = "devices/pci0000:00/0000:00:1f.2/ata3/host2/target2:0:0/2:0:0:0/hwmon/hwmon3/temp1_";
  const std::string chip_of_nvme = "devices/pci0000:00/0000:00:01.0/0000:01:00.0/nvme/nvme0/hwmon4/temp1_";
  DiskSource source(roots(), register_, smartctl(), {.age = std::chrono::seconds(0)});
  add_disk("sda", sda, healthy);
  add_disk("nvme0n1", nvme, healthy);
  for (const std::string &chip : {chip_of_sda, chip_of_nvme}) {
    write(chip + "crit", "84850\n");
    write(chip + "input", "31850\n");
  }
  EXPECT_THAT(source.read().troubles, IsEmpty());
  write(chip_of_sda + "input", "84850\n");
  EXPECT_THAT(troubles_of(source), ElementsAre("Drive sda (MODEL-1) in slot 2 is at its critical temperature"));
  write(chip_of_nvme + "input", "85850\n");
  EXPECT_THAT(troubles_of(source), SizeIs(2));
  write(chip_of_sda + "input", "81850\n");
  write(chip_of_nvme + "input", "81851\n");
  EXPECT_THAT(troubles_of(source), ElementsAre(HasSubstr("nvme0n1")));
  report("sda", asleep);
  write(chip_of_sda + "input", "84850\n");
  EXPECT_THAT(troubles_of(source), ElementsAre(HasSubstr("nvme0n1"))) << "a drive that sleeps is not measured";
}

TEST_F(Disks, ATripTemperatureOf0IsNone) {
  add_disk("sda", sda, R"({"scsi_product": "DISK-1", "temperature": {"drive_trip": 0, "current": 31}})");
  EXPECT_THAT(source_.read().troubles, IsEmpty());
}

TEST_F(Disks, ADriveThatSleepsIsNotHot) {
  DiskSource source(roots(), register_, smartctl(), {.age = std::chrono::seconds(0)});
  add_disk("sda", sda, scsi_report(65));
  EXPECT_THAT(source.read().troubles, SizeIs(1));
  report("sda", asleep);
  const Finding finding = source.read();
  EXPECT_THAT(finding.troubles, IsEmpty());
  EXPECT_THAT(finding.undecided, IsEmpty());
}

TEST_F(Disks, ADriveInTheBayOfAHotOneIsNotHot) {
  add_disk("sda", sda, scsi_report(65));
  write(std::string(sda) + "/diskseq", "1\n");
  EXPECT_THAT(source_.read().troubles, SizeIs(1));
  write(std::string(sda) + "/diskseq", "2\n");
  report("sda", asleep);
  const Finding finding = source_.read();
  EXPECT_THAT(finding.troubles, IsEmpty());
  EXPECT_THAT(finding.undecided, IsEmpty());
}

TEST_F(Disks, DrivesAreMeasuredWithoutSmartctl) {
  const std::string chip_of_sda = "devices/pci0000:00/0000:00:1f.2/ata3/host2/target2:0:0/2:0:0:0/hwmon/hwmon3/temp1_";
  const std::string chip_of_nvme = "devices/pci0000:00/0000:00:01.0/0000:01:00.0/nvme/nvme0/hwmon4/temp1_";
  DiskSource source(roots(), register_, "/nonexistent/smartctl", {.age = std::chrono::seconds(0)});
  add_disk("sda", sda, "");
  add_disk("nvme0n1", nvme, "");
  for (const std::string &chip : {chip_of_sda, chip_of_nvme}) {
    write(chip + "crit", "84850\n");
    write(chip + "input", "84850\n");
  }
  EXPECT_THAT(troubles_of(source), ElementsAre(HasSubstr("nvme0n1"), HasSubstr("sda")));
  write(chip_of_sda + "input", "31850\n");
  write(chip_of_nvme + "input", "31850\n");
  EXPECT_THAT(troubles_of(source), IsEmpty());
}

TEST_F(Disks, AnNvmeDriveIsMeasuredAtEachReading) {
  const std::string chip = "devices/pci0000:00/0000:00:01.0/0000:01:00.0/nvme/nvme0/hwmon4/temp1_";
  add_disk("nvme0n1", nvme, healthy);
  write(chip + "crit", "84850\n");
  write(chip + "input", "31850\n");
  EXPECT_THAT(source_.read().troubles, IsEmpty());
  write(chip + "input", "84850\n");
  EXPECT_THAT(source_.read().troubles, SizeIs(1)) << "nobody has asked for another report";
  write(chip + "input", "31850\n");
  EXPECT_THAT(source_.read().troubles, IsEmpty());
  write(chip + "crit_alarm", "1\n");
  EXPECT_THAT(source_.read().troubles, SizeIs(1)) << "the chip says so itself";
}

TEST_F(Disks, AfterARestartADriveIsHotUntilItAnswers) {
  add_disk("sda", sda, scsi_report(65));
  const Trouble before = only_trouble(source_);
  keep(before);
  DiskSource source(roots(), register_, smartctl(), {.age = std::chrono::seconds(0)});
  for (const char *nothing : {asleep, "", asleep}) {
    report("sda", nothing);
    const Finding finding = source.read();
    EXPECT_THAT(finding.troubles, IsEmpty());
    EXPECT_THAT(finding.undecided, Contains(before.key)) << nothing;
  }
  report("sda", scsi_report(31));
  EXPECT_THAT(source.read().undecided, IsEmpty());
  report("sda", asleep);
  EXPECT_THAT(source.read().undecided, IsEmpty());
}

TEST_F(Disks, AnNvmeDriveReportsItsTemperatureItself) {
  add_disk("nvme0n1", nvme, nvme_report(2));
  EXPECT_EQ(only_trouble(source_).description, "Drive nvme0n1 (M) in slot 1 reports a temperature beyond its limits");
}

TEST_F(Disks, AnNvmeWarningOutlastsARestart) {
  const std::string chip = "devices/pci0000:00/0000:00:01.0/0000:01:00.0/nvme/nvme0/hwmon4/temp1_";
  add_disk("nvme0n1", nvme, nvme_report(2));
  const Trouble before = only_trouble(source_);
  keep(before);
  write(chip + "crit", "84850\n");
  write(chip + "input", "31850\n");
  DiskSource source(roots(), register_, smartctl(), {.age = std::chrono::seconds(0)});
  for (const char *silent : {"", R"({"model_name": "M"})"}) {
    report("nvme0n1", silent);
    EXPECT_THAT(source.read().undecided, Contains(before.key)) << "the chip reads normal: " << silent;
  }
  report("nvme0n1", nvme_report(0));
  EXPECT_THAT(source.read().undecided, IsEmpty());
  report("nvme0n1", "");
  EXPECT_THAT(source.read().undecided, IsEmpty());
}

TEST_F(Disks, ADriveThatWasPulledIsATroubleUntilItReturns) {
  add_disk("sda", sda, healthy);
  EXPECT_THAT(troubles_of(source_), IsEmpty());
  pull("sda");
  DiskSource after_a_restart(roots(), register_, smartctl());
  for (DiskSource *source : {&source_, &after_a_restart}) {
    EXPECT_THAT(troubles_of(*source), ElementsAre("Drive sda (MODEL-1) in slot 1 is missing"));
  }
  link("block/sda", sda);
  EXPECT_THAT(troubles_of(after_a_restart), IsEmpty());
}

TEST_F(Disks, ADriveThatIsForgottenIsMissedNoLonger) {
  add_disk("sda", sda, healthy);
  source_.read();
  pull("sda");
  EXPECT_TRUE(register_.forget_part("drive", 1));
  EXPECT_THAT(source_.read().troubles, IsEmpty());
  EXPECT_EQ(found_by(source_).server.number("drive-slots"), 0);
}

TEST_F(Disks, NobodyMissesAUsbStick) {
  add_disk("sdb", usb_stick, healthy);
  EXPECT_THAT(found_by(source_).controllers, SizeIs(1));
  pull("sdb");
  EXPECT_THAT(source_.read().troubles, IsEmpty());
}

TEST_F(Disks, AUsbPlaceKeepsItsNumberForAWhile) {
  add_disk("sdb", usb_stick, healthy);
  source_.read();
  pull("sdb");
  source_.read();
  EXPECT_THAT(register_.keys("drive"), SizeIs(1));
  register_.free_absent("drive", {}, std::time(nullptr) + Register::kept_for.count());
  EXPECT_THAT(register_.keys("drive"), IsEmpty());
}

TEST_F(Disks, AnotherDriveOfTheSameNameIsAskedAtOnce) {
  add_disk("sda", sda, healthy);
  write(std::string(sda) + "/diskseq", "7\n");
  EXPECT_EQ(found_by(source_).controllers.at(0).drives.at(0).text("model"), "MODEL-1");
  std::ofstream(directory_ / "reports/sda") << R"({"model_name": "MODEL-2"})";
  EXPECT_EQ(found_by(source_).controllers.at(0).drives.at(0).text("model"), "MODEL-1") << "a report lasts a while";
  write(std::string(sda) + "/diskseq", "8\n");
  EXPECT_EQ(found_by(source_).controllers.at(0).drives.at(0).text("model"), "MODEL-2");
}

TEST_F(Disks, ADriveWithSeveralControllersIsOne) {
  const std::string subsystem = "devices/virtual/nvme-subsystem/nvme-subsys0";
  add_disk("nvme0n1", subsystem + "/nvme0n1", healthy);
  EXPECT_THAT(found_by(source_).controllers, IsEmpty());
  link(subsystem + "/nvme0", "devices/pci0000:00/0000:00:01.0/0000:01:00.0/nvme/nvme0");
  EXPECT_THAT(found_by(source_).controllers, SizeIs(1));
}

TEST_F(Disks, ADriveThatDoesNotAnswerIsStillListed) {
  add_disk("sda", sda, "no JSON");
  const Finding finding = source_.read();
  EXPECT_THAT(finding.unreadable, ElementsAre("sda: smartctl printed no JSON"));
  EXPECT_THAT(found_by(source_).controllers.at(0).drives, SizeIs(1));
}

TEST_F(Disks, ADriveThatNeverAnswersIsATrouble) {
  using std::chrono::milliseconds;
  DiskSource source(roots(), register_, smartctl(),
                    {.age = milliseconds(1), .limit = milliseconds(50), .patience = milliseconds(10)});
  add_disk("sda", sda, "");
  std::filesystem::remove(directory_ / "reports/sda");
  ASSERT_EQ(mkfifo((directory_ / "reports/sda").c_str(), 0600), 0);
  Finding finding = source.read();
  EXPECT_THAT(finding.troubles, IsEmpty());
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (finding.troubles.empty() && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(milliseconds(5));
    EXPECT_THAT(finding.undecided, Contains("drive 0000:00:1f.2 port ata3 0:0:0 unanswered"));
    finding = source.read();
  }
  ASSERT_THAT(finding.troubles, SizeIs(1));
  EXPECT_EQ(finding.troubles[0].description, "Drive sda () in slot 1 does not answer");
  EXPECT_EQ(finding.troubles[0].severity, "warning");
  EXPECT_THAT(finding.unreadable, ElementsAre(HasSubstr("sda: ")));
}

TEST_F(Disks, WhoCannotAskADriveDoesNotKnowIfItAnswers) {
  if (is_emulated()) {
    GTEST_SKIP() << hides_failed_starts;
  }
  const std::string key = "drive 0000:00:1f.2 port ata3 0:0:0 unanswered";
  DiskSource source(roots(), register_, smartctl(), {.age = std::chrono::seconds(0)});
  add_disk("sda", sda, healthy);
  std::filesystem::rename(smartctl(), directory_ / "elsewhere");
  for (int reading = 0; reading < 2; ++reading) {
    EXPECT_THAT(source.read().undecided, ElementsAre(key));
  }
  std::filesystem::rename(directory_ / "elsewhere", smartctl());
  EXPECT_THAT(source.read().undecided, IsEmpty());
  std::filesystem::remove(smartctl());
  EXPECT_THAT(source.read().undecided, IsEmpty()) << "it has answered since";
}

TEST_F(Disks, AFailingDriveThatFallsSilentIsFailing) {
  DiskSource source(roots(), register_, smartctl(), {.age = std::chrono::seconds(0)});
  add_disk("sda", sda, failing);
  EXPECT_THAT(source.read().troubles, SizeIs(1));
  for (const char *now : {"no JSON", asleep, R"({"model_name": "MODEL-1"})", "no JSON"}) {
    report("sda", now);
    const Finding finding = source.read();
    ASSERT_THAT(finding.troubles, SizeIs(1)) << now;
    EXPECT_EQ(finding.troubles[0].description, "Drive sda (MODEL-1) in slot 1 reports that it is failing");
  }
  EXPECT_THAT(source.read().unreadable, ElementsAre("sda: smartctl printed no JSON"));
  report("sda", healthy);
  EXPECT_THAT(source.read().troubles, IsEmpty());
}

TEST_F(Disks, ADriveIsNotWhatTheOneBeforeItWas) {
  add_disk("sda", sda, failing);
  EXPECT_THAT(source_.read().troubles, SizeIs(1));
  pull("sda");
  source_.read();
  report("sda", "no JSON");
  link("block/sda", sda);
  EXPECT_THAT(source_.read().troubles, IsEmpty());
}

TEST_F(Disks, ADriveThatSleepsOverARestartIsStillFailing) {
  fail_before_a_restart("sda", sda);
  report("sda", asleep);
  DiskSource later(roots(), register_, smartctl(), {.age = std::chrono::seconds(0)});
  EXPECT_THAT(later.read().troubles, SizeIs(1));
  report("sda", healthy);
  EXPECT_THAT(later.read().troubles, IsEmpty());
  report("sda", asleep);
  EXPECT_THAT(later.read().troubles, IsEmpty());
}

TEST_F(Disks, AnotherDriveAfterARestartIsNotFailing) {
  fail_before_a_restart("sda", sda);
  pull("sda");
  DiskSource later(roots(), register_, smartctl());
  later.read();
  report("sda", asleep);
  link("block/sda", sda);
  EXPECT_THAT(later.read().troubles, IsEmpty());
}

}  // namespace
}  // namespace tavo::service
