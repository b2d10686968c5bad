#include "hardware/arrays.h"

#include <gmock/gmock.h>

#include "hardware/drive_place.h"
#include "hardware/fault_keeper.h"
#include "hardware/system_controller.h"
#include "tree.h"

namespace tavo::service {
namespace {

using namespace std::chrono_literals;
using testing::IsEmpty;
using testing::SizeIs;

class Arrays : public Tree {
 protected:
  void add_array(const std::string &name, const std::string &state, const std::string &degraded) {
    write("block/" + name + "/size", "4096\n");
    write("block/" + name + "/md/array_state", state + "\n");
    write("block/" + name + "/md/degraded", degraded + "\n");
  }

  // The kernel's UUID of an array, as it writes it.
  void set_uuid(const std::string &name, const std::string &uuid) { write("block/" + name + "/md/uuid", uuid + "\n"); }

  void remove(const std::string &name) { std::filesystem::remove_all(sys() / "block" / name); }

  // A drive, of which a partition is in the array.
  void add_member(const std::string &array, const std::string &drive, const std::string &state,
                  const std::string &number = "1") {
    const std::string disk = "devices/pci0000:00/0000:00:1f.2/ata3/host2/target2:0:0/2:0:0:0/block/" + drive;
    const std::string partition = disk + "/" + drive + number;
    write(partition + "/partition", "1\n");
    if (!std::filesystem::exists(sys() / "block" / drive)) {
      link("block/" + drive, disk);
    }
    const std::string member = "block/" + array + "/md/dev-" + drive + number;
    write(member + "/state", state + "\n");
    write(member + "/slot", "1\n");
    link(member + "/block", partition);
    register_.keep_part("drive", place_of(std::filesystem::canonical(sys() / disk)), drive + " (MODEL-1)");
  }

  // What is shown of a drive that has this state, once the arrays are entered.
  std::string state_of_drive(const std::string &drive, const std::string &before) {
    Inventory inventory;
    Part &part = system_controller(inventory).drives.emplace_back(drive_kind);
    part.set("name", drive);
    part.set("state", before);
    source_.read().enter(inventory);
    return inventory.controllers[0].drives[0].written(*find_field(drive_kind, "state"));
  }

