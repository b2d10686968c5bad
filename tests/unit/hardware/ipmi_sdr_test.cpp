#include <gmock/gmock.h>

#include <chrono>

#include "hardware/ipmi_sdr.h"
#include "hardware/ipmi_storage.h"
#include "ipmi_fixture.h"

namespace tavo::service {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

std::vector<IpmiOctets> all_records(IpmiDevice &device) {
  SdrRecords found;
  read_sdr(device, found, std::chrono::steady_clock::time_point::max());
  return found.records;
}

using IpmiSdr = Ipmi;

TEST_F(IpmiSdr, AFullRecordTellsOfASensor) {
  const IpmiInventory inventory = decode_sdr({full_record(fan(9, "SYS_FAN1"))});
  ASSERT_THAT(inventory.sensors, SizeIs(1));
  const IpmiSensor &sensor = inventory.sensors[0];
  EXPECT_EQ(sensor.number, 9);
  EXPECT_EQ(sensor.name, "SYS_FAN1");
  EXPECT_EQ(sensor.unit, turns);
  EXPECT_EQ(sensor.conversion->value(21), 2100);
  EXPECT_EQ(sensor.thresholds.lower_critical, 500);
  EXPECT_EQ(sensor.thresholds.upper_non_recoverable, std::nullopt);
  EXPECT_EQ(sensor.falling_hysteresis, 200);
}

TEST_F(IpmiSdr, ACompactRecordStandsForSeveralSensors) {
  const IpmiInventory inventory = decode_sdr({compact_record(30, 8, specific, 10, 1, "PS", 3)});
  ASSERT_THAT(inventory.sensors, SizeIs(3));
  EXPECT_EQ(inventory.sensors[2].number, 32);
  EXPECT_EQ(inventory.sensors[2].entity.instance, 3);
  EXPECT_EQ(inventory.sensors[2].name, "PS 2");
}

TEST_F(IpmiSdr, ARecordThatIsCutShortIsLeftOut) {
  for (const IpmiOctets &whole :
       {full_record(fan(9, "SYS_FAN1")), compact_record(30, 8, specific, 10, 1, "PS"), fru_record(3, 10, 1)}) {
    for (std::size_t size = 0; size < whole.size(); ++size) {
      const IpmiInventory inventory = decode_sdr({IpmiOctets(whole.begin(), whole.begin() + static_cast<int>(size))});
      EXPECT_THAT(inventory.sensors, IsEmpty()) << size;
      EXPECT_THAT(inventory.frus, IsEmpty()) << size;
    }
  }
}

TEST_F(IpmiSdr, SensorsOfOthersAreLeftOut) {
  IpmiOctets record = full_record(fan(9, "SYS_FAN1"));
  record[5] = 0x2c;
  EXPECT_THAT(decode_sdr({record}).sensors, IsEmpty());
  controller_.sdr = {record, full_record(fan(10, "SYS_FAN2"))};
  const Finding finding = read();
  EXPECT_THAT(finding.unreadable, ElementsAre("sensors of other controllers behind this one: 1"));
}

TEST_F(IpmiSdr, AReadingThatIsNoNumberIsNone) {
  IpmiConversion conversion;
  conversion.multiplier = 1;
  conversion.linearization = 1;  // a logarithm
  EXPECT_EQ(conversion.value(0), std::nullopt);
  EXPECT_NE(conversion.value(10), std::nullopt);
}

TEST_F(IpmiSdr, ASensorWithoutANameHasItsNumber) {
  const IpmiInventory inventory = decode_sdr({full_record(fan(9, ""))});
  EXPECT_EQ(inventory.sensors.at(0).name, "Sensor 9");
}

TEST_F(IpmiSdr, ARepositoryThatLoopsEnds) {
  class Loop : public MadeUpController {
    IpmiOctets ask(const IpmiCommand &command) override {
      IpmiOctets answer = MadeUpController::ask(command);
      if (command.command == 0x23 && answer.size() > 1) {
        answer[1] = 1;  // the next one is the first
        answer[2] = 0;
      }
      return answer;
    }
  };
  Loop loop;
  loop.sdr = {full_record(fan(9, "SYS_FAN1")), full_record(fan(10, "SYS_FAN2"))};
  EXPECT_THAT(all_records(loop), SizeIs(2)) << "the first goes by two numbers";
}

TEST_F(IpmiSdr, ARecordLargerThanAnOffsetIsLeftOut) {
  IpmiOctets record = full_record(fan(9, "SYS_FAN1"));
  record[4] = 0xff;
  record.resize(5 + 0xff);
  controller_.sdr = {record};
  EXPECT_THAT(all_records(controller_), SizeIs(1));
  record.resize(100);
  controller_.sdr = {record};
  EXPECT_THAT(all_records(controller_), IsEmpty());
}

TEST_F(IpmiSdr, ARecordThatCannotBeReadIsTriedThreeTimes) {
  IpmiOctets broken = full_record(fan(10, "SYS_FAN2"));
  broken.resize(20);
  controller_.sdr = {full_record(fan(9, "SYS_FAN1")), broken};
  const Finding finding = read();
  EXPECT_THAT(finding.unreadable, ElementsAre("the controller's sensor records could not all be read"));
  read();
  controller_.sdr[1] = full_record(fan(10, "SYS_FAN2"));
  EXPECT_THAT(found().sensors, SizeIs(4));
  controller_.sdr[1] = broken;
  ++controller_.sdr_changes;
  read();
  read();
  read();
  const int before = controller_.asked[{0x0a, 0x23}];
  EXPECT_THAT(found().sensors, SizeIs(4)) << "the complete records stay";
  EXPECT_EQ((controller_.asked[{0x0a, 0x23}]), before);
}

TEST_F(IpmiSdr, SlowRecordsAreReadInSeveralReadings) {
  auto made = make_controller();
  made->sdr = {full_record(fan(9, "SYS_FAN1")), full_record(fan(10, "SYS_FAN2")), full_record(fan(11, "SYS_FAN3"))};
  IpmiSource source(register_, std::move(made), std::chrono::milliseconds(0));
  const auto sensors_after_reading = [&] { return found_by(source).sensors.size(); };
  EXPECT_EQ(sensors_after_reading(), 0U);
  EXPECT_THAT(source.read().unreadable, ElementsAre("the controller's sensor records have not all been read yet"));
  EXPECT_EQ(sensors_after_reading(), 6U);
  EXPECT_THAT(source.read().unreadable, IsEmpty());
}

TEST_F(IpmiSdr, AreasOfOthersAreLeftOut) {
  IpmiOctets record = fru_record(3, 10, 1);
  EXPECT_THAT(decode_sdr({record}).frus, SizeIs(1));
  record[5] = 0x2c;
  EXPECT_THAT(decode_sdr({record}).frus, IsEmpty());
  record[5] = 0x20;
  record[7] = 0x88;  // another unit of this controller
  EXPECT_THAT(decode_sdr({record}).frus, IsEmpty());
}

}  // namespace
}  // namespace tavo::service
