// What the table serves and how a record becomes a row.
#include "tables/faults/tavoFaultTable.h"

#include <gmock/gmock.h>

#include <cstddef>
#include <cstring>
#include <optional>
#include <string>

#include "core/class_number.h"
#include "sources/fan_state.h"
#include "tests/fixtures/fault_table_fixture.h"

namespace tavo {
namespace {

using fakes::counter;
using fakes::counter64;
using fakes::fault;
using fakes::integer;
using fakes::object_identifier;
using fakes::text;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using namespace std::string_literals;

constexpr oid affected_id[] = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 41, 9, 1, 2, 1};

std::vector<fakes::Cell> cells_of(oid index, std::int32_t severity) {
  return {
      {2, index, text("sys/rack-unit-1/board/cpu-1/fault-1001")},
      {3, index, text("fault-1001")},
      {4, index, object_identifier(affected_id)},
      {5, index, text("sys/rack-unit-1/board/cpu-1")},
      {6, index, integer(1)},
      {7, index, integer(17)},
      {8, index, text("unknown")},
      {9, index, integer(1001)},
      {10, index, text("\x07\xE7\x0B\x0E\x16\x0D\x14\x00"s)},
      {11, index, text("Processor 1 has failed")},
      {12, index, integer(6)},
      {13, index, counter64(std::uint64_t{index} << 32)},
      {14, index, text("\x07\xE7\x0B\x0E\x17\x0D\x14\x00"s)},
      {15, index, integer(0)},
      {16, index, counter(200)},
      {17, index, integer(severity)},
      {18, index, integer(4)},
      {19, index, integer(1001)},
      {20, index, integer(severity)},
      {21, index, text("\x44")},
      {22, index, integer(5)},
  };
}

TEST_F(FaultTableTest, ServesEveryColumnOfEveryFault) {
  start_up();
  apply(fault(3, 7, 5));
  apply(fault(8, 4'294'967'295, 3));
  apply(fault(3, 2, 1));
  std::vector<fakes::Cell> cells = cells_of(7, 5);
  for (const auto &[index, severity] : {std::pair<oid, int>{4'294'967'295, 3}, {2, 1}}) {
    const auto more = cells_of(index, severity);
    cells.insert(cells.end(), more.begin(), more.end());
  }
  fakes::expect_table(fault_table, cells);
}

TEST_F(FaultTableTest, StartUpRegistersAnEmptyTable) {
  start_up();
  EXPECT_THAT(fakes::walk(fault_table), IsEmpty());
  EXPECT_EQ(read(2, 7), fakes::no_such_instance);
}

TEST_F(FaultTableTest, TheSequenceIsTheFaultIndexInTheHighWord) {
  start_up();
  apply(fault(3, 0x89ABCDEF, 5));
  EXPECT_EQ(only_row().sequence.high, 0x89ABCDEFU);
  EXPECT_EQ(only_row().sequence.low, 0U);
  EXPECT_EQ(read(13, 0x89ABCDEF), counter64(0x89ABCDEF00000000));
}

TEST_F(FaultTableTest, ConversionWantsARecordAndARow) {
  FaultRow row = {};
  EXPECT_EQ(convert_fe_to_fault_table_entry(nullptr, &row), -103);
  EXPECT_EQ(convert_fe_to_fault_table_entry(fault(3, 7, 5).data(), nullptr), -103);
  EXPECT_EQ(convert_fe_to_fault_table_entry(fault(3, 7, 5).data(), &row), 0);
  EXPECT_EQ(row.index, 7U);
}

TEST_F(FaultTableTest, TextsEndWithTheirColumnOrTheirField) {
  FaultRow row = {};
  // No NUL anywhere: each text ends with its field in the record, or with the row's, whichever is shorter.
  const fakes::FaultRecord endless = fault(3, 7, 5)
                                         .text(FAULT_AFFECTED_OBJECT, std::string(FAULT_AFFECTED_OBJECT_SIZE, 'o'))
                                         .text(FAULT_DN, std::string(FAULT_DN_SIZE, 'd'))
                                         .text(FAULT_RN, std::string(FAULT_RN_SIZE, 'r'))
                                         .text(FAULT_DESCRIPTION, std::string(FAULT_DESCRIPTION_SIZE, 't'));
  ASSERT_EQ(convert_fe_to_fault_table_entry(endless.data(), &row), 0);
  EXPECT_EQ(row.affected_object.text, std::string(80, 'o'));
  EXPECT_EQ(row.affected_object.length, 80);
  EXPECT_EQ(row.dn.text, std::string(112, 'd'));
  EXPECT_EQ(row.dn.length, 112);
  EXPECT_EQ(row.rn.text, std::string(31, 'r'));
  EXPECT_EQ(row.rn.length, 31);
  EXPECT_EQ(row.description.text, std::string(191, 't'));
  EXPECT_EQ(row.description.length, 191);
}

TEST_F(FaultTableTest, EmptyTextsAreServedEmpty) {
  start_up();
  apply(fakes::FaultRecord().number(FAULT_INDEX, 1).number(FAULT_SEVERITY, 3));
  for (const int column : {2, 3, 5, 11}) {
    EXPECT_EQ(read(column, 1), text("")) << column;
  }
  EXPECT_EQ(read(4, 1), (fakes::Value{ASN_OBJECT_ID, ""}));
}

TEST_F(FaultTableTest, AnIdentifierMayFillItsField) {
  start_up();
  std::vector<std::uint32_t> longest = {1, 3};
  longest.resize(FAULT_AFFECTED_OID_CAPACITY, 0xFFFFFFFF);
  apply(fault(3, 7, 5).identifier(longest));
  const fakes::Oid wanted(longest.begin(), longest.end());
  EXPECT_EQ(read(4, 7), object_identifier(wanted));
}

TEST_F(FaultTableTest, MoreSubIdentifiersThanTheFieldHoldsAreCutOff) {
  start_up();
  std::vector<std::uint32_t> field = {1, 3, 6, 1};
  field.resize(FAULT_AFFECTED_OID_CAPACITY, 9);
  const fakes::Oid wanted(field.begin(), field.end());
  for (const std::uint32_t count : {33U, 0x7FFFFFFFU, 4'000'000'000U, 0xFFFFFFFFU}) {
    apply(fault(3, 7, 5).identifier(field).number(FAULT_AFFECTED_OID_COUNT, count));
    EXPECT_EQ(only_row().affected_id.count, 32) << count;
    EXPECT_EQ(read(4, 7), object_identifier(wanted)) << count;
  }
}

TEST_F(FaultTableTest, TimesAreSignedSecondsInTheControllersZone) {
  start_up();
  setenv("TZ", "UTC-2", 1);
  tzset();
  apply(fault(3, 7, 5).number(FAULT_FIRST_TIME, static_cast<std::uint32_t>(-1)).number(FAULT_LAST_TIME, 0x7FFFFFFF));
  EXPECT_EQ(read(10, 7), text("\x07\xB2\x01\x01\x01\x3B\x3B\x00"s)) << "a second before 1970, two hours east";
  EXPECT_EQ(read(14, 7), text("\x07\xF6\x01\x13\x05\x0E\x07\x00"s)) << "the last second that the field can tell";
  // From 2038 on the field's sign bit is set, so the time reads as one before 1970.
  apply(fault(3, 7, 5).number(FAULT_FIRST_TIME, 0x80000000));
  EXPECT_EQ(read(10, 7), text("\x07\x6D\x0C\x0D\x16\x2D\x34\x00"s));
}

TEST_F(FaultTableTest, ATimeThatCannotBeConvertedKeepsItsColumn) {
  start_up();
  apply(fault(3, 7, 5));
  fakes::set_date_and_time_result(1);
  apply(fault(3, 7, 4).number(FAULT_FIRST_TIME, 0).number(FAULT_LAST_TIME, 0));
  apply(fault(3, 8, 4));
  fakes::set_date_and_time_result(0);
  EXPECT_EQ(read(10, 7), text("\x07\xE7\x0B\x0E\x16\x0D\x14\x00"s));
  EXPECT_EQ(read(14, 7), text("\x07\xE7\x0B\x0E\x17\x0D\x14\x00"s));
  EXPECT_EQ(read(17, 7), integer(4));
  EXPECT_EQ(read(10, 8), text("")) << "a new fault had none before";
}

TEST_F(FaultTableTest, LargeRecordWordsKeepTheirBits) {
  start_up();
  apply(fault(3, 7, 0x80000001).number(FAULT_CAUSE, 0xFFFFFFFF).number(FAULT_CODE, 0x80000000));
  EXPECT_EQ(read(7, 7), integer(-1));
  EXPECT_EQ(read(9, 7), integer(INT32_MIN));
  EXPECT_EQ(read(19, 7), integer(INT32_MIN));
  EXPECT_EQ(read(17, 7), integer(INT32_MIN + 1));
}

TEST_F(FaultTableTest, WithoutTheMarkerNobodyAsksForTheSerialNumber) {
  start_up();
  EXPECT_THAT(shell_.commands(), IsEmpty());
  FaultRow row = {};
  convert_fe_to_fault_table_entry(fault(3, 7, 5).data(), &row);
  EXPECT_STREQ(row.affected_object.text, "sys/rack-unit-1/board/cpu-1");
}

TEST_F(FaultTableTest, WithTheMarkerTheSerialNumberHeadsTheAffectedObject) {
  start_up_with_serial_number("SERIAL-0001");
  EXPECT_THAT(shell_.popen_commands(), SizeIs(1));
  FaultRow row = {};
  convert_fe_to_fault_table_entry(fault(3, 7, 5).data(), &row);
  EXPECT_STREQ(row.affected_object.text, "[Serial No: SERIAL-0001] sys/rack-unit-1/board/cpu-1");
  EXPECT_EQ(row.affected_object.length, std::strlen(row.affected_object.text));
}

TEST_F(FaultTableTest, ASerialNumberThatCannotBeReadIsNone) {
  files_.write("/var/snmpSerialNoEnabled", "");
  start_up();
  EXPECT_THAT(shell_.popen_commands(), SizeIs(1));
  FaultRow row = {};
  convert_fe_to_fault_table_entry(fault(3, 7, 5).data(), &row);
  EXPECT_STREQ(row.affected_object.text, "sys/rack-unit-1/board/cpu-1");
}

TEST_F(FaultTableTest, ANextStartWithoutTheMarkerForgetsTheSerialNumber) {
  start_up_with_serial_number("SERIAL-0001");
  files_.remove("/var/snmpSerialNoEnabled");
  init_tavoFaultTable();
  FaultRow row = {};
  convert_fe_to_fault_table_entry(fault(3, 7, 5).data(), &row);
  EXPECT_STREQ(row.affected_object.text, "sys/rack-unit-1/board/cpu-1");
}

TEST_F(FaultTableTest, AFailedQueryAtTheNextStartForgetsTheSerialNumber) {
  start_up_with_serial_number("SERIAL-0001");
  shell_.answers(serial_number_query, [](int) { return std::nullopt; });
  init_tavoFaultTable();
  FaultRow row = {};
  convert_fe_to_fault_table_entry(fault(3, 7, 5).data(), &row);
  EXPECT_STREQ(row.affected_object.text, "sys/rack-unit-1/board/cpu-1");
}

TEST_F(FaultTableTest, ALongSerialNumberCutsTheAffectedObjectOff) {
  start_up_with_serial_number(std::string(300, 'S'));
  FaultRow row = {};
  const auto longest = fault(3, 7, 5).text(FAULT_AFFECTED_OBJECT, std::string(FAULT_AFFECTED_OBJECT_SIZE, 'o'));
  convert_fe_to_fault_table_entry(longest.data(), &row);
  EXPECT_EQ(row.affected_object.text,
            ("[Serial No: " + std::string(126, 'S') + "] " + std::string(80, 'o')).substr(0, 191));
  EXPECT_EQ(row.affected_object.length, 191);
}

TEST_F(FaultTableTest, QueriesAskForAValueOrForACountOfTheProcessorsOnes) {
  constexpr const char *model = "datactl get=inventoryCPU | flatkv | grep Model | awk -F\": \" '{print $2}'";
  char out[128] = "";
  shell_.prints(model, "Model 8\n");
  EXPECT_EQ(getValueSN("inventoryCPU", "Model", ": ", out), 1);
  EXPECT_STREQ(out, "Model 8");
  for (const char *key : {"CoreCount", "ThreadCount", "CoreEnabled"}) {
    EXPECT_EQ(getValueSN("inventoryCPU", key, ": ", out), 0);
    EXPECT_THAT(shell_.popen_commands().back(), HasSubstr(" | uniq -c | ")) << key;
  }
  EXPECT_EQ(getValueSN("other", "CoreCount", ": ", out), 0);
  EXPECT_THAT(shell_.popen_commands().back(), Not(HasSubstr("uniq")));
  EXPECT_STREQ(out, "Model 8") << "left alone without a value";
}

class FanStateTest : public FaultTableTest {
 protected:
  static fakes::FaultRecord fan_fault(int class_code, std::uint32_t fan, std::uint32_t severity, std::uint32_t cause) {
    return fault(static_cast<std::uint32_t>(class_code), 1, severity)
        .number(FAULT_UNIT_POSITION, fan)
        .number(FAULT_CAUSE, cause);
  }
};

TEST_F(FanStateTest, ASystemFansFaultSetsItsSeverityAndPresence) {
  apply(fan_fault(class_number::system_fan, 13, 5, 17));
  EXPECT_EQ(sys_fan_sev[13], 5);
  EXPECT_EQ(sys_fan_prs[13], 10);
  apply(fan_fault(class_number::system_fan, 13, 3, 238));
  EXPECT_EQ(sys_fan_sev[13], 3);
  EXPECT_EQ(sys_fan_prs[13], 11);
  apply(fan_fault(class_number::system_fan, 13, 4, 238));
  EXPECT_EQ(sys_fan_prs[13], 10) << "missing is told by cause and severity together";
  apply(fan_fault(class_number::system_fan, 13, 0, 238));
  EXPECT_EQ(sys_fan_sev[13], 0);
  EXPECT_EQ(sys_fan_prs[13], 10);
  EXPECT_EQ(ps_fan_sev[0], 0);
}

TEST_F(FanStateTest, APowerSupplyFansFaultSetsTheLowOctetOfItsSeverity) {
  apply(fan_fault(class_number::power_supply_fan, 3, 0x1205, 238));
  EXPECT_EQ(ps_fan_sev[3], 5);
  EXPECT_EQ(sys_fan_sev[3], 0);
  EXPECT_EQ(sys_fan_prs[3], 0);
}

TEST_F(FanStateTest, OtherClassesLeaveFansAlone) {
  apply(fan_fault(class_number::processor, 1, 5, 238));
  EXPECT_EQ(sys_fan_sev[1], 0);
  EXPECT_EQ(ps_fan_sev[1], 0);
}

TEST_F(FanStateTest, AFanBeyondTheArraysIsServedAndNotNoted) {
  start_up();
  std::uint32_t index = 0;
  for (const int class_code : {class_number::power_supply_fan, class_number::system_fan}) {
    for (const std::uint32_t fan : {4U, 14U, 255U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
      if (class_code == class_number::system_fan && fan == 4) {
        continue;
      }
      apply(fan_fault(class_code, fan, 3, 238).number(FAULT_INDEX, ++index));
      EXPECT_EQ(read(17, index), integer(3)) << fan;
    }
  }
  EXPECT_EQ(row_count(), 9U);
  for (std::uint32_t fan = 0; fan < 14; ++fan) {
    EXPECT_EQ(load_fan(sys_fan_sev, fan) + load_fan(sys_fan_prs, fan) + load_fan(ps_fan_sev, fan), 0);
  }
}

}  // namespace
}  // namespace tavo
