#include "hardware/drive_place.h"

#include <gmock/gmock.h>

#include "tree.h"

namespace tavo::service {
namespace {

using DrivePlace = Tree;

TEST_F(DrivePlace, APortIsCountedAtItsController) {
  write("devices/pci0000:00/0000:00:1f.2/ata7/ata_port/ata7/port_no", "3\n");
  EXPECT_EQ(place_of(sys() / "devices/pci0000:00/0000:00:1f.2/ata7/host6/target6:0:0/6:0:0:0/block/sda"),
            "0000:00:1f.2 port 3 0:0:0");
}

TEST_F(DrivePlace, NumbersOfThisBootAreLeftOut) {
  struct Case {
    const char *now;
    const char *later;
    const char *place;
  };
  constexpr auto cases = std::to_array<Case>({
      {"pci0000:00/0000:01:00.0/nvme/nvme0/nvme0n1", "pci0000:00/0000:01:00.0/nvme/nvme3/nvme3n1", "0000:01:00.0 n1"},
      {"pci0000:00/0000:00:03.0/virtio0/host2/target2:0:1/2:0:1:0/block/sda",
       "pci0000:00/0000:00:03.0/virtio1/host4/target4:0:1/4:0:1:0/block/sdc", "0000:00:03.0 0:1:0"},
      {"pci0000:00/0000:00:05.0/virtio2/block/vda", "pci0000:00/0000:00:05.0/virtio0/block/vdb", "0000:00:05.0"},
      {"pci0000:00/10000:e1:00.0/nvme/nvme0/nvme0n1", "pci0000:00/10000:e1:00.0/nvme/nvme1/nvme1n1",
       "10000:e1:00.0 n1"},
      {"pci0000:00/0000:02:00.0/host0/port-0:4/end_device-0:4/target0:0:4/0:0:4:0/block/sda",
       "pci0000:00/0000:02:00.0/host1/port-1:4/end_device-1:4/target1:0:4/1:0:4:0/block/sdb",
       "0000:02:00.0 port-4 end_device-4 0:4:0"},
      {"platform/1c0f000.mmc/mmc_host/mmc0/mmc0:0001/block/mmcblk0",
       "platform/1c0f000.mmc/mmc_host/mmc1/mmc1:aaaa/block/mmcblk1", "platform 1c0f000.mmc"},
      {"vbd-51712/block/xvda", "vbd-51712/block/xvdb", "vbd-51712"},
  });
  for (const Case &drive : cases) {
    EXPECT_EQ(place_of(sys() / "devices" / drive.now), drive.place);
    EXPECT_EQ(place_of(sys() / "devices" / drive.later), drive.place);
  }
}

TEST_F(DrivePlace, AnIscsiDriveIsAtItsTarget) {
  const auto log_in = [&](const std::string &number, const std::string &target, const std::string &address) {
    const std::string session = "devices/platform/host3/session" + number;
    write(session + "/iscsi_session/session" + number + "/targetname", target + "\n");
    write(session + "/iscsi_session/session" + number + "/ifacename", "default\n");
    const std::string connection = "connection" + number + ":0";
    write(session + "/" + connection + "/iscsi_connection/" + connection + "/persistent_address", address + "\n");
    return place_of(sys() / session / "target3:0:0/3:0:0:1/block/sdb");
  };
  const std::string place = log_in("1", "iqn.2001-04.com.example:one", "192.0.2.1");
  EXPECT_EQ(place, "platform iqn.2001-04.com.example:one 192.0.2.1 default 0:0:1");
  EXPECT_EQ(log_in("2", "iqn.2001-04.com.example:one", "192.0.2.1"), place);
  EXPECT_NE(log_in("3", "iqn.2001-04.com.example:one", "192.0.2.2"), place);
  EXPECT_NE(log_in("4", "iqn.2001-04.com.example:two", "192.0.2.1"), place);
}

TEST_F(DrivePlace, NoTwoDrivesShareAPlace) {
  const auto at = [&](const char *device) { return place_of(sys() / "devices/pci0000:00" / device); };
  EXPECT_NE(at("0000:01:00.0/nvme/nvme0/nvme0n1"), at("0000:01:00.0/nvme/nvme0/nvme0n2"));
  EXPECT_NE(at("0000:00:14.0/usb1/1-1/1-1:1.0/host6/target6:0:0/6:0:0:0/block/sda"),
            at("0000:00:14.0/usb1/1-2/1-2:1.0/host7/target7:0:0/7:0:0:0/block/sdb"));
}

TEST_F(DrivePlace, ADriveWithSeveralControllersIsAtTheFirst) {
  const std::string subsystem = "devices/virtual/nvme-subsystem/nvme-subsys0";
  write(subsystem + "/nvme0n1/size", "8\n");
  link("block/nvme0n1", subsystem + "/nvme0n1");
  link(subsystem + "/nvme1", "devices/pci0000:00/0000:02:00.0/nvme/nvme1");
  link(subsystem + "/nvme0", "devices/pci0000:00/0000:01:00.0/nvme/nvme0");
  EXPECT_EQ(place_of(device_of(sys() / "block/nvme0n1")), "0000:01:00.0 n1");
}

TEST_F(DrivePlace, WhatIsGoneIsNowhere) {
  EXPECT_EQ(device_of(sys() / "block/sda"), "");
}

}  // namespace
}  // namespace tavo::service
