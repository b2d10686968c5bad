#include "host/notification.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <array>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace tavo {
namespace {

constexpr std::array<oid, 15> column = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 1, 1, 1, 11, 4'294'967'295};

class PackedVarbindsTest : public testing::Test {
 protected:
  void add(u_char type, const void *value, std::size_t size) {
    netsnmp_variable_list *list = list_.release();
    ASSERT_NE(snmp_varlist_add_variable(&list, column.data(), column.size(), type, value, size), nullptr);
    list_.reset(list);
  }

  VarbindList list_;
};

void expect_equal(const netsnmp_variable_list *one, const netsnmp_variable_list *other) {
  while (one != nullptr && other != nullptr) {
    EXPECT_EQ(snmp_oid_compare(one->name, one->name_length, other->name, other->name_length), 0);
    EXPECT_EQ(one->type, other->type);
    ASSERT_EQ(one->val_len, other->val_len);
    if (one->val_len > 0) {
      EXPECT_EQ(std::memcmp(one->val.string, other->val.string, one->val_len), 0);
    }
    one = one->next_variable;
    other = other->next_variable;
  }
  EXPECT_EQ(one, other) << "the lists differ in length";
}

TEST_F(PackedVarbindsTest, EveryTypeInAFaultNotificationIsPreserved) {
  const long negative = -5;
  const unsigned long large = 4'294'967'295;
  const counter64 wide{.high = 1, .low = 4'294'967'295};
  constexpr std::string_view text = "fan 3 failed";
  add(ASN_OBJECT_ID, column.data(), sizeof column);
  add(ASN_UNSIGNED, &large, sizeof large);
  add(ASN_OCTET_STR, text.data(), text.size());
  add(ASN_OCTET_STR, "", 0);
  add(ASN_INTEGER, &negative, sizeof negative);
  add(ASN_COUNTER, &large, sizeof large);
  add(ASN_TIMETICKS, &large, sizeof large);
  add(ASN_COUNTER64, &wide, sizeof wide);
  add(ASN_NULL, nullptr, 0);
  const PackedVarbinds packed(list_.get());
  EXPECT_FALSE(packed.empty());
  expect_equal(packed.unpack().get(), list_.get());
}

TEST_F(PackedVarbindsTest, LongTextsAndAllOctetsArePreserved) {
  std::string octets(4000, '\0');
  for (std::size_t i = 0; i < octets.size(); ++i) {
    octets[i] = static_cast<char>(i);
  }
  add(ASN_OCTET_STR, octets.data(), octets.size());
  add(ASN_OCTET_STR, "x", 1);
  expect_equal(PackedVarbinds(list_.get()).unpack().get(), list_.get());
}

TEST_F(PackedVarbindsTest, TheCopyOutlivesTheCallersList) {
  add(ASN_OCTET_STR, "kept", 4);
  const PackedVarbinds packed(list_.get());
  list_.reset();
  const VarbindList unpacked = packed.unpack();
  ASSERT_NE(unpacked, nullptr);
  EXPECT_EQ(std::string_view(reinterpret_cast<const char *>(unpacked->val.string), unpacked->val_len), "kept");
}

TEST_F(PackedVarbindsTest, ACopyKeepsNoSpareMemory) {
  // Just above a size that a growing vector would double.
  constexpr int varbinds = 20;
  for (int varbind = 0; varbind < varbinds; ++varbind) {
    add(ASN_OCTET_STR, std::string(50, 'x').data(), 50);
  }
  constexpr std::size_t count = 1000;
  std::vector<PackedVarbinds> copies;
  copies.reserve(count);
  const std::size_t before = mallinfo2().uordblks;
  for (std::size_t copy = 0; copy < count; ++copy) {
    copies.emplace_back(list_.get());
  }
  // A name of 15 numbers, a header and the value for each. A sanitizer's allocator reports nothing.
  EXPECT_LT((mallinfo2().uordblks - before) / count, varbinds * (60 + 8 + 50) + 40);
}

TEST_F(PackedVarbindsTest, AnEmptyListStaysEmpty) {
  const PackedVarbinds packed(nullptr);
  EXPECT_TRUE(packed.empty());
  EXPECT_EQ(packed.unpack(), nullptr);
}

TEST_F(PackedVarbindsTest, AVarbindThatNetSnmpRefusesMakesNoList) {
  add(ASN_OCTET_STR, "good", 4);
  add(ASN_OCTET_STR, "bad", 3);
  list_->next_variable->type = ASN_COUNTER64;  // which 3 octets cannot be
  const PackedVarbinds packed(list_.get());
  EXPECT_FALSE(packed.empty());
  EXPECT_EQ(packed.unpack(), nullptr);
}

}  // namespace
}  // namespace tavo
