#include "service/fault_engine.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <map>
#include <set>

#include "core/class_number.h"
#include "platform/fault_engine.h"
#include "served_scenario.h"
#include "tests/harness/threaded.h"

namespace tavo::service {
namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;

class Faults : public ServedScenario {
 protected:
  auto running(const std::string &words) {
    return [this, words] { control_words(words); };
  }

  // Follows the records until the simulator closes the connection. Returns the code of each index that is then active,
  // and collects all codes.
  static std::map<std::uint32_t, std::uint32_t> apply_all(int connection, std::set<std::uint32_t> &codes) {
    std::map<std::uint32_t, std::uint32_t> active;
    std::array<char, FAULT_RECORD_SIZE> record{};
    while (listen_to_fe_broadcaster(&connection, record.data()) > 0) {
      const auto index = integer_at<std::uint32_t>(record.data(), FAULT_INDEX);
      const auto code = integer_at<std::uint32_t>(record.data(), FAULT_CODE);
      EXPECT_TRUE(codes.insert(code).second) << "record " << code << " came twice";
      if (integer_at<std::uint32_t>(record.data(), FAULT_SEVERITY) == 0) {
        active.erase(index);
      } else {
        active[index] = code;
      }
    }
    return active;
  }
};

TEST_F(Faults, RaiseFillsInWhatFitsTheClass) {
  const time_t before = time(nullptr);
  control_words("fault raise 7 class=processor unit=2");
  const Part fault = machine_->faults().active().back();
  EXPECT_EQ(fault.text("affected"), "sys/rack-unit-1/board/cpu-2");
  EXPECT_EQ(fault.text("affected-oid"), "1.3.6.1.4.1.61453.4.207.1.41.9.1.2.2");
  EXPECT_EQ(fault.number("affected-oid-count"), 15);
  EXPECT_EQ(fault.text("dn"), "sys/rack-unit-1/board/cpu-2/fault-7");
  EXPECT_EQ(fault.number("severity"), 5);
  EXPECT_THAT(fault.number("first-time"), testing::AllOf(testing::Ge(before), testing::Le(time(nullptr))));
}

TEST_F(Faults, RaisingAgainChangesTheSameFault) {
  control_words("fault raise 7 class=fan severity=minor");
  control_words("fault raise 7 class=fan severity=critical");
  EXPECT_EQ(machine_->faults().count(), 5U);
  const Part fault = machine_->faults().active().back();
  EXPECT_EQ(fault.number("occurrences"), 2);
  EXPECT_EQ(fault.number("previous-severity"), 4);
}

TEST_F(Faults, ANewObjectHasALengthOfItsOwn) {
  control_words("fault raise 7 class=processor unit=2");
  control_words("fault update 7 affected-oid=1.3.6.1");
  EXPECT_EQ(machine_->faults().active().back().number("affected-oid-count"), 4);
}

TEST_F(Faults, AClearIsSentWithSeverityZero) {
  control_words("fault raise 7 class=fan severity=major");
  int connection = -1;
  ASSERT_EQ(connect_to_fe_broadcaster(&connection), 0);
  control_words("fault clear 7");
  std::array<char, FAULT_RECORD_SIZE> record{};
  ASSERT_GT(listen_to_fe_broadcaster(&connection, record.data()), 0);
  EXPECT_EQ(integer_at<std::uint32_t>(record.data(), FAULT_SEVERITY), 0U);
  EXPECT_EQ(integer_at<std::uint8_t>(record.data(), FAULT_PREVIOUS_SEVERITY), 5U);
  close(connection);
}

TEST_F(Faults, OccurrencesAreCountedInAnOctet) {
  control_words("fault raise 7 class=fan occurrences=255");
  control_words("fault raise 7 class=fan");
  EXPECT_EQ(machine_->faults().active().back().number("occurrences"), 0);
}

TEST_F(Faults, AFanPointsToItsRowAmongTheFans) {
  control_words("fan fail FAN2_TACH1");
  EXPECT_EQ(machine_->faults().active().back().text("affected"), "sys/rack-unit-1/fan-module-1-2/fan-1");
  EXPECT_EQ(machine_->faults().active().back().text("affected-oid"), "1.3.6.1.4.1.61453.4.207.1.15.12.1.2.3");
}

TEST_F(Faults, OneIndexInTwoClassesIsTwoFaults) {
  control_words("fault raise 7 class=fan");
  control_words("fault raise 7 class=supply");
  EXPECT_EQ(machine_->faults().count(), 6U);
  EXPECT_THAT(running("fault clear 7"), ThrowsMessage<BadInput>(HasSubstr("say which with class=...")));
  control_words("fault clear 7 class=fan");
  EXPECT_EQ(machine_->faults().active().back().number("class"), class_number::power_supply_fan);
}

TEST_F(Faults, FaultKeepsItsIndexAndClass) {
  EXPECT_THAT(running("fault raise 7 class=fan index=8"), ThrowsMessage<BadInput>(HasSubstr("keeps its index")));
  EXPECT_THAT(running("fault update 11 index=17"), ThrowsMessage<BadInput>(HasSubstr("keeps its index")));
  EXPECT_THAT(running("fault update 11 class=fan class=memory"), ThrowsMessage<BadInput>(HasSubstr("keeps its class")));
  EXPECT_EQ(machine_->faults().count(), 4U);
}

TEST_F(Faults, ErrorsQuoteTheWrongWord) {
  EXPECT_THAT(running("fault raise seven class=fan"), ThrowsMessage<BadInput>(HasSubstr("'seven' is not a number")));
  EXPECT_THAT(running("fault raise 7 unit=3"), ThrowsMessage<BadInput>(HasSubstr("needs class=")));
  EXPECT_THAT(running("fault raise 7 class=fam"), ThrowsMessage<BadInput>(HasSubstr("'fam' is not a number")));
  EXPECT_THAT(running("fault raise 7 class=fan major"),
              ThrowsMessage<BadInput>(HasSubstr("'major' is not of the form")));
  EXPECT_THAT(running("fault update 99 unit=1"),
              ThrowsMessage<BadInput>(HasSubstr("no active fault has the index 99")));
  EXPECT_THAT(running("fault clear 99"), ThrowsMessage<BadInput>(HasSubstr("no active fault has the index 99")));
  EXPECT_EQ(machine_->faults().count(), 4U);
}

TEST_F(Faults, SentRecordLeavesTheTableAlone) {
  int connection = -1;
  ASSERT_EQ(connect_to_fe_broadcaster(&connection), 0);
  control_words("fault send 7 class=4000 unit=77 affected-oid-count=4000000000 first-time=-5");
  std::array<char, FAULT_RECORD_SIZE> record{};
  ASSERT_GT(listen_to_fe_broadcaster(&connection, record.data()), 0);
  EXPECT_EQ(integer_at<std::uint32_t>(record.data(), FAULT_CLASS_CODE), 4000U);
  EXPECT_EQ(integer_at<std::uint32_t>(record.data(), FAULT_AFFECTED_OID_COUNT), 4000000000U);
  EXPECT_EQ(integer_at<std::int32_t>(record.data(), FAULT_FIRST_TIME), -5);
  EXPECT_EQ(machine_->faults().count(), 4U);
  close(connection);
}

TEST_F(Faults, StormSendsEachChangeOnce) {
  constexpr std::size_t records = 20'000;
  int connection = -1;
  ASSERT_EQ(connect_to_fe_broadcaster(&connection), 0);
  std::set<std::uint32_t> codes;
  std::map<std::uint32_t, std::uint32_t> seen;
  std::thread listener([&] { seen = apply_all(connection, codes); });
  const StormResult result = machine_->faults().storm(records, 1000, [] { return false; });
  control_words("broadcaster close");
  listener.join();
  close(connection);

  EXPECT_EQ(result.raised + result.updated + result.cleared, records);
  EXPECT_EQ(codes.size(), records);
  EXPECT_EQ(*codes.begin(), 1U);
  EXPECT_EQ(*codes.rbegin(), records);
  std::map<std::uint32_t, std::uint32_t> active;
  for (const Part &fault : machine_->faults().active()) {
    if (fault.number("index") >= 1'000'000) {
      active[static_cast<std::uint32_t>(fault.number("index"))] = static_cast<std::uint32_t>(fault.number("code"));
    }
  }
  EXPECT_EQ(seen, active);
  EXPECT_GT(active.size(), 100U);
  EXPECT_LE(active.size(), 1000U);
}

// Seconds of this thread's processor time.
double storm_cost(std::size_t records, std::size_t indexes) {
  const auto now = [] {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
  };
  FaultEngine engine({});
  const double began = now();
  engine.storm(records, indexes, [] { return false; });
  return now() - began;
}

// Searching all faults for each record took 37 times as long with 30,000 faults; finding them by key takes 3 times.
TEST(FaultStorm, ItIsNotMuchSlowerAmongManyFaults) {
  constexpr std::size_t records = 20'000;
  EXPECT_LT(storm_cost(records, 20'000), 10 * storm_cost(records, 200));
}

// A listener that reads nothing holds up the storm but not the table's readers. When it leaves, the storm goes on.
TEST_F(Faults, SlowListenerHoldsUpTheStormOnly) {
  constexpr std::int64_t records = 100'000;  // more than sockets and queue can hold
  int connection = -1;
  ASSERT_EQ(connect_to_fe_broadcaster(&connection), 0);
  std::thread storm([&] { machine_->faults().storm(records, 1000, [] { return false; }); });
  std::int64_t reached = 0;
  int unchanged = 0;
  EXPECT_TRUE(eventually([&] {
    std::int64_t now = 0;
    for (const Part &fault : machine_->faults().active()) {
      now = std::max(now, fault.number("index") >= 1'000'000 ? fault.number("code") : 0);
    }
    unchanged = now == reached ? unchanged + 1 : 0;
    reached = now;
    return reached > 0 && unchanged == 50;
  }));
  EXPECT_LT(reached, records / 2);
  EXPECT_GT(get_fe_table_count(), 4);
  close(connection);
  storm.join();
}

TEST_F(Faults, HardwareRaisesAndClearsItsFaults) {
  EXPECT_THAT(control_words("processor disable 2"), HasSubstr("fault 3002 raised"));
  EXPECT_THAT(control_words("processor enable 2"), HasSubstr("fault 3002 cleared"));
  EXPECT_THAT(control_words("fan remove FAN2_TACH1"), HasSubstr("fault 29002 raised"));
  const Part fault = machine_->faults().active().back();
  EXPECT_EQ(fault.number("unit"), 2);
  EXPECT_EQ(fault.number("cause"), 238);
  EXPECT_EQ(fault.number("severity"), 3);
  EXPECT_THAT(control_words("fan insert FAN2_TACH1"), HasSubstr("fault 29002 cleared"));
  EXPECT_EQ(machine_->faults().count(), 4U);
}

class AffectedPart : public Faults {
 protected:
  // What the newest fault affects: its name, and the identifier without the part that all objects share.
  std::pair<std::string, std::string> after(const std::string &words) {
    control_words(words);
    const Part fault = machine_->faults().active().back();
    constexpr std::string_view objects = "1.3.6.1.4.1.61453.4.207.1.";
    EXPECT_THAT(fault.text("affected-oid"), testing::StartsWith(std::string(objects)));
    EXPECT_EQ(fault.number("affected-oid-count"), std::ranges::count(fault.text("affected-oid"), '.') + 1);
    return {fault.text("affected").substr(std::string_view("sys/rack-unit-1").size()),
            fault.text("affected-oid").substr(objects.size())};
  }
};

TEST_F(AffectedPart, IsNamedAsInItsRow) {
  EXPECT_THAT(after("dimm fail DIMM_D1"), testing::Pair("/board/memarray-1/mem-10", "30.11.1.2.7"));
  EXPECT_THAT(after("processor disable 2"), testing::Pair("/board/cpu-2", "41.9.1.2.2"));
  EXPECT_THAT(after("supply fail 2"), testing::Pair("/psu-2", "15.56.1.2.2"));
  EXPECT_THAT(after("fan fail FAN2_TACH1"), testing::Pair("/fan-module-1-2/fan-1", "15.12.1.2.3"));
  EXPECT_THAT(after("fan fail FAN_TRAY5_SPEED"), testing::Pair("/fan-module-1-5/fan-1", "15.12.1.2.9"));
  EXPECT_THAT(after("fan fail FANB_MOD6_SPEED"), testing::Pair("/fan-module-1-6/fan-2", "15.12.1.2.11"));
  EXPECT_THAT(after("fan fail FAN7_SPEED"), testing::Pair("/fan-module-1-7/fan-1", "15.12.1.2.12"));
  EXPECT_THAT(after("fan fail Q410_FAN7_TACH2"), testing::Pair("/fan-module-1-7/fan-2", "15.12.1.2.13"));
  EXPECT_THAT(after("fan fail PSU2_FAN_SPEED"), testing::Pair("/psu-2/fan-1", "15.12.1.2.15"));
}

TEST_F(AffectedPart, WithoutARowHasItsPlaceAndWhatItIsIn) {
  EXPECT_THAT(after("dimm remove DIMM_A2"), testing::Pair("/board/memarray-1/mem-2", "9.6.1.2.1"));
  EXPECT_THAT(after("adapter remove 4"), testing::Pair("/adaptor-4", "9.35.1.2.1"));
  EXPECT_THAT(after("processor remove 1"), testing::Pair("/board/cpu-1", "9.6.1.2.1"));
  EXPECT_THAT(after("fan remove FAN2_TACH1"), testing::Pair("/fan-module-1-2/fan-1", "15.12.1.2.3"));
  EXPECT_THAT(after("supply remove 1"), testing::Pair("/psu-1", "15.56.1.2.1"));
}

TEST_F(AffectedPart, RowsMoveUpWhenAPartIsRemoved) {
  control_words("dimm remove DIMM_A1");
  EXPECT_THAT(after("dimm fail DIMM_D1"), testing::Pair("/board/memarray-1/mem-10", "30.11.1.2.6"));
  control_words("supply remove 1");
  EXPECT_THAT(after("fan fail PSU2_FAN_SPEED"), testing::Pair("/psu-2/fan-1", "15.12.1.2.14"));
  control_words("dimm set DIMM_B1 number=0");
  EXPECT_THAT(after("dimm fail DIMM_B1"), testing::Pair("/board/memarray-1/mem-2", "30.11.1.2.2"));
}

TEST_F(AffectedPart, FollowsFromClassAndUnitOfARaisedFault) {
  EXPECT_THAT(after("fault raise 7 class=fan unit=2"), testing::Pair("/fan-module-1-2/fan-1", "15.12.1.2.3"));
  EXPECT_THAT(after("fault raise 7 class=memory unit=10"), testing::Pair("/board/memarray-1/mem-10", "30.11.1.2.7"));
  EXPECT_THAT(after("fault raise 7 class=adapter unit=5"), testing::Pair("/adaptor-5", "3.85.1.2.5"));
  EXPECT_THAT(after("fault raise 9 class=memory unit=99"), testing::Pair("", "9.35.1.2.1"));
  EXPECT_THAT(after("fault raise 8 class=4000 unit=1"), testing::Pair("", "9.35.1.2.1"));
}

TEST_F(AffectedPart, EveryPartHasAFaultOfItsOwn) {
  std::set<std::pair<std::int64_t, std::int64_t>> known;
  const auto add = [&](const std::string &words) {
    control_words(words);
    const Part fault = machine_->faults().active().back();
    EXPECT_TRUE(known.emplace(fault.number("class"), fault.number("index")).second) << words;
  };
  for (const char *fan : {"FAN1_TACH1", "FAN1_TACH2", "FAN2_TACH1", "FAN7_SPEED", "PSU1_FAN_SPEED", "PSU2_FAN_SPEED"}) {
    add(std::string("fan fail ") + fan);
  }
  add("supply fail 1");
  add("supply fail 2");
  control_words("dimm set DIMM_A1 number=0");
  control_words("dimm set DIMM_A2 number=0");
  add("dimm fail DIMM_A1");
  add("dimm fail DIMM_A2");
}

TEST_F(Faults, FanOfASupplyHasTheSuppliesClass) {
  EXPECT_THAT(control_words("fan fail PSU1_FAN_SPEED"), HasSubstr("fault 10113 raised"));
  const Part fault = machine_->faults().active().back();
  EXPECT_EQ(fault.number("class"), class_number::power_supply_fan);
  EXPECT_EQ(fault.number("unit"), 1);
  EXPECT_THAT(running("fan remove PSU1_FAN_SPEED"), ThrowsMessage<BadInput>(HasSubstr("goes with power supply 1")));
  EXPECT_THAT(running("fan fail FAN1_A_PRES"),
              ThrowsMessage<BadInput>(HasSubstr("no fan 'FAN1_A_PRES'; there are FAN1")));
}

TEST_F(Faults, PartThatIsPutBackIsAsBrokenAsBefore) {
  control_words("supply fail 1");
  control_words("supply remove 1");
  EXPECT_THAT(running("supply repair 1"), ThrowsMessage<BadInput>(HasSubstr("supply 1 is removed; insert it first")));
  EXPECT_THAT(control_words("supply insert 1"), HasSubstr("restored as it was, fault 10001 raised"));
  EXPECT_EQ(machine_->faults().active().back().text("description"), "supply 1 has failed");
  EXPECT_THAT(control_words("supply repair 1"), HasSubstr("fault 10001 cleared"));
  control_words("fan remove FAN2_TACH1");
  EXPECT_THAT(running("fan fail FAN2_TACH1"), ThrowsMessage<BadInput>(HasSubstr("FAN2_TACH1 is removed")));
}

TEST_F(Faults, NumberOfAPartMayBeWrittenInAnyForm) {
  control_words("supply remove 01");
  EXPECT_THAT(control_words("show sensors"),
              HasSubstr("name=PSU1_PRES entity=power-supply instance=1 type=presence presence=absent"));
  EXPECT_THAT(control_words("supply insert 0x1"), HasSubstr("supply 1 restored, fault 10001 cleared"));
}

}  // namespace
}  // namespace tavo::service