  std::string named_by_udevd_ = "md0";
  std::string told_by_udevd_;
  Register register_{""};
  ArraySource source_{roots(), register_, [this](const std::string &device, const std::string &property) {
                        return device == named_by_udevd_ && property == "MD_UUID" ? told_by_udevd_ : "";
                      }};
};

constexpr const char *uuid_a = "6f1c9e0a-52d7-4b3e-9a10-5c8d2e7f4b61";
constexpr const char *uuid_b = "0b7d33a1-9d52-4c43-8f10-2c8d2e7f4b77";

TEST_F(Arrays, AnArrayIsAVolume) {
  add_array("md0", "clean", "0");
  const Inventory inventory = found_by(source_);
  ASSERT_THAT(inventory.controllers, SizeIs(1));
  EXPECT_EQ(inventory.controllers[0].part.text("location"), "SYSTEM");
  ASSERT_THAT(inventory.controllers[0].volumes, SizeIs(1));
  const Part &volume = inventory.controllers[0].volumes[0];
  EXPECT_EQ(volume.written(*find_field(volume_kind, "state")), "optimal");
  EXPECT_EQ(volume.number("capacity"), 4096 * 512);
  EXPECT_THAT(source_.read().troubles, IsEmpty());
}

TEST_F(Arrays, ADegradedOrStoppedArrayIsATrouble) {
  add_array("md0", "active", "1");
  add_array("md1", "inactive", "0");
  const Finding finding = source_.read();
  ASSERT_THAT(finding.troubles, SizeIs(2));
  EXPECT_EQ(finding.troubles[0].description, "Array md0 is degraded");
  EXPECT_EQ(finding.troubles[0].severity, "major");
  EXPECT_EQ(finding.troubles[1].description, "Array md1 is offline");
  EXPECT_EQ(finding.troubles[1].severity, "critical");
}

TEST_F(Arrays, WhatHoldsNoDataIsNoArray) {
  add_array("md0", "clear", "0");
  add_array("md127", "inactive", "0");
  write("block/md127/md/metadata_version", "external:imsm\n");
  add_array("md126", "clean", "0");
  write("block/md126/md/metadata_version", "external:/md127/0\n");
  EXPECT_THAT(source_.read().troubles, IsEmpty());
  const Inventory inventory = found_by(source_);
  ASSERT_THAT(inventory.controllers.at(0).volumes, SizeIs(1));
  EXPECT_EQ(inventory.controllers[0].volumes[0].written(*find_field(volume_kind, "state")), "optimal");
  write("block/md126/md/array_state", "inactive\n");
  EXPECT_THAT(source_.read().troubles, SizeIs(1));
}

TEST_F(Arrays, OneThatCannotBeReadHidesNoOther) {
  add_array("md0", "active", "1");
  std::filesystem::create_directories(sys() / "block/md1");
  std::filesystem::create_symlink("md", sys() / "block/md1/md");  // leads to itself
  EXPECT_THAT(source_.read().troubles, SizeIs(1));
}

TEST_F(Arrays, AnArrayKeepsItsNumber) {
  add_array("md0", "clean", "0");
  add_array("md1", "clean", "0");
  source_.read();
  remove("md0");
  const Inventory inventory = found_by(source_);
  ASSERT_THAT(inventory.controllers.at(0).volumes, SizeIs(2));
  EXPECT_EQ(inventory.controllers[0].volumes[0].written(*find_field(volume_kind, "state")), "none");
}

TEST_F(Arrays, AnArrayThatIsGoneIsMissedUntilForgotten) {
  add_array("md0", "clean", "0");
  source_.read();
  remove("md0");
  const Trouble gone = only_trouble(source_);
  EXPECT_EQ(gone.description, "Array 1 (md0) is missing");
  EXPECT_EQ(gone.unit, 0);
  EXPECT_EQ(gone.affected, "sys/rack-unit-1/board/storage-SAS-SYSTEM/vd-0");
  EXPECT_TRUE(register_.forget_part("array", 1));
  EXPECT_THAT(source_.read().troubles, IsEmpty());
  add_array("md7", "clean", "0");
  EXPECT_THAT(found_by(source_).controllers.at(0).volumes, SizeIs(1)) << "its number is free again";
}

TEST_F(Arrays, AnArrayIsKnownByItsUuid) {
  add_array("md126", "clean", "0");
  set_uuid("md126", uuid_a);
  add_array("md127", "clean", "1");
  set_uuid("md127", uuid_b);
  EXPECT_EQ(source_.read().troubles.at(0).unit, 1);
  remove("md126");
  remove("md127");
  add_array("md0", "clean", "1");
  set_uuid("md0", uuid_b);
  add_array("md1", "clean", "0");
  set_uuid("md1", uuid_a);
  const Trouble later = only_trouble(source_);
  EXPECT_EQ(later.description, "Array md0 is degraded");
  EXPECT_EQ(later.unit, 1);
}

TEST_F(Arrays, UdevdTellsTheUuidToo) {
  add_array("md0", "clean", "0");
  told_by_udevd_ = "6f1c9e0a:52d74b3e:9a105c8d:2e7f4b61";
  source_.read();
  remove("md0");
  add_array("md5", "clean", "0");
  set_uuid("md5", uuid_a);
  EXPECT_THAT(source_.read().troubles, IsEmpty()) << "a newer kernel tells it itself";
}

TEST_F(Arrays, AnArrayWithoutUuidYetIsKnownByItsName) {
  add_array("md0", "clean", "0");
  set_uuid("md0", uuid_a);
  source_.read();
  std::filesystem::remove(sys() / "block/md0/md/uuid");
  EXPECT_THAT(source_.read().troubles, IsEmpty());
  EXPECT_THAT(register_.keys("array"), SizeIs(1));
}

TEST_F(Arrays, AnArrayWhoseUuidComesLateIsNotMissed) {
  add_array("md0", "clean", "0");
  set_uuid("md0", uuid_a);
  source_.read();
  remove("md0");
  add_array("md127", "clean", "0");
  source_.read();
  named_by_udevd_ = "md127";
  told_by_udevd_ = uuid_a;
  EXPECT_THAT(source_.read().troubles, IsEmpty());
  EXPECT_THAT(register_.keys("array"), SizeIs(1)) << "the number of its name is free again";
  EXPECT_THAT(found_by(source_).controllers.at(0).volumes, SizeIs(1)) << "it has its own number";
}

TEST_F(Arrays, AUuidThatIsNoneIsNoName) {
  for (const char *name : {"md0", "md1"}) {
    add_array(name, "clean", "0");
    set_uuid(name, "00000000-0000-0000-0000-000000000000");
  }
  EXPECT_THAT(found_by(source_).controllers.at(0).volumes, SizeIs(2));
}

TEST_F(Arrays, ANumberByNameIsCarriedOver) {
  register_.number_of("array", "md8");
  register_.number_of("array", "md9");
  add_array("md9", "clean", "1");
  set_uuid("md9", uuid_a);
  EXPECT_EQ(source_.read().troubles.at(0).unit, 1);
}

TEST_F(Arrays, ADriveThatHasFailedInItIsATrouble) {
  add_array("md0", "clean", "1");
  add_member("md0", "sda", "in_sync");
  EXPECT_THAT(source_.read().troubles, SizeIs(1)) << "the array's alone";
  EXPECT_EQ(state_of_drive("sda", "good"), "good");
  write("block/md0/md/dev-sda1/state", "faulty,write_error\n");
  const Finding finding = source_.read();
  ASSERT_THAT(finding.troubles, SizeIs(2));
  EXPECT_EQ(finding.troubles[1].description, "Drive sda (MODEL-1) in slot 1 has failed in array md0");
  EXPECT_EQ(finding.troubles[1].affected, "sys/rack-unit-1/board/storage-SAS-SYSTEM/pd-1");
  EXPECT_EQ(state_of_drive("sda", "good"), "failed");
}

TEST_F(Arrays, ADriveThatHasFailedInTwoArraysIsOneFault) {
  add_array("md0", "clean", "1");
  add_array("md1", "clean", "1");
  add_member("md0", "sda", "faulty", "1");
  add_member("md1", "sda", "faulty", "2");
  Machine machine(Inventory(), Surroundings{.var = directory_ / "var", .sd_socket = directory_ / "sd"});
  FaultKeeper keeper(register_);
  const auto start = FaultKeeper::Clock::now();
  for (const auto at : {0s, 3s, 4s, 5s}) {
    keeper.settle({.troubles = source_.read().troubles, .undecided = {}}, start + at, machine);
  }
  const std::vector<Part> faults = machine.faults().active();
  ASSERT_THAT(faults, SizeIs(3)) << "of each array, and of the drive";
  for (const Part &fault : faults) {
    EXPECT_EQ(fault.number("occurrences"), 1) << fault.text("description");
  }
  EXPECT_EQ(source_.read().troubles.at(2).description, "Drive sda (MODEL-1) in slot 1 has failed in arrays md0, md1");
}

TEST_F(Arrays, ADriveThatIsBuiltAnewIsShownSo) {
  add_array("md0", "clean", "1");
  add_member("md0", "sda", "spare");
  EXPECT_EQ(state_of_drive("sda", "good"), "good");
  write("block/md0/md/sync_action", "recover\n");
  EXPECT_EQ(state_of_drive("sda", "good"), "rebuilding");
  EXPECT_EQ(state_of_drive("sda", "failed"), "failed") << "what it says of itself counts more";
  write("block/md0/md/dev-sda1/slot", "none\n");
  EXPECT_EQ(state_of_drive("sda", "good"), "good") << "a spare that nothing is written to";
}

TEST_F(Arrays, WithoutArraysThereIsNoController) {
  EXPECT_THAT(found_by(source_).controllers, IsEmpty());
}

}  // namespace
}  // namespace tavo::service
