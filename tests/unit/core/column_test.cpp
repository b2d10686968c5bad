#include "core/column.h"

#include <gmock/gmock.h>

#include <cstring>
#include <initializer_list>
#include <limits>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "tests/fakes/net_snmp.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/fixtures/sample_table.h"
#include "tests/harness/manager.h"
#include "tests/harness/own_process.h"

namespace tavo {
namespace {

using fakes::SampleRow;
using testing::IsEmpty;

using Octets = std::vector<unsigned>;

const Column &column(oid number) {
  return fakes::sample_columns[number - 2];
}

class ColumnTest : public fakes::ModuleTest {
 protected:
  ~ColumnTest() override { snmp_free_var_internals(&varbind_); }

  fakes::Value value(oid number) {
    EXPECT_TRUE(ColumnValue(column(number), &row_).set(&varbind_));
    return fakes::value_of(varbind_);
  }

  // Type, length and contents as encoded in a message.
  Octets encoded(oid number) {
    EXPECT_TRUE(ColumnValue(column(number), &row_).set(&varbind_));
    oid name[] = {1, 3};
    std::size_t name_length = 2;
    u_char message[256];
    std::size_t room = sizeof message;
    const u_char *end =
        snmp_build_var_op(message, name, &name_length, varbind_.type, varbind_.val_len, varbind_.val.string, &room);
    EXPECT_NE(end, nullptr);
    // The name follows the sequence's header: 06 01 2B.
    const std::size_t header = message[1] == 0x82 ? 4 : 2;
    const u_char *value = message + header + 3;
    return {value, end};
  }

