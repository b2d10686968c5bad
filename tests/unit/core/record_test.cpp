#include "core/record.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace tavo {
namespace {

constexpr auto octets = std::to_array<std::byte>({
    std::byte{0x01},
    std::byte{0x02},
    std::byte{0x03},
    std::byte{0x84},
    std::byte{0x05},
    std::byte{0x06},
    std::byte{0x07},
    std::byte{0x88},
    std::byte{'A'},
    std::byte{'B'},
    std::byte{0x00},
    std::byte{'C'},
});
constexpr Record record{octets};

TEST(Record, IntegersAreLittleEndianAtAnyOffset) {
  static_assert(record.u8(3) == 0x84);
  static_assert(record.u32(0) == 0x84030201);
  static_assert(record.i32(0) == static_cast<std::int32_t>(0x84030201));
  static_assert(record.u32(1) == 0x05840302);
  static_assert(record.u64(0) == 0x8807060584030201);
}

TEST(Record, AnIntegerThatReachesBeyondTheEndIsZero) {
  EXPECT_EQ(record.u8(11), 'C');
  EXPECT_EQ(record.u8(12), 0);
  EXPECT_EQ(record.u32(8), 0x43004241U);
  EXPECT_EQ(record.u32(9), 0U);
  EXPECT_EQ(record.i32(12), 0);
  EXPECT_EQ(record.u64(4), 0x4300424188070605U);
  EXPECT_EQ(record.u64(5), 0U);
  EXPECT_EQ(record.u32(std::numeric_limits<std::size_t>::max()), 0U);
  EXPECT_EQ(record.u32(std::numeric_limits<std::size_t>::max() - 2), 0U);
}

TEST(Record, ATextEndsWithItsNul) {
  EXPECT_EQ(record.text(8, 4), "AB");
}

TEST(Record, ATextWithoutNulEndsWithItsField) {
  EXPECT_EQ(record.text(8, 2), "AB");
  EXPECT_EQ(record.text(8, 1), "A");
  EXPECT_EQ(record.text(8, 0), "");
}

TEST(Record, ATextEndsWithTheRecord) {
  EXPECT_EQ(record.text(11, 64), "C");
  EXPECT_EQ(record.text(12, 64), "");
  EXPECT_EQ(record.text(1000, 64), "");
  EXPECT_EQ(record.text(11, std::numeric_limits<std::size_t>::max()), "C");
}

TEST(Record, EveryTruncationOfARecordIsReadWithinItsBounds) {
  for (std::size_t size = 0; size <= octets.size(); ++size) {
    // On the heap with its exact size, so that AddressSanitizer sees a read beyond it.
    const std::vector<std::byte> cut(octets.begin(), octets.begin() + static_cast<std::ptrdiff_t>(size));
    const Record part(cut.data(), cut.size());
    for (std::size_t offset = 0; offset <= octets.size(); ++offset) {
      const bool whole = offset + 4 <= size;
      EXPECT_EQ(part.u32(offset), whole ? record.u32(offset) : 0U);
      EXPECT_LE(part.text(offset, 64).size(), size);
      part.u64(offset);
      part.u8(offset);
    }
  }
}

TEST(Record, APartHasItsOwnOffsets) {
  const Record part = record.part(8, 3);
  EXPECT_EQ(part.size(), 3U);
  EXPECT_EQ(part.text(0, 64), "AB");
  EXPECT_EQ(record.part(10, 64).size(), 2U);
  EXPECT_EQ(record.part(64, 1).size(), 0U);
}

}  // namespace
}  // namespace tavo
