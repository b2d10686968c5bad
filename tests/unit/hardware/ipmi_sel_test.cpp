#include <gmock/gmock.h>

#include "core/class_number.h"
#include "ipmi_fixture.h"

namespace tavo::service {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::uint8_t processor_type = 7;
constexpr std::uint8_t memory_type = 12;
constexpr std::uint8_t drive_type = 13;

class IpmiSel : public Ipmi {
 protected:
  // An event that the controller logs: the sensor enters the state or leaves it.
  void log(std::uint8_t type, std::uint8_t sensor, std::uint8_t state, bool entered = true) {
    const auto number = static_cast<std::uint8_t>(controller_.sel.size() + 1);
    controller_.sel.push_back({number, 0, 2, 0, 0, 0, 0, 0x20, 0, 4, type, sensor,
                               static_cast<std::uint8_t>(entered ? specific : specific | 0x80), state, 0xff, 0xff});
    ++controller_.sel_changes;
  }

  // The controller tells of the first of two events, and of the second as the test says.
  void log_two_and_answer_once() {
    source_.read();
    log(memory_type, 1, 1);
    log(memory_type, 1, 5);
    controller_.answers_left = 1;
  }

  int entries_read() { return controller_.asked[{0x0a, 0x43}]; }
};

TEST_F(IpmiSel, AStateThatLastsIsATroubleUntilItIsLeft) {
  controller_.sdr = {compact_record(6, processor_type, specific, 3, 1, "CPU1 Status"),
                     compact_record(7, processor_type, specific, 3, 2, "CPU2 Status")};
  EXPECT_THAT(descriptions(), IsEmpty());
  log(processor_type, 7, 0);
  const Trouble trouble = only_trouble(source_);
  EXPECT_EQ(trouble.severity, "critical");
  EXPECT_EQ(trouble.class_code, 3);
  EXPECT_EQ(trouble.unit, 2);
  EXPECT_EQ(trouble.description, "CPU2 Status: the processor has had an internal error, as the event log says");
  log(processor_type, 7, 0, false);
  EXPECT_THAT(source_.read().troubles, IsEmpty());
}

TEST_F(IpmiSel, EachLastingStateHasASeverity) {
  log(memory_type, 1, 1);
  log(memory_type, 1, 5);
  log(drive_type, 2, 1);
  log(drive_type, 2, 0);   // present
  log(memory_type, 1, 0);  // corrected
  EXPECT_THAT(descriptions(),
              ElementsAre("critical: Sensor 1: memory has had an error that cannot be corrected, as the event log says",
                          "minor: Sensor 1: memory has had many corrected errors, as the event log says",
                          "major: Sensor 2: the drive has failed, as the event log says"));
}

TEST_F(IpmiSel, MemoryAndOddProcessorsAreTheServers) {
  controller_.sdr = {compact_record(1, memory_type, specific, 32, 1, "DIMM ECC"),
                     compact_record(7, processor_type, specific, 3, 2, "CPU Status")};
  log(memory_type, 1, 1);
  log(processor_type, 7, 0);
  const Finding finding = source_.read();
  ASSERT_THAT(finding.troubles, SizeIs(2));
  for (const Trouble &trouble : finding.troubles) {
    EXPECT_EQ(trouble.class_code, class_number::server) << trouble.description;
    EXPECT_EQ(trouble.unit, 1);
  }
}

TEST_F(IpmiSel, AClearedLogEndsItsTroubles) {
  log(memory_type, 1, 1);
  EXPECT_THAT(descriptions(), SizeIs(1));
  controller_.sel.clear();
  ++controller_.sel_clearings;
  EXPECT_THAT(descriptions(), IsEmpty());
  log(drive_type, 1, 1);
  EXPECT_THAT(descriptions(), SizeIs(1));
}

TEST_F(IpmiSel, AnEntryIsReadOnce) {
  for (int i = 0; i < 100; ++i) {
    log(memory_type, 1, 0);
  }
  source_.read();
  EXPECT_EQ(entries_read(), 100);
  source_.read();
  EXPECT_EQ(entries_read(), 100);
  log(memory_type, 1, 1);
  EXPECT_THAT(source_.read().troubles, SizeIs(1));
  EXPECT_EQ(entries_read(), 102) << "the last known one, and the new one";
}

TEST_F(IpmiSel, SilenceLosesNoEntry) {
  log_two_and_answer_once();
  controller_.silent_at = 0x43;
  source_.read();
  controller_.silent_at = 0xff;
  EXPECT_THAT(source_.read().troubles, SizeIs(2));
}

TEST_F(IpmiSel, ABusyControllerHasNotClearedItsLog) {
  log(memory_type, 1, 1);
  EXPECT_THAT(source_.read().troubles, SizeIs(1));
  controller_.sel.erase(controller_.sel.begin());  // the entry is no longer in the log, which was not cleared
  controller_.sel.insert(controller_.sel.begin(), IpmiOctets(16));
  log(memory_type, 1, 5);
  controller_.refused_at = 0x43;
  controller_.refusals_left = 100;
  EXPECT_THAT(source_.read().troubles, SizeIs(1));
  EXPECT_THAT(source_.read().troubles, SizeIs(1));
  controller_.refusals_left = 0;
  EXPECT_EQ(source_.read().troubles.at(0).severity, "minor") << "it was written over";
}

TEST_F(IpmiSel, ARefusalLosesNoEntry) {
  log_two_and_answer_once();
  controller_.refused_at = 0x43;
  controller_.refusals_left = 100;
  EXPECT_THAT(source_.read().troubles, SizeIs(1));
  controller_.refusals_left = 0;
  EXPECT_THAT(source_.read().troubles, SizeIs(2));
  controller_.refusals_left = 1;
  controller_.answers_left = 1;
  log(drive_type, 1, 1);
  EXPECT_THAT(source_.read().troubles, SizeIs(3)) << "it is asked a second time at once";
}

TEST_F(IpmiSel, ALogThatWasWrittenOverIsReadAnew) {
  log(memory_type, 1, 1);
  log(memory_type, 1, 0);
  EXPECT_THAT(source_.read().troubles, SizeIs(1));
  controller_.sel.clear();
  log(drive_type, 1, 1);
  log(drive_type, 1, 2);
  EXPECT_THAT(descriptions(), ElementsAre("major: Sensor 1: the drive has failed, as the event log says",
                                          "minor: Sensor 1: the drive is about to fail, as the event log says"));
}

TEST_F(IpmiSel, AnEventMakesTheSensorsBeReadAtOnce) {
  controller_.sdr = {full_record(fan(9, "SYS_FAN1"))};
  controller_.reads(9, 30);
  EXPECT_THAT(read_alone(source_).troubles, IsEmpty());
  controller_.reads(9, 3);
  EXPECT_THAT(read_alone(source_).troubles, IsEmpty());
  log(fan_type, 9, 2);
  EXPECT_THAT(read_alone(source_).troubles, SizeIs(1));
}

TEST_F(IpmiSel, WhatIsNoEventOfAStateSaysNothing) {
  const IpmiOctets whole{1, 0, 2, 0, 0, 0, 0, 0x20, 0, 4, processor_type, 7, specific, 0, 0xff, 0xff};
  EXPECT_NE(decode_sel(whole), std::nullopt);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_EQ(decode_sel({whole.begin(), whole.begin() + static_cast<int>(size)}), std::nullopt) << size;
  }
  IpmiOctets other = whole;
  other[2] = 0xc0;  // the maker's own
  EXPECT_EQ(decode_sel(other), std::nullopt);
  other = whole;
  other[12] = 1;  // of a threshold
  EXPECT_EQ(decode_sel(other), std::nullopt);
}

}  // namespace
}  // namespace tavo::service
