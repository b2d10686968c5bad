#include <gmock/gmock.h>

#include "ipmi_fixture.h"

namespace tavo::service {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST_F(Ipmi, AReadingMayBeMissingNowAndThen) {
  controller_.sdr = {full_record(fan(9, "SYS_FAN1"))};
  controller_.reads(9, 3);
  EXPECT_THAT(descriptions(), SizeIs(1));
  controller_.readings[9] = {3, 0x60};  // unavailable
  EXPECT_THAT(descriptions(), SizeIs(1));
  controller_.readings.clear();
  EXPECT_THAT(descriptions(), SizeIs(1));
  EXPECT_THAT(descriptions(), IsEmpty()) << "it is no fan that can be told about";
}

class IpmiTemperature : public Ipmi {
 protected:
  void add(const MadeUpSensor &sensor) { controller_.sdr = {full_record(sensor)}; }

  std::vector<std::string> descriptions_at(std::uint8_t reading) {
    controller_.reads(1, reading);
    return descriptions();
  }
};

TEST_F(IpmiTemperature, ItIsATroubleAtItsThreshold) {
  add(temperature(1, "DIMM Temp"));
  EXPECT_THAT(descriptions_at(79), IsEmpty());
  EXPECT_THAT(descriptions_at(80), ElementsAre("major: DIMM Temp is at its critical temperature"));
  for (const std::uint8_t reading : {90, 86}) {
    EXPECT_THAT(descriptions_at(reading), ElementsAre("critical: DIMM Temp is at a temperature that damages hardware"));
  }
  EXPECT_THAT(descriptions_at(76), ElementsAre("major: DIMM Temp is at its critical temperature"));
  EXPECT_THAT(descriptions_at(75), IsEmpty());
}

TEST_F(IpmiTemperature, ThresholdsAreThoseThatAreSet) {
  add(temperature(1, "DIMM Temp"));
  controller_.thresholds[1] = {0x10, 0, 0, 0, 0, 50, 0};
  EXPECT_THAT(descriptions_at(60), SizeIs(1));
}

TEST_F(IpmiTemperature, AThresholdOfZeroIsNone) {
  MadeUpSensor sensor = temperature(1, "DIMM Temp");
  sensor.upper_non_recoverable = 0;
  add(sensor);
  EXPECT_THAT(descriptions_at(30), IsEmpty());
  EXPECT_THAT(descriptions_at(80), SizeIs(1));
}

TEST_F(Ipmi, ASensorThatIsNotLinearHasFactorsForEachReading) {
  MadeUpSensor sensor = temperature(1, "Inlet Temp");
  sensor.hysteresis = 2;
  controller_.sdr = {full_record(sensor)};
  constexpr std::size_t linearization = 23;
  controller_.sdr[0].at(linearization) = 0x70;
  controller_.thresholds[1] = {0x10, 0, 0, 0, 0, 200, 0};
  controller_.reads(1, 100);
  EXPECT_EQ(found().environment.text("ambient"), "0") << "the controller does not say what that is";
  controller_.factors[100] = {101, 5, 0, 0xf6, 0xc0, 0, 0xf0};  // 5 times the octet, less 10, by 10
  controller_.factors[200] = {201, 3, 0, 2, 0, 0, 0xf1};        // 3 times the octet and 20, by 10
  controller_.factors[199] = controller_.factors[200];
  controller_.factors[197] = controller_.factors[200];
  ++controller_.sdr_changes;
  EXPECT_EQ(found().environment.text("ambient"), "49.0");
  EXPECT_THAT(descriptions(), IsEmpty());
  controller_.reads(1, 200);
  EXPECT_EQ(found().environment.text("ambient"), "62.0");
  EXPECT_THAT(descriptions(), SizeIs(1)) << "its threshold";
  controller_.reads(1, 199);
  EXPECT_THAT(descriptions(), SizeIs(1)) << "within the hysteresis of two steps";
  const int asked = controller_.asked[{0x04, 0x23}];
  controller_.reads(1, 197);
  EXPECT_THAT(descriptions(), IsEmpty());
  controller_.reads(1, 100);
  EXPECT_THAT(descriptions(), IsEmpty());
  EXPECT_EQ((controller_.asked[{0x04, 0x23}]), asked + 1) << "factors are asked for once";
}

}  // namespace
}  // namespace tavo::service
