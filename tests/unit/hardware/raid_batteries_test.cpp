#include "hardware/raid_batteries.h"

#include <gmock/gmock.h>

#include "program.h"
#include "tests/harness/emulated.h"

namespace tavo::service {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::ThrowsMessage;

// What the tool prints of a controller, and of its battery as the text says.
std::string controller(const std::string &address, const std::string &battery) {
  return R"({"Command Status": {"Controller": 0, "Status": "Success", "Description": "None"},
             "Response Data": {"Basics": {"Controller": 0, "Model": "RAID-1", "Serial Number": "S1",
                                          "PCI Address": ")" +
         address + "\"}" + battery + "}}";
}
std::string capacitor(const std::string &state) {
  return R"(, "Cachevault_Info": [{"Model": "CVPM02", "State": ")" + state +
         R"(", "Temp": "29C", "Mode": "-", "MfgDate": "2016/11/07"}])";
}
const std::string bbu = R"(, "BBU_Info": [{"Model": "iBBU09", "State": "Optimal", "Temp": "31C"}])";
const std::string refusal = R"({"Command Status": {"Controller": 1, "Status": "Failure", "Description": "Busy"}})";

std::string printed(const std::string &controllers) {
  return R"({"Controllers": [)" + controllers + "]}";
}

TEST(RaidReportTest, ABatteryIsItsControllers) {
  const auto report =
      parse_raid_report(printed(controller("00:AF:00:01", bbu) + "," + controller("00:03:00:00", capacitor("Failed"))));
  ASSERT_TRUE(report);
  ASSERT_THAT(report->batteries, SizeIs(2));
  EXPECT_EQ(report->batteries[0].controller, "0000:03:00.0");
  EXPECT_EQ(report->batteries[0].model, "CVPM02");
  EXPECT_FALSE(report->batteries[0].is_good());
  EXPECT_EQ(report->batteries[1].controller, "0000:af:00.1");
  EXPECT_TRUE(report->batteries[1].is_good());
  EXPECT_THAT(report->failures, IsEmpty());
}

TEST(RaidReportTest, AControllerNeedHaveNoBattery) {
  for (const char *none : {"", R"(, "BBU_Info": [], "Cachevault_Info": [])", R"(, "BBU_Info": "none")"}) {
    const auto report = parse_raid_report(printed(controller("00:03:00:00", none)));
    ASSERT_TRUE(report);
    EXPECT_THAT(report->batteries, IsEmpty());
    EXPECT_THAT(report->failures, IsEmpty());
  }
}

TEST(RaidReportTest, WhatCannotBeToldIsNamed) {
  const auto report = parse_raid_report(printed(refusal + "," + controller("00:03:00:08", bbu)));
  ASSERT_TRUE(report);
  EXPECT_THAT(report->failures, ElementsAre("a controller: Busy", "a controller: no PCI address"));
}

