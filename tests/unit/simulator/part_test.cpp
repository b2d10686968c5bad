#include "service/part.h"

#include <gmock/gmock.h>

#include <array>
#include <cstddef>

#include "core/class_number.h"
#include "platform/fault_engine.h"
#include "served_scenario.h"
#include "service/part_kinds.h"

namespace tavo::service {
namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;

TEST(Part, EncodesEveryFieldAtItsOffset) {
  Part fault(fault_kind);
  const std::vector<std::string> settings{"index=7",         "class=fan",        "unit=4",
                                          "severity=major",  "affected=sys/fan", "affected-oid=1.3.6.4294967295",
                                          "first-time=-1",   "description=Slow", "previous-severity=3",
                                          "occurrences=255", "code=0x11223344",  "affected-oid-count=33"};
  apply_settings(fault, settings);
  const auto record = fault.encoded();
  ASSERT_EQ(record.size(), FAULT_RECORD_SIZE);
  EXPECT_EQ(integer_at<std::uint32_t>(record.data(), FAULT_INDEX), 7U);
  EXPECT_EQ(integer_at<std::uint32_t>(record.data(), FAULT_CLASS_CODE), class_number::system_fan);
  EXPECT_EQ(integer_at<std::uint32_t>(record.data(), FAULT_UNIT_POSITION), 4U);
  EXPECT_EQ(integer_at<std::uint32_t>(record.data(), FAULT_SEVERITY), 5U);
  EXPECT_EQ(integer_at<std::int32_t>(record.data(), FAULT_FIRST_TIME), -1);
  EXPECT_EQ(integer_at<std::uint32_t>(record.data(), FAULT_CODE), 0x11223344U);
  EXPECT_EQ(integer_at<std::uint8_t>(record.data(), FAULT_PREVIOUS_SEVERITY), 3);
  EXPECT_EQ(integer_at<std::uint8_t>(record.data(), FAULT_OCCURRENCES), 255);
  EXPECT_EQ(integer_at<std::uint32_t>(record.data(), FAULT_AFFECTED_OID + 12), 4294967295U);
  EXPECT_EQ(integer_at<std::uint32_t>(record.data(), FAULT_AFFECTED_OID_COUNT), 33U);
  EXPECT_EQ(text_at(record.data(), FAULT_DESCRIPTION, FAULT_DESCRIPTION_SIZE), "Slow");
}

TEST(Part, ANumberLeavesWhatFollowsItAlone) {
  static constexpr auto fields = std::to_array<Field>({
      {.name = "code", .type = FieldType::Word, .offset = 1},
      {.name = "count", .type = FieldType::Octet, .offset = 0},
  });
  static constexpr PartKind kind{.name = "part", .fields = fields, .record_size = 5};
  Part part(kind);
  part.set("code", "0x04030201");
  part.set("count", "255");
  EXPECT_THAT(part.encoded(),
              testing::ElementsAre(std::byte{255}, std::byte{1}, std::byte{2}, std::byte{3}, std::byte{4}));
}

TEST(Part, TextMayFillItsWholeField) {
  Part fault(fault_kind);
  fault.set("rn", std::string(FAULT_RN_SIZE, 'x'));
  const auto record = fault.encoded();
  EXPECT_EQ(text_at(record.data(), FAULT_RN, FAULT_RN_SIZE).size(), FAULT_RN_SIZE);
  EXPECT_THAT([&] { fault.set("rn", std::string(FAULT_RN_SIZE + 1, 'x')); },
              ThrowsMessage<BadInput>(HasSubstr("longer than 32 octets")));
}

TEST(Part, RefusesWhatDoesNotFitAndSaysWhatDoes) {
  Part fault(fault_kind);
  EXPECT_THAT([&] { fault.set("severty", "major"); }, ThrowsMessage<BadInput>(HasSubstr("has no field 'severty'")));
  EXPECT_THAT([&] { fault.set("severity", "mjor"); }, ThrowsMessage<BadInput>(HasSubstr("or one of cleared, info")));
  EXPECT_THAT([&] { fault.set("unit", "4294967296"); }, ThrowsMessage<BadInput>(HasSubstr("from 0 to 4294967295")));
  EXPECT_THAT([&] { fault.set("unit", "-1"); }, ThrowsMessage<BadInput>(HasSubstr("'-1' is not a number")));
  EXPECT_THAT([&] { fault.set("unit", "7x"); }, ThrowsMessage<BadInput>(HasSubstr("'7x' is not a number")));
  EXPECT_THAT([&] { fault.set("occurrences", "256"); }, ThrowsMessage<BadInput>(HasSubstr("from 0 to 255")));
  EXPECT_THAT([&] { fault.set("affected-oid", "1.3.x"); }, ThrowsMessage<BadInput>(HasSubstr("'x' is not a number")));
  EXPECT_THAT([&] { fault.set("description", "two\nlines"); }, ThrowsMessage<BadInput>(HasSubstr("line break")));
  EXPECT_THAT([] { Part(environment_kind).set("power", "12W"); },
              ThrowsMessage<BadInput>(HasSubstr("not a decimal number")));
}

TEST(Part, AppliesAllSettingsOrNone) {
  Part fault(fault_kind);
  const std::vector<std::string> settings{"unit=3", "severity=none"};
  EXPECT_THROW(apply_settings(fault, settings), BadInput);
  EXPECT_EQ(fault.number("unit"), 0);
}

}  // namespace
}  // namespace tavo::service
