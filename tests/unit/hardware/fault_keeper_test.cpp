#include "hardware/fault_keeper.h"

#include <gmock/gmock.h>

#include "core/class_number.h"
#include "served_tree.h"

namespace tavo::service {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::SizeIs;

class FaultKeeperTest : public ServedTree {
 protected:
  void settle(const std::vector<Trouble> &troubles, std::chrono::seconds at) {
    keeper_.settle({.troubles = troubles, .undecided = {}}, start_ + at, machine_);
  }

  const FaultKeeper::Clock::time_point start_ = FaultKeeper::Clock::now();
  FaultKeeper keeper_{register_};
  Machine machine_{machine(Inventory())};
};

TEST_F(FaultKeeperTest, ATroubleThatLastsIsAFaultUntilItIsOver) {
  settle({trouble}, 0s);
  EXPECT_EQ(machine_.faults().count(), 0U);
  settle({trouble}, 3s);
  ASSERT_THAT(machine_.faults().active(), SizeIs(1));
  EXPECT_EQ(machine_.faults().active()[0].text("description"), "Fan 1 has failed");
  settle({}, 10s);
  settle({}, 29s);
  EXPECT_EQ(machine_.faults().count(), 1U);
  settle({}, 30s);
  EXPECT_EQ(machine_.faults().count(), 0U);
}

TEST_F(FaultKeeperTest, WhatComesAndGoesIsOneFault) {
  settle({trouble}, 0s);
  settle({}, 1s);
  settle({trouble}, 2s);
  settle({trouble}, 4s);
  EXPECT_EQ(machine_.faults().count(), 0U);
  settle({trouble}, 5s);
  settle({}, 6s);
  settle({trouble}, 20s);
  settle({}, 21s);
  settle({trouble}, 40s);
  EXPECT_EQ(machine_.faults().count(), 1U);
  EXPECT_EQ(machine_.faults().active()[0].number("occurrences"), 1);
}

TEST_F(FaultKeeperTest, AWorseTroubleUpdatesItsFault) {
  settle({trouble}, 0s);
  settle({trouble}, 3s);
  Trouble worse = trouble;
  worse.severity = "critical";
  settle({worse}, 4s);
  ASSERT_THAT(machine_.faults().active(), SizeIs(1));
  EXPECT_EQ(machine_.faults().active()[0].written(*find_field(fault_kind, "severity")), "critical");
}

TEST_F(FaultKeeperTest, OfTwoTroublesOfOneKeyTheFirstCounts) {
  Trouble second = trouble;
  second.description = "Fan 1 has failed again";
  for (const auto at : {0s, 3s, 4s, 5s}) {
    settle({trouble, second}, at);
  }
  ASSERT_THAT(machine_.faults().active(), SizeIs(1));
  EXPECT_EQ(machine_.faults().active()[0].text("description"), "Fan 1 has failed");
  EXPECT_EQ(machine_.faults().active()[0].number("occurrences"), 1);
}

TEST_F(FaultKeeperTest, ATroubleOfAnotherPartIsAnotherFault) {
  settle({trouble}, 0s);
  settle({trouble}, 3s);
  Trouble other = trouble;
  other.class_code = class_number::server;
  other.unit = 1;
  settle({other}, 4s);
  ASSERT_THAT(machine_.faults().active(), SizeIs(1));
  EXPECT_EQ(machine_.faults().active()[0].number("class"), class_number::server);
  EXPECT_EQ(machine_.faults().active()[0].number("occurrences"), 1);
  settle({}, 5s);
  settle({}, 25s);
  EXPECT_EQ(machine_.faults().count(), 0U);
}

TEST_F(FaultKeeperTest, ADescriptionIsOneLineOfAscii) {
  Trouble odd = trouble;
  odd.description = "DIMM\nA1 \xfc";
  settle({odd}, 0s);
  settle({odd}, 3s);
  ASSERT_THAT(machine_.faults().active(), SizeIs(1));
  EXPECT_EQ(machine_.faults().active()[0].text("description"), "DIMM?A1 ?");
}

TEST_F(FaultKeeperTest, AFaultOutlivesTheService) {
  settle({trouble}, 0s);
  settle({trouble}, 3s);
  Register again(directory_ / "register.json");
  FaultKeeper later(again);
  const std::vector<Part> active = later.active();
  ASSERT_THAT(active, SizeIs(1));
  EXPECT_EQ(active[0].number("index"), machine_.faults().active()[0].number("index"));
  EXPECT_EQ(active[0].number("first-time"), machine_.faults().active()[0].number("first-time"));
}

TEST_F(FaultKeeperTest, ARegisteredFaultThatCannotBeIsDropped) {
  register_.keep_fault("1", kept_fault);
  register_.keep_fault("2", kept_fault);
  RegisteredFault edited = kept_fault;
  edited.index = 2;
  edited.severity = "nasty";
  register_.keep_fault("3", edited);
  testing::internal::CaptureStderr();
  const FaultKeeper keeper(register_);
  const std::string lines = testing::internal::GetCapturedStderr();
  EXPECT_THAT(lines, HasSubstr("the fault '2' in the register is dropped: another one has its index"));
  EXPECT_THAT(lines, HasSubstr("the fault '3' in the register is dropped: "));
  EXPECT_THAT(keeper.active(), SizeIs(1));
  EXPECT_THAT(register_.faults(), SizeIs(1));
}

TEST_F(FaultKeeperTest, AFaultStaysWhileItsSourceCannotTell) {
  Trouble drive = trouble;
  drive.key = "drive a failing";
  drive.source = "disks";
  settle({drive}, 0s);
  settle({drive}, 3s);
  Register again(directory_ / "register.json");
  FaultKeeper later(again);
  const auto settle_later = [&](std::vector<std::string> undecided, std::chrono::seconds at) {
    later.settle({.troubles = {}, .undecided = {{"disks", std::move(undecided)}, {"IPMI", {""}}}}, start_ + at,
                 machine_);
  };
  settle_later({""}, 10s);
  settle_later({"drive a "}, 100s);
  settle_later({"drive b ", "drive a "}, 200s);
  EXPECT_EQ(machine_.faults().count(), 1U);
  settle_later({"drive b "}, 210s);
  settle_later({"drive b "}, 230s);
  EXPECT_EQ(machine_.faults().count(), 0U);
}

}  // namespace
}  // namespace tavo::service
