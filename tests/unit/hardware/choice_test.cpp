#include "hardware/choice.h"

#include <gmock/gmock.h>

#include "hardware/hwmon.h"
#include "ipmi_fixture.h"

namespace tavo::service {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

// A controller with a fan and a processor's temperature, and chips of the kernel for both.
class ChoiceTest : public Ipmi {
 protected:
  ChoiceTest() {
    MadeUpSensor processor = temperature(1, "CPU1 Temp");
    processor.entity = 3;
    controller_.sdr = {full_record(fan(9, "SYS_FAN1")), full_record(processor)};
    write("class/hwmon/hwmon0/name", "board\n");
    write("class/hwmon/hwmon0/fan1_input", "2400\n");
    write("class/hwmon/hwmon0/fan2_input", "0\n");
    write("class/hwmon/hwmon0/fan2_min", "300\n");
  }

  static Word word_of(Source &source) {
    return {.source = source.name(), .finding = std::make_shared<Finding>(source.read())};
  }

  // What both find in a reading of each.
  std::vector<Word> both() {
    for (int i = 0; i < 5; ++i) {
      source_.read();
    }
    return {word_of(hwmon_), word_of(source_)};
  }

  static std::vector<std::string> descriptions_of(const std::vector<Word> &words) {
    std::vector<std::string> all;
    for (const Trouble &trouble : situation_of(words).troubles) {
      all.push_back(trouble.source + ": " + trouble.description);
    }
    return all;
  }

  static Inventory inventory_of(const std::vector<Word> &words) {
    Inventory inventory;
    inventory.processors.emplace_back(processor_kind);
    enter_all(inventory, words);
    return inventory;
  }

  HwmonSource hwmon_{roots(), register_};
};

TEST_F(ChoiceTest, FansAreTheControllersIfItKnowsAny) {
  controller_.reads(9, 3);
  const std::vector<Word> words = both();
  EXPECT_THAT(inventory_of(words).sensors, SizeIs(2));
  EXPECT_THAT(descriptions_of(words), ElementsAre("IPMI: Fan 1 (SYS_FAN1) has failed"));
}

TEST_F(ChoiceTest, FansThatTheControllerNeverSawAreTheKernels) {
  const std::vector<Word> words = both();
  EXPECT_THAT(inventory_of(words).sensors, SizeIs(4));
  EXPECT_THAT(descriptions_of(words), ElementsAre("hwmon: Fan 2 has failed"));
  std::filesystem::remove_all(sys() / "class/hwmon/hwmon0");
  EXPECT_THAT(inventory_of(both()).sensors, SizeIs(2)) << "better than none";
}

TEST_F(ChoiceTest, AControllerThatIsBusyKeepsItsFans) {
  controller_.reads(9, 30);
  EXPECT_THAT(inventory_of(both()).sensors, SizeIs(2));
  auto busy = make_controller();
  busy->sdr = controller_.sdr;
  IpmiSource after_restart(register_, std::move(busy));
  EXPECT_THAT(inventory_of({word_of(hwmon_), word_of(after_restart)}).sensors, SizeIs(2));
}

TEST_F(ChoiceTest, NoFanIsShownUntilTheRecordsAreRead) {
  auto slow = make_controller();
  slow->sdr = controller_.sdr;
  slow->reads(9, 3);
  IpmiSource source(register_, std::move(slow), std::chrono::milliseconds(0));
  const Word kernel = word_of(hwmon_);
  const Word at_first = word_of(source);
  for (const Word &controller : {Word{.source = "IPMI", .is_awaited = true}, at_first}) {
    EXPECT_THAT(inventory_of({kernel, controller}).sensors, IsEmpty());
    const Situation situation = situation_of({kernel, controller});
    EXPECT_THAT(situation.troubles, IsEmpty());
    EXPECT_THAT(situation.undecided, Contains(Pair("hwmon", ElementsAre("")))) << "its faults stay";
  }
  EXPECT_THAT(at_first.finding->undecided, ElementsAre("ipmi sensor ", "ipmi supply "));
  const std::vector<Word> at_last{kernel, word_of(source)};
  EXPECT_THAT(descriptions_of(at_last), ElementsAre("IPMI: Fan 1 (SYS_FAN1) has failed"));
  EXPECT_THAT(situation_of(at_last).undecided, Contains(Pair("hwmon", IsEmpty())));
}

TEST_F(ChoiceTest, WhoComesFirstAwaitsNobody) {
  write("class/hwmon/hwmon1/name", "k10temp\n");
  write("class/hwmon/hwmon1/temp1_input", "96000\n");
  write("class/hwmon/hwmon1/temp1_crit", "95000\n");
  write("class/hwmon/hwmon2/name", "power_meter\n");
  write("class/hwmon/hwmon2/power1_average", "190000000\n");
  const std::vector<Word> words{word_of(hwmon_), {.source = "IPMI", .is_awaited = true}};
  EXPECT_EQ(inventory_of(words).processors[0].text("temperature"), "96.0");
  EXPECT_EQ(inventory_of(words).environment.text("power"), "190.0");
  EXPECT_THAT(descriptions_of(words), ElementsAre("hwmon: Processor 1 is at its critical temperature"));
}

TEST_F(ChoiceTest, ControllersThatFailLeaveFansToTheKernel) {
  EXPECT_THAT(inventory_of({word_of(hwmon_), {.source = "IPMI"}}).sensors, SizeIs(4));
}

TEST_F(ChoiceTest, ProcessorsAreTheKernelsIfItKnowsThem) {
  controller_.reads(1, 85);
  EXPECT_EQ(inventory_of(both()).processors[0].text("temperature"), "85.0");
  EXPECT_THAT(descriptions_of(both()), Contains("IPMI: CPU1 Temp is at its critical temperature"));
  write("class/hwmon/hwmon1/name", "k10temp\n");
  write("class/hwmon/hwmon1/temp1_input", "84000\n");
  write("class/hwmon/hwmon1/temp1_crit", "95000\n");
  EXPECT_EQ(inventory_of(both()).processors[0].text("temperature"), "84.0");
  EXPECT_THAT(descriptions_of(both()), ElementsAre("hwmon: Fan 2 has failed"));
}

TEST_F(ChoiceTest, AChipWithoutALimitHidesNoFault) {
  controller_.reads(1, 85);
  write("class/hwmon/hwmon1/name", "k10temp\n");
  write("class/hwmon/hwmon1/temp1_input", "84000\n");
  const std::vector<Word> words = both();
  EXPECT_EQ(inventory_of(words).processors[0].text("temperature"), "84.0");
  EXPECT_THAT(descriptions_of(words),
              ElementsAre("hwmon: Fan 2 has failed", "IPMI: CPU1 Temp is at its critical temperature"));
}

TEST_F(ChoiceTest, PowerIsOneFigure) {
  controller_.power = IpmiOctets(18);
  controller_.power[1] = 200;
  controller_.power[17] = 0x40;
  EXPECT_EQ(inventory_of(both()).environment.text("power"), "200.0");
  write("class/hwmon/hwmon1/name", "power_meter\n");
  write("class/hwmon/hwmon1/power1_average", "190000000\n");
  EXPECT_EQ(inventory_of(both()).environment.text("power"), "190.0");
}

}  // namespace
}  // namespace tavo::service