  SampleRow row_ = {};
  netsnmp_variable_list varbind_ = {};
};

TEST_F(ColumnTest, TextEndsAtItsNul) {
  std::strcpy(row_.name, "cpu-1");
  EXPECT_EQ(value(fakes::sample_column::name), fakes::text("cpu-1"));
  EXPECT_EQ(varbind_.val_len, 5U);
  EXPECT_EQ(encoded(fakes::sample_column::name), (Octets{0x04, 5, 'c', 'p', 'u', '-', '1'}));
}

TEST_F(ColumnTest, TextMayBeEmpty) {
  EXPECT_EQ(value(fakes::sample_column::name), fakes::text(""));
  EXPECT_EQ(encoded(fakes::sample_column::name), (Octets{0x04, 0}));
}

TEST_F(ColumnTest, TextWithoutANulEndsWithItsField) {
  std::memset(row_.name, 'n', sizeof row_.name);
  std::memset(row_.code.text, 'c', sizeof row_.code.text);  // the field behind
  EXPECT_EQ(value(fakes::sample_column::name), fakes::text("nnnnnnnnnnnnnnnn"));
  EXPECT_EQ(varbind_.val_len, sizeof row_.name);
}

TEST_F(ColumnTest, CountedTextIsAsLongAsItsLengthSays) {
  std::memcpy(row_.code.text, "\0a\0bcdef", 8);
  row_.code.length = 4;
  EXPECT_EQ(value(fakes::sample_column::code), fakes::text(std::string_view("\0a\0b", 4)));
  EXPECT_EQ(encoded(fakes::sample_column::code), (Octets{0x04, 4, 0, 'a', 0, 'b'}));
  row_.code.length = 8;
  EXPECT_EQ(value(fakes::sample_column::code), fakes::text(std::string_view("\0a\0bcdef", 8)));
}

TEST_F(ColumnTest, AnAssignedTextCountsWhatWasCopied) {
  row_.code.assign(std::string_view("a\0b", 3));
  EXPECT_EQ(row_.code.length, 3);
  EXPECT_EQ(std::string_view(row_.code.text, 4), std::string_view("a\0b\0", 4));
  row_.flags = '#';
  row_.code.assign("123456789");
  EXPECT_EQ(row_.code.length, 7);
  EXPECT_STREQ(row_.code.text, "1234567");
  EXPECT_EQ(row_.flags, '#');
}

TEST_F(ColumnTest, CountedTextIsClampedToItsField) {
  std::memcpy(row_.code.text, "abcdefgh", 8);
  row_.flags = 'X';
  for (const std::int32_t length : {9, 65536, std::numeric_limits<std::int32_t>::max()}) {
    row_.code.length = length;
    EXPECT_EQ(value(fakes::sample_column::code), fakes::text("abcdefgh")) << length;
  }
  for (const std::int32_t length : {0, -1, std::numeric_limits<std::int32_t>::min()}) {
    row_.code.length = length;
    EXPECT_EQ(value(fakes::sample_column::code), fakes::text("")) << length;
  }
}

TEST_F(ColumnTest, AnOctetIsATextOfLengthOne) {
  row_.flags = 0x80;
  EXPECT_EQ(encoded(fakes::sample_column::flags), (Octets{0x04, 1, 0x80}));
  row_.flags = 0;
  EXPECT_EQ(encoded(fakes::sample_column::flags), (Octets{0x04, 1, 0}));
}

TEST_F(ColumnTest, IntegersKeepTheirSign) {
  for (const std::int32_t number : {0, 1, -1, std::numeric_limits<std::int32_t>::min(), 2147483647}) {
    row_.level = number;
    EXPECT_EQ(value(fakes::sample_column::level), fakes::integer(number));
  }
  row_.level = -2;
  EXPECT_EQ(encoded(fakes::sample_column::level), (Octets{0x02, 1, 0xFE}));
}

TEST_F(ColumnTest, GaugesAndCountersFillTheirThirtyTwoBits) {
  for (const std::uint32_t number : {0U, 1U, 0x80000000U, 0xFFFFFFFFU}) {
    row_.size = number;
    row_.events = {number};
    EXPECT_EQ(value(fakes::sample_column::size), fakes::gauge(number));
    EXPECT_EQ(value(fakes::sample_column::events), fakes::counter(number));
  }
  EXPECT_EQ(encoded(fakes::sample_column::size), (Octets{0x42, 5, 0, 0xFF, 0xFF, 0xFF, 0xFF}));
  EXPECT_EQ(encoded(fakes::sample_column::events), (Octets{0x41, 5, 0, 0xFF, 0xFF, 0xFF, 0xFF}));
}

TEST_F(ColumnTest, ACounter64FillsItsSixtyFourBits) {
  for (const std::uint64_t number : {0ULL, 1ULL, 0xFFFFFFFFULL, 0x100000000ULL, 0xFFFFFFFFFFFFFFFFULL}) {
    row_.total = number;
    EXPECT_EQ(value(fakes::sample_column::total), fakes::counter64(number));
  }
  row_.total = 0x0102030405060708;
  EXPECT_EQ(encoded(fakes::sample_column::total), (Octets{0x46, 8, 1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_F(ColumnTest, ACounter64OfTwoWordsPutsTheHighOneFirst) {
  row_.sequence = {.high = 0x01020304, .low = 0xA5060708};
  EXPECT_EQ(value(fakes::sample_column::sequence), fakes::counter64(0x01020304A5060708));
  EXPECT_EQ(encoded(fakes::sample_column::sequence), (Octets{0x46, 8, 1, 2, 3, 4, 0xA5, 6, 7, 8}));
}

TEST_F(ColumnTest, AFourOctetCounter64IsWidenedWhereNetSnmpRefusesIt) {
  for (const std::uint32_t number : {0U, 1U, 0xFFFFFFFFU}) {
    row_.uptime = {number};
    EXPECT_EQ(value(fakes::sample_column::uptime), fakes::counter64(number));
    EXPECT_EQ(varbind_.val_len, sizeof(struct counter64));
  }
  EXPECT_EQ(encoded(fakes::sample_column::uptime), (Octets{0x46, 5, 0, 0xFF, 0xFF, 0xFF, 0xFF}));
  EXPECT_THAT(fakes::library_log_lines(), IsEmpty());
}

TEST_F(ColumnTest, AFourOctetCounter64IsPassedToAnOlderNetSnmp) {
  if (ran_in_a_process_of_its_own(fakes::older_net_snmp)) {
    return;
  }
  std::ranges::fill(row_.object.sub_identifiers, 0xDEAD);  // the field behind
  for (const std::uint32_t number : {0U, 1U, 0xFFFFFFFFU}) {
    row_.uptime = {number};
    EXPECT_EQ(value(fakes::sample_column::uptime), fakes::counter64(number));
    EXPECT_EQ(fakes::size_of_last_value(), 4U);
  }
  EXPECT_EQ(encoded(fakes::sample_column::uptime), (Octets{0x46, 5, 0, 0xFF, 0xFF, 0xFF, 0xFF}));
}

TEST_F(ColumnTest, AFourOctetCounter64IsWidenedIfFourAreCopied) {
  if (ran_in_a_process_of_its_own(fakes::net_snmp_that_copies_the_length)) {
    return;
  }
  row_.uptime = {7};
  EXPECT_EQ(value(fakes::sample_column::uptime), fakes::counter64(7));
  EXPECT_EQ(encoded(fakes::sample_column::uptime), (Octets{0x46, 1, 7}));
}

TEST_F(ColumnTest, AnObjectIdentifierIsAsLongAsItsCountSays) {
  std::ranges::copy(std::to_array<std::uint32_t>({1, 3, 61453, 0xFFFFFFFF}), row_.object.sub_identifiers);
  row_.object.count = 3;
  EXPECT_EQ(value(fakes::sample_column::object), fakes::object_identifier(std::array<oid, 3>{1, 3, 61453}));
  EXPECT_EQ(encoded(fakes::sample_column::object), (Octets{0x06, 4, 0x2B, 0x83, 0xE0, 0x0D}));
  row_.object.count = 4;
  EXPECT_EQ(value(fakes::sample_column::object), fakes::object_identifier(std::array<oid, 4>{1, 3, 61453, 0xFFFFFFFF}));
}

TEST_F(ColumnTest, AnObjectIdentifierIsClampedToItsField) {
  std::ranges::copy(std::to_array<std::uint32_t>({1, 3, 6, 1}), row_.object.sub_identifiers);
  for (const std::int32_t length : {5, 128, std::numeric_limits<std::int32_t>::max()}) {
    row_.object.count = length;
    EXPECT_EQ(value(fakes::sample_column::object), fakes::object_identifier(std::array<oid, 4>{1, 3, 6, 1})) << length;
  }
  for (const std::int32_t length : {0, -1, std::numeric_limits<std::int32_t>::min()}) {
    row_.object.count = length;
    EXPECT_EQ(value(fakes::sample_column::object), fakes::object_identifier({})) << length;
  }
}

TEST_F(ColumnTest, AnObjectIdentifierThatCannotBeEncodedIsEmpty) {
  row_.object.count = 2;
  for (const auto &[first, second, fits] :
       std::initializer_list<std::tuple<std::uint32_t, std::uint32_t, bool>>{{0, 39, true},
                                                                             {1, 39, true},
                                                                             {2, 0xFFFFFFAF, true},
                                                                             {0, 40, false},
                                                                             {1, 40, false},
                                                                             {2, 0xFFFFFFB0, false},
                                                                             {3, 0, false}}) {
    row_.object.sub_identifiers[0] = first;
    row_.object.sub_identifiers[1] = second;
    EXPECT_EQ(value(fakes::sample_column::object) == fakes::object_identifier({}), !fits) << first << '.' << second;
  }
}

TEST_F(ColumnTest, EveryColumnOfARowIsServed) {
  std::strcpy(row_.name, "row");
  std::memcpy(row_.code.text, "abcdefgh", 8);
  row_.code.length = 3;
  row_.flags = 7;
  row_.level = -5;
  row_.size = 6;
  row_.events = {8};
  row_.total = 9;
  row_.sequence = {.high = 1, .low = 2};
  row_.uptime = {10};
  std::ranges::copy(std::to_array<std::uint32_t>({1, 3, 6, 1}), row_.object.sub_identifiers);
  row_.object.count = 2;
  EXPECT_EQ(value(2), fakes::text("row"));
  EXPECT_EQ(value(3), fakes::text("abc"));
  EXPECT_EQ(value(4), fakes::text("\7"));
  EXPECT_EQ(value(5), fakes::integer(-5));
  EXPECT_EQ(value(6), fakes::gauge(6));
  EXPECT_EQ(value(7), fakes::counter(8));
  EXPECT_EQ(value(8), fakes::counter64(9));
  EXPECT_EQ(value(9), fakes::counter64(0x100000002));
  EXPECT_EQ(value(10), fakes::counter64(10));
  EXPECT_EQ(value(11), fakes::object_identifier(std::array<oid, 2>{1, 3}));
}

// A notification's varbinds are made by the same codecs.
TEST_F(ColumnTest, AValueCanBeAppendedToANotification) {
  std::strcpy(row_.name, "cpu-1");
  row_.uptime = {7};
  netsnmp_variable_list *list = nullptr;
  const std::array<oid, 3> first = {1, 3, 1};
  const std::array<oid, 4> second = {1, 3, 2, 4};
  EXPECT_TRUE(ColumnValue(column(fakes::sample_column::name), &row_).append(&list, first));
  EXPECT_TRUE(ColumnValue(column(fakes::sample_column::uptime), &row_).append(&list, second));
  ASSERT_NE(list, nullptr);
  ASSERT_NE(list->next_variable, nullptr);
  EXPECT_EQ(fakes::dotted({list->name, list->name_length}), "1.3.1");
  EXPECT_EQ(fakes::value_of(*list), fakes::text("cpu-1"));
  EXPECT_EQ(fakes::dotted({list->next_variable->name, list->next_variable->name_length}), "1.3.2.4");
  EXPECT_EQ(fakes::value_of(*list->next_variable), fakes::counter64(7));
  EXPECT_EQ(list->next_variable->next_variable, nullptr);
  snmp_free_varbind(list);
}

// What TAVO_COLUMNS refuses at compile time.

struct Row {
  std::uint32_t index;
  std::uint64_t total;
  std::int32_t number;
  CounterWords words;
  std::uint8_t octet;
  char text[9];
  CountedText<5> counted;
  ObjectIdentifier<4> object;
  Counter32 events;
  Row *next;
};

constexpr Column number = column_of<decltype(Row::number)>(offsetof(Row, number));
constexpr Column total = column_of<decltype(Row::total)>(offsetof(Row, total));
constexpr Column words = column_of<decltype(Row::words)>(offsetof(Row, words));
constexpr Column octet = column_of<decltype(Row::octet)>(offsetof(Row, octet));
constexpr Column text = column_of<decltype(Row::text)>(offsetof(Row, text));
constexpr Column counted = column_of<decltype(Row::counted)>(offsetof(Row, counted));
constexpr Column object = column_of<decltype(Row::object)>(offsetof(Row, object));
constexpr Column events = column_of<decltype(Row::events)>(offsetof(Row, events));

constexpr auto all = std::to_array<Column>({total, number, words, octet, text, counted, object, events});

TEST(ColumnCheck, AcceptsEveryFieldInItsOrder) {
  EXPECT_TRUE(names_every_field<Row>(all));
}

TEST(ColumnCheck, RefusesATableWithoutColumns) {
  EXPECT_FALSE(names_every_field<Row>({}));
}

TEST(ColumnCheck, RefusesAFieldLeftOut) {
  for (std::size_t left_out = 0; left_out < all.size(); ++left_out) {
    std::vector<Column> columns(all.begin(), all.end());
    columns.erase(columns.begin() + static_cast<std::ptrdiff_t>(left_out));
    EXPECT_FALSE(names_every_field<Row>(columns)) << left_out;
  }
}

TEST(ColumnCheck, RefusesAFieldNamedTwice) {
  for (std::size_t twice = 0; twice < all.size(); ++twice) {
    std::vector<Column> columns(all.begin(), all.end());
    columns.insert(columns.begin() + static_cast<std::ptrdiff_t>(twice), all[twice]);
    EXPECT_FALSE(names_every_field<Row>(columns)) << twice;
  }
}

TEST(ColumnCheck, RefusesFieldsInAnotherOrder) {
  for (std::size_t first = 0; first + 1 < all.size(); ++first) {
    std::vector<Column> columns(all.begin(), all.end());
    std::swap(columns[first], columns[first + 1]);
    EXPECT_FALSE(names_every_field<Row>(columns)) << first;
  }
}

TEST(ColumnCheck, DerivesTheCodecFromTheFieldsType) {
  EXPECT_EQ(number.codec, Codec::Integer);
  EXPECT_EQ(column_of<std::uint32_t>(0).codec, Codec::Gauge32);
  EXPECT_EQ(total.codec, Codec::Counter64);
  EXPECT_EQ(words.codec, Codec::CounterWords);
  EXPECT_EQ(column_of<FourOctetCounter64>(0).codec, Codec::FourOctetCounter64);
  EXPECT_EQ(octet.codec, Codec::Octet);
  EXPECT_EQ(text.codec, Codec::Text);
  EXPECT_EQ(text.capacity, 9);
  EXPECT_EQ(counted.codec, Codec::CountedText);
  EXPECT_EQ(counted.capacity, 5);
  EXPECT_EQ(object.codec, Codec::ObjectIdentifier);
  EXPECT_EQ(object.capacity, 4);
  EXPECT_EQ(events.codec, Codec::Counter32);
}

}  // namespace
}  // namespace tavo