TEST(RaidReportTest, RubbishIsNoReport) {
  for (const char *text : {"", "{", "[]", "7", R"({"Controllers": 3})", "storcli: error"}) {
    EXPECT_FALSE(parse_raid_report(text)) << text;
  }
  EXPECT_FALSE(parse_raid_report(std::string(100'000, '[')));
  const auto report = parse_raid_report(R"({"Controllers": [7, [], {"Response Data": []}]})");
  ASSERT_TRUE(report);
  EXPECT_THAT(report->failures, SizeIs(3));
}

class RaidBatteriesTest : public ProgramTest {
 protected:
  RaidBatteriesTest() {
    write("bus/pci/drivers/megaraid_sas/0000:03:00.0/class", "0x010400\n");
    write("bus/pci/slots/4/address", "0000:03:00\n");
    tool("cat $here/printed");
  }

  void tool(const std::string &commands) { program("storcli", "echo \"$*\" > $here/words\n" + commands); }
  void print(const std::string &text) { std::ofstream(directory_ / "printed") << text; }

  // The controller's part once the battery is entered.
  Part controller_part() {
    Inventory inventory;
    Part &part = inventory.controllers.emplace_back().part;
    part.set_number("id", register_.number_of("controller", "0000:03:00.0"));
    source_.read().enter(inventory);
    return inventory.controllers[0].part;
  }

  Register register_{""};
  RaidBatterySource source_{roots(), register_, {directory_ / "storcli"}, 2s};
};

TEST_F(RaidBatteriesTest, AGoodBatteryHasARow) {
  print(printed(controller("00:03:00:00", bbu)));
  const Part part = controller_part();
  EXPECT_TRUE(part.flag("battery-present"));
  EXPECT_EQ(part.number("battery-type"), 7);
  EXPECT_EQ(part.written(*find_field(controller_kind, "battery-state")), "operable");
  EXPECT_THAT(source_.read().troubles, IsEmpty());
  std::string words;
  std::getline(std::ifstream(directory_ / "words"), words);
  EXPECT_EQ(words, "/call show all J nolog");
}

TEST_F(RaidBatteriesTest, ABatteryThatIsNotGoodIsATrouble) {
  print(printed(controller("00:03:00:00", capacitor("Degraded"))));
  const Part part = controller_part();
  EXPECT_EQ(part.number("battery-type"), 0) << "the table has no name for it";
  EXPECT_EQ(part.written(*find_field(controller_kind, "battery-state")), "failed");
  const Trouble trouble = only_trouble(source_);
  EXPECT_EQ(trouble.description, "Battery 1 (CVPM02) of RAID controller SLOT-4 is not good: Degraded");
  EXPECT_EQ(trouble.affected, "sys/rack-unit-1/board/storage-SAS-SLOT-4/raid-battery");
  EXPECT_EQ(trouble.affected_oid, "1.3.6.1.4.1.61453.4.207.1.45.11.1.2.1");
}

TEST_F(RaidBatteriesTest, ABatteryThatIsGoneIsMissedUntilForgotten) {
  print(printed(controller("00:03:00:00", bbu)));
  source_.read();
  print(printed(refusal));
  const Finding silent = source_.read();
  EXPECT_THAT(silent.troubles, IsEmpty()) << "nobody knows";
  EXPECT_THAT(silent.undecided, ElementsAre("raid-battery 0000:03:00.0 "));
  print(printed(controller("00:03:00:00", "")));
  EXPECT_EQ(only_trouble(source_).description, "Battery 1 (iBBU09) of RAID controller SLOT-4 is missing");
  EXPECT_FALSE(controller_part().flag("battery-present"));
  EXPECT_TRUE(register_.forget_part("raid-battery", 1));
  EXPECT_THAT(source_.read().troubles, IsEmpty());
}

TEST_F(RaidBatteriesTest, AControllerThatFailsHidesNoOther) {
  print(printed(controller("00:03:00:00", bbu) + "," + controller("00:04:00:00", capacitor("Optimal"))));
  source_.read();
  print(printed(refusal + "," + controller("00:04:00:00", capacitor("Optimal"))));
  const Finding finding = source_.read();
  EXPECT_THAT(finding.undecided, ElementsAre("raid-battery 0000:03:00.0 "));
  EXPECT_THAT(finding.unreadable, SizeIs(1));
}

TEST_F(RaidBatteriesTest, WithoutControllersNothingIsRun) {
  std::filesystem::remove_all(sys() / "bus/pci/drivers/megaraid_sas");
  EXPECT_THAT(source_.read().unreadable, IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(directory_ / "words"));
}

TEST_F(RaidBatteriesTest, AToolThatFailsSaysNothingNew) {
  const auto reading = [this] { source_.read(); };
  tool("echo rubbish");
  EXPECT_THAT(reading, ThrowsMessage<std::runtime_error>(HasSubstr("storcli printed no report")));
  tool("exec sleep 60");
  EXPECT_THAT(reading, ThrowsMessage<std::runtime_error>(HasSubstr("storcli has not answered within 2 s")));
}

TEST_F(RaidBatteriesTest, TheFirstInstalledToolIsRun) {
  if (is_emulated()) {
    GTEST_SKIP() << hides_failed_starts;
  }
  RaidBatterySource source(roots(), register_, {directory_ / "no-tool", directory_ / "storcli"}, 2s);
  print(printed(controller("00:03:00:00", capacitor("Degraded"))));
  EXPECT_THAT(source.read().troubles, SizeIs(1));
  std::filesystem::remove(directory_ / "storcli");
  EXPECT_THAT([&] { source.read(); }, ThrowsMessage<std::runtime_error>(HasSubstr("none of the tools is installed: ")));
}

}  // namespace
}  // namespace tavo::service
