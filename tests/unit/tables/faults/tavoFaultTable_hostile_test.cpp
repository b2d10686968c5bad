// Malformed records: whatever they hold, the fault is notified, listed, served and cleared, and nothing outside the
// record is read. Each record has its own memory, where AddressSanitizer sees its ends.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>

#include "core/class_number.h"
#include "tables/faults/fault_database.h"
#include "tables/faults/tavoFaultTable.h"
#include "tables/faults/tavoFaultTable_traps.h"
#include "tests/fixtures/fault_table_fixture.h"

namespace tavo {
namespace {

using fakes::fault;
using fakes::FaultRecord;
using testing::Each;
using testing::IsEmpty;
using testing::SizeIs;

class HostileRecordTest : public FaultTableTest {
 protected:
  HostileRecordTest() {
    start_up();
    needToSendTrapFlag = 1;
  }

  static std::uint32_t word(const FaultRecord &record, std::size_t offset) {
    std::uint32_t value;
    std::memcpy(&value, record.octets.data() + offset, sizeof value);
    return value;
  }

  static void apply_from_the_heap(const FaultRecord &record) {
    const auto copy = std::make_unique<std::byte[]>(FAULT_RECORD_SIZE);
    std::memcpy(copy.get(), record.data(), FAULT_RECORD_SIZE);
    ASSERT_EQ(populate_fault_table_from_fe(copy.get()), 0);
  }

  // Raises, updates and clears the record's fault and, if `ask`, reads its whole row in between.
  static void expect_a_whole_life(FaultRecord record, bool ask = true) {
    fakes::reset_net_snmp();
    const std::uint32_t severity = word(record, FAULT_SEVERITY);
    record.number(FAULT_SEVERITY, severity == 0 ? 1 : severity);
    apply_from_the_heap(record);
    apply_from_the_heap(record);
    if (ask) {
      expect_served(word(record, FAULT_INDEX));
    }
    record.number(FAULT_SEVERITY, 0);
    apply_from_the_heap(record);
    ASSERT_THAT(fakes::notifications(), SizeIs(3));
    for (const fakes::Notification &notification : fakes::notifications()) {
      EXPECT_THAT(notification.varbinds, SizeIs(13));
    }
    ASSERT_EQ(tavoFaultTable_head, nullptr);
    ASSERT_TRUE(std::all_of(fault_database, fault_database + fault_bucket_count,
                            [](const auto *bucket) { return bucket == nullptr; }));
  }

  static void expect_served(std::uint32_t index) {
    std::vector<fakes::Oid> names;
    for (oid column = 2; column <= 22; ++column) {
      names.push_back(fakes::cell(fault_table, column, index));
    }
    const fakes::Response response = fakes::get(names);
    ASSERT_EQ(response.error_status, SNMP_ERR_NOERROR);
    for (const fakes::Answer &answer : response.answers) {
      EXPECT_NE(answer.value, fakes::no_such_instance) << fakes::dotted(answer.name);
      EXPECT_LE(answer.value.content.size(), 512U);
    }
  }
};

TEST_F(HostileRecordTest, EveryBitFlipped) {
  for (std::size_t bit = 0; bit < 8 * FAULT_RECORD_SIZE; ++bit) {
    FaultRecord record = fault(class_number::system_fan, 7, 3);
    record.octets[bit / 8] ^= std::byte{1} << (bit % 8);
    expect_a_whole_life(record, bit % 8 == 7);  // a request takes far longer than all the rest
    ASSERT_FALSE(HasFailure()) << "bit " << bit;
  }
}

TEST_F(HostileRecordTest, EndingAtEveryOctet) {
  for (std::size_t length = 0; length < FAULT_RECORD_SIZE; ++length) {
    for (const std::byte filler : {std::byte{0}, std::byte{0xFF}}) {
      FaultRecord record = fault(class_number::power_supply_fan, 7, 3);
      std::fill(record.octets.begin() + static_cast<std::ptrdiff_t>(length), record.octets.end(), filler);
      expect_a_whole_life(record);
      ASSERT_FALSE(HasFailure()) << "length " << length;
    }
  }
}

TEST_F(HostileRecordTest, OctetsAtRandom) {
  std::minstd_rand random(207);  // NOLINT(bugprone-random-generator-seed): the same records each time
  std::uniform_int_distribution<int> octet(0, 255);
  for (int round = 0; round < 1000; ++round) {
    FaultRecord record;
    for (std::byte &one : record.octets) {
      one = static_cast<std::byte>(octet(random));
    }
    expect_a_whole_life(record);
    ASSERT_FALSE(HasFailure()) << "round " << round;
  }
}

TEST_F(HostileRecordTest, ManyDifferentFaultsAtOnce) {
  constexpr std::uint32_t count = 3000;
  for (std::uint32_t index = 0; index < count; ++index) {
    apply_from_the_heap(fault(index * 2'654'435'761U, index, 3));
  }
  EXPECT_EQ(row_count(), count);
  for (std::uint32_t index = 0; index < count; ++index) {
    apply_from_the_heap(fault(index * 2'654'435'761U, index, 0));
  }
  EXPECT_THAT(listed_indexes(), IsEmpty());
}

}  // namespace
}  // namespace tavo
