#include <gmock/gmock.h>
#include <unistd.h>

#include "ipmi_fixture.h"

namespace tavo::service {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

TEST_F(Ipmi, AMachineWithoutAControllerSaysSo) {
  controller_.is_there = false;
  EXPECT_THROW(source_.read(), IpmiSilence);
  IpmiSource real(roots(), register_);
  try {
    real.read();
    FAIL();
  } catch (const std::exception &error) {
    EXPECT_EQ(error.what(), (roots().dev / "ipmi0").string() + ": No such file or directory");
  }
}

TEST_F(Ipmi, AControllerThatMayNotBeAskedIsNoTrouble) {
  controller_.is_forbidden = true;
  EXPECT_THROW(source_.read(), IpmiNoPermission);
}

TEST_F(Ipmi, AMissingPermissionIsTold) {
  constexpr uid_t nobody = 65534;
  std::filesystem::create_directories(roots().dev);
  // A user namespace of one user knows no other.
  if (chown(roots().dev.c_str(), nobody, static_cast<gid_t>(-1)) != 0) {
    GTEST_SKIP() << "only root can take a permission from itself, where there are other users";
  }
  std::ofstream(roots().dev / "ipmi0").close();
  EXPECT_EXIT(
      {
        OpenIpmiDevice device(roots().dev / "ipmi0");
        const bool is_nobody = setresuid(nobody, nobody, nobody) == 0;
        try {
          device.ask({.net_fn = 6, .command = 1});
        } catch (const IpmiNoPermission &) {
          _Exit(is_nobody ? 0 : 1);
        }
        _Exit(1);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(Ipmi, TheServersFruFillsWhatSmbiosLacks) {
  controller_.sdr = {full_record(temperature(1, "Temp"))};
  controller_.frus[0] =
      made_up_fru({"Board maker", "Board", "B-1", "", ""}, {"Maker", "Server", "P-1", "", "S-1", "", ""});
  Inventory inventory;
  inventory.server.set("serial", "");
  inventory.server.set("product-name", "From SMBIOS");
  inventory.server.set("board-readable", "no");
  read().enter(inventory);
  EXPECT_EQ(inventory.server.text("serial"), "S-1");
  EXPECT_EQ(inventory.server.text("product-name"), "From SMBIOS");
  EXPECT_TRUE(inventory.server.flag("board-readable"));
  EXPECT_EQ(inventory.server.text("board-serial"), "B-1");
}

TEST_F(Ipmi, AControllerThatFallsSilentIsATrouble) {
  controller_.sdr = {full_record(fan(9, "SYS_FAN1"))};
  controller_.reads(9, 3);
  EXPECT_THAT(descriptions(), SizeIs(1));
  controller_.is_silent = true;
  const Finding finding = read();
  EXPECT_THAT(finding.unreadable, ElementsAre("/dev/ipmi0: the driver timed out"));
  EXPECT_THAT(finding.troubles, SizeIs(2)) << "what was known stays";
}

TEST_F(Ipmi, SilenceFromTheStartDecidesNothing) {
  controller_.sdr = {full_record(fan(9, "SYS_FAN1"))};
  controller_.is_silent = true;
  EXPECT_THAT(read().undecided, ElementsAre(""));
  controller_.is_silent = false;
  controller_.reads(9, 30);
  EXPECT_THAT(read().undecided, IsEmpty());
}

TEST_F(Ipmi, RecordsThatAreRefusedDecideNothing) {
  controller_.sdr = {full_record(fan(9, "SYS_FAN1"))};
  controller_.reads(9, 30);
  controller_.refused_at = 0x20;
  controller_.refusals_left = 100;
  EXPECT_THAT(read_alone(source_).undecided, ElementsAre("ipmi sensor ", "ipmi supply "));
  controller_.refusals_left = 0;
  EXPECT_THAT(read().undecided, IsEmpty());
}

TEST_F(Ipmi, AControllerWithoutRecordsIsDecidedInTheEnd) {
  EXPECT_THAT(read_alone(source_).undecided, ElementsAre("ipmi sensor ", "ipmi supply "));
  read();
  read();
  EXPECT_THAT(read().undecided, IsEmpty());
}

TEST_F(Ipmi, ASensorThatIsRefusedDecidesNothingOfItsPart) {
  controller_.sdr = {full_record(fan(9, "SYS_FAN1")), full_record(fan(10, "SYS_FAN2")),
                     compact_record(30, 8, specific, 10, 2, "PS2 Status")};
  controller_.reads(10, 30);
  EXPECT_THAT(read_alone(source_).undecided, ElementsAre("ipmi sensor 9.0 ", "ipmi supply of ipmi sensor 9.0 ",
                                                         "ipmi sensor 30.0 ", "ipmi supply 10.2 "));
  controller_.reads(9, 30);
  controller_.is_in(30, 1);
  EXPECT_THAT(read().undecided, IsEmpty());
  controller_.readings.clear();
  EXPECT_THAT(read().undecided, IsEmpty()) << "what was read last counts";
}

TEST_F(Ipmi, ASensorThatNeverAnswersIsDecidedInTheEnd) {
  controller_.sdr = {full_record(fan(9, "SYS_FAN1"))};
  EXPECT_THAT(read_alone(source_).undecided, SizeIs(2));
  read();
  EXPECT_THAT(read().undecided, IsEmpty());
}

TEST_F(Ipmi, AControllerThatIsStuckIsATrouble) {
  controller_.sdr = {full_record(fan(9, "SYS_FAN1"))};
  controller_.reads(9, 3);
  EXPECT_THAT(descriptions(), SizeIs(1));
  controller_.is_stuck = true;
  read();
  read();
  const Finding finding = read();
  EXPECT_THAT(finding.unreadable, ElementsAre("the controller does not answer"));
  EXPECT_THAT(finding.troubles, SizeIs(2)) << "what was known stays";
}

TEST_F(Ipmi, BetweenSensorsItIsAskedForItsLogAlone) {
  controller_.sdr = {full_record(fan(9, "SYS_FAN1"))};
  source_.read();
  controller_.asked.clear();
  source_.read();
  EXPECT_THAT(controller_.asked, ElementsAre(Pair(Pair(0x0a, 0x40), 1)));
}

TEST_F(Ipmi, AControllerWithoutALogIsNotSilent) {
  controller_.refused_at = 0x40;
  controller_.refusals_left = 100;
  const Finding finding = read();
  EXPECT_THAT(finding.troubles, IsEmpty());
  EXPECT_THAT(finding.unreadable, Contains("the controller has no event log"));
}

TEST_F(Ipmi, RecordsAreReadAgainWhenTheyChange) {
  controller_.sdr = {full_record(fan(9, "SYS_FAN1"))};
  EXPECT_THAT(found().sensors, SizeIs(2));
  controller_.sdr.push_back(full_record(fan(10, "SYS_FAN2")));
  ++controller_.sdr_changes;
  EXPECT_THAT(found().sensors, SizeIs(4));
  const int before = controller_.asked[{0x0a, 0x23}];
  read();
  EXPECT_EQ((controller_.asked[{0x0a, 0x23}]), before);
}

}  // namespace
}  // namespace tavo::service
