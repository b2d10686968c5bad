#include "sources/stor_info.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "tests/fakes/allocation.h"
#include "tests/fakes/files.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/fixtures/storage_snapshot.h"

namespace tavo {
namespace {

using fakes::controller;
using fakes::LogLine;
using fakes::snapshot;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char *path = "/var/stor_info_data";

LogLine cannot_open() {
  return {LOG_ERR, "Unable to open /var/stor_info_data\n"};
}
LogLine no_count() {
  return {LOG_ERR, "Unable to read ctrl_count from /var/stor_info_data\n"};
}
LogLine no_record(int index) {
  return {LOG_ERR, "Unable to read ctrl from /var/stor_info_data for index " + std::to_string(index) + "\n"};
}
LogLine no_memory() {
  return {LOG_ERR, "Unable to get memory\n"};
}

class StorInfoTest : public fakes::ModuleTest {
 protected:
  StorInfoTest() { head_stor_ptr = nullptr; }
  static std::vector<std::string> locations() {
    std::vector<std::string> list;
    for (const auto *at = head_stor_ptr; at != nullptr; at = at->next) {
      list.emplace_back(ControllerRecord(*at).location());
    }
    return list;
  }

  static std::size_t length() { return locations().size(); }

  fakes::FakeFiles files_;
};

TEST_F(StorInfoTest, RecordsStandInTheFilesOrder) {
  files_.write(path, snapshot({controller("A"), controller(""), controller("C")}));
  EXPECT_EQ(get_stor_info(&head_stor_ptr), 1);
  EXPECT_THAT(locations(), ElementsAre("A", "SAS", "C"));
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

TEST_F(StorInfoTest, ARecordIsKeptOctetByOctetWithItsLinkBehindIt) {
  fakes::StorRecord record;
  for (std::size_t i = 0; i < record.octets.size(); ++i) {
    record.octets[i] = static_cast<std::byte>(i * 7 + i / 256 + 1);
  }
  files_.write(path, snapshot({record}));
  ASSERT_EQ(get_stor_info(&head_stor_ptr), 1);
  EXPECT_TRUE(std::ranges::equal(head_stor_ptr->record, record.octets));
  EXPECT_EQ(reinterpret_cast<std::byte *>(&head_stor_ptr->next) - head_stor_ptr->record, 56272);
  EXPECT_EQ(head_stor_ptr->next, nullptr);
}

TEST_F(StorInfoTest, AMissingFileIsLoggedAndLeavesTheHeadAlone) {
  auto *const untouched = reinterpret_cast<StorController *>(&files_);
  StorController *head = untouched;
  EXPECT_EQ(get_stor_info(&head), 0);
  EXPECT_EQ(head, untouched);
  EXPECT_THAT(fakes::log_lines(), ElementsAre(cannot_open()));
}

TEST_F(StorInfoTest, AFileThatMayNotBeOpenedIsLogged) {
  files_.write(path, snapshot({controller("A")}));
  fakes::refuse_open(path, EACCES);
  EXPECT_EQ(get_stor_info(&head_stor_ptr), 0);
  EXPECT_THAT(fakes::log_lines(), ElementsAre(cannot_open()));
}

TEST_F(StorInfoTest, AFileWithoutAWholeCountIsLoggedAndKeepsTheHead) {
  auto *const untouched = reinterpret_cast<StorController *>(&files_);
  for (std::size_t length = 0; length < 4; ++length) {
    fakes::reset_net_snmp();
    files_.write(path, std::string(length, '\1'));
    StorController *head = untouched;
    EXPECT_EQ(get_stor_info(&head), 0);
    EXPECT_EQ(head, untouched);
    EXPECT_THAT(fakes::log_lines(), ElementsAre(no_count())) << length;
  }
}

TEST_F(StorInfoTest, ACountOfNoneNullsTheHeadWithoutAMessage) {
  for (const std::int32_t count : {0, -1, std::numeric_limits<std::int32_t>::min()}) {
    files_.write(path, snapshot(count, {}));
    StorController *head = reinterpret_cast<StorController *>(&files_);
    EXPECT_EQ(get_stor_info(&head), 0);
    EXPECT_EQ(head, nullptr) << count;
  }
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

TEST_F(StorInfoTest, ACountOfNoneIsBelievedWhateverFollows) {
  files_.write(path, snapshot(0, {controller("A")}));
  EXPECT_EQ(get_stor_info(&head_stor_ptr), 0);
  EXPECT_EQ(head_stor_ptr, nullptr);
}

TEST_F(StorInfoTest, MoreRecordsThanTheCountAreNotRead) {
  files_.write(path, snapshot(1, {controller("A"), controller("B")}));
  EXPECT_EQ(get_stor_info(&head_stor_ptr), 1);
  EXPECT_THAT(locations(), ElementsAre("A"));
}

TEST_F(StorInfoTest, TheFirstMissingRecordIsNamedAndThoseBeforeItStay) {
  files_.write(path, snapshot(2, {controller("A")}));
  EXPECT_EQ(get_stor_info(&head_stor_ptr), 0);
  EXPECT_THAT(locations(), ElementsAre("A"));
  EXPECT_THAT(fakes::log_lines(), ElementsAre(no_record(2)));
}

TEST_F(StorInfoTest, ACountOfTwoThousandMillionReadsWhatIsThere) {
  files_.write(path, snapshot(std::numeric_limits<std::int32_t>::max(), {controller("A"), controller("B")}));
  EXPECT_EQ(get_stor_info(&head_stor_ptr), 0);
  EXPECT_EQ(length(), 2U);
  EXPECT_THAT(fakes::log_lines(), ElementsAre(no_record(3)));
}

// Every length at which a part of the file begins or ends, and lengths spread over the rest: at least 200.
std::set<std::size_t> truncations(std::size_t whole) {
  std::set<std::size_t> lengths;
  for (const std::size_t record : {std::size_t{4}, std::size_t{4} + STOR_CONTROLLER_SIZE}) {
    for (const std::size_t offset : {0, 4, 8, 72, 416, 428, 440, 652, 54712, 54736, 56248, 56264, 56268, 56272}) {
      for (const int beside : {-1, 0, 1}) {
        lengths.insert(record + offset + static_cast<std::size_t>(beside));
      }
    }
  }
  for (std::size_t length = 0; length < whole; length += 829) {
    lengths.insert(length);
  }
  std::erase_if(lengths, [whole](std::size_t length) { return length >= whole; });
  return lengths;
}

TEST_F(StorInfoTest, AFileTruncatedAnywhereGivesTheRecordsBeforeTheCut) {
  const std::string whole = snapshot({controller("A", {fakes::drive_in(1)}), controller("B")});
  const auto lengths = truncations(whole.size());
  ASSERT_GE(lengths.size(), 200U);
  for (const std::size_t size : lengths) {
    fakes::reset_net_snmp();
    files_.write(path, whole.substr(0, size));
    EXPECT_EQ(get_stor_info(&head_stor_ptr), 0);
    const std::size_t records = size < 4 ? 0 : (size - 4) / STOR_CONTROLLER_SIZE;
    EXPECT_EQ(length(), records) << size;
    EXPECT_THAT(fakes::log_lines(), ElementsAre(size < 4 ? no_count() : no_record(static_cast<int>(records) + 1)));
    free_stor_info(head_stor_ptr);
  }
}

TEST_F(StorInfoTest, EveryFlippedOctetOfTheCountGivesWhatIsThere) {
  const std::string whole = snapshot({controller("A"), controller("B")});
  for (std::size_t at = 0; at < 4; ++at) {
    for (int flip = 1; flip < 256; ++flip) {
      std::string damaged = whole;
      damaged[at] = static_cast<char>(damaged[at] ^ flip);
      files_.write(path, damaged);
      const std::int32_t count = Record(std::as_bytes(std::span<const char>(damaged)).first(4)).i32(0);
      EXPECT_EQ(get_stor_info(&head_stor_ptr), count >= 1 && count <= 2 ? 1 : 0) << count;
      EXPECT_EQ(length(), static_cast<std::size_t>(std::clamp(count, 0, 2))) << count;
      free_stor_info(head_stor_ptr);
    }
  }
}

TEST_F(StorInfoTest, CountsInsideARecordAreBelievedUpToItsRoom) {
  struct Case {
    std::int32_t count;
    std::size_t drives;
    std::size_t volumes;
  };
  for (const Case &expected : std::to_array<Case>({{0, 0, 0},
                                                   {1, 1, 1},
                                                   {64, 64, 64},
                                                   {65, 65, 64},
                                                   {256, 256, 64},
                                                   {257, 256, 64},
                                                   {std::numeric_limits<std::int32_t>::max(), 256, 64},
                                                   {-1, 0, 0},
                                                   {std::numeric_limits<std::int32_t>::min(), 0, 0}})) {
    auto record = controller("A");
    record.number(STOR_CONTROLLER_DRIVE_COUNT, static_cast<std::uint32_t>(expected.count));
    record.number(STOR_CONTROLLER_VOLUME_COUNT, static_cast<std::uint32_t>(expected.count));
    files_.write(path, snapshot({record}));
    ASSERT_EQ(get_stor_info(&head_stor_ptr), 1);
    const ControllerRecord read(*head_stor_ptr);
    EXPECT_EQ(read.drive_count(), expected.drives) << expected.count;
    EXPECT_EQ(read.volume_count(), expected.volumes) << expected.count;
    free_stor_info(head_stor_ptr);
  }
}

TEST_F(StorInfoTest, TheLastDriveAndTheLastVolumeEndWithinTheRecord) {
  auto record = controller("A");
  record.number(STOR_CONTROLLER_DRIVE_COUNT, 256).number(STOR_CONTROLLER_VOLUME_COUNT, 64);
  record.number(STOR_CONTROLLER_DRIVES + 255 * STOR_DRIVE_SIZE + STOR_DRIVE_SLOT, 9);
  record.number(56248 - 8, 0x1122334455667788, 8);
  files_.write(path, snapshot({record}));
  ASSERT_EQ(get_stor_info(&head_stor_ptr), 1);
  const ControllerRecord read(*head_stor_ptr);
  EXPECT_EQ(read.drive(255).u32(STOR_DRIVE_SLOT), 9U);
  EXPECT_EQ(read.drive(255).size(), 212U);
  EXPECT_EQ(read.volume(63).u64(STOR_VOLUME_CAPACITY_WORD), 0x1122334455667788U);
  EXPECT_EQ(read.volume(63).size(), 24U);
}

TEST_F(StorInfoTest, ALocationThatFillsItsFieldEndsWithIt) {
  const std::string location(STOR_CONTROLLER_LOCATION_SIZE, 'L');
  files_.write(path, snapshot({controller(location).number(72, 0x58585858)}));
  ASSERT_EQ(get_stor_info(&head_stor_ptr), 1);
  EXPECT_THAT(locations(), ElementsAre(location));
}

TEST_F(StorInfoTest, AFifoInItsPlaceIsUnreadableAndNotWaitedFor) {
  const std::string fifo = fakes::FakeFiles::real_path(path);
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(get_stor_info(&head_stor_ptr), 0);
  const int writer = open(fifo.c_str(), O_RDWR | O_CLOEXEC);
  EXPECT_EQ(get_stor_info(&head_stor_ptr), 0);
  close(writer);
  EXPECT_THAT(fakes::log_lines(), ElementsAre(no_count(), no_count()));
}

TEST_F(StorInfoTest, ADirectoryInItsPlaceIsUnreadable) {
  files_.make_directory(path);
  EXPECT_EQ(get_stor_info(&head_stor_ptr), 0);
  EXPECT_EQ(head_stor_ptr, nullptr);
  EXPECT_THAT(fakes::log_lines(), ElementsAre(no_count()));
}

TEST_F(StorInfoTest, ASparseFileOfFourGibibytesIsAnEmptyCount) {
  files_.write(path, "");
  ASSERT_EQ(truncate(fakes::FakeFiles::real_path(path).c_str(), off_t{1} << 32), 0);
  EXPECT_EQ(get_stor_info(&head_stor_ptr), 0);
  EXPECT_EQ(head_stor_ptr, nullptr);
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

long peak_memory_kib() {
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

TEST_F(StorInfoTest, ASparseFileThatPromisesTooMuchIsReadUpToABound) {
  files_.write(path, snapshot(std::numeric_limits<std::int32_t>::max(), {}));
  ASSERT_EQ(truncate(fakes::FakeFiles::real_path(path).c_str(), off_t{1} << 32), 0);
  const long before = peak_memory_kib();
  EXPECT_EQ(get_stor_info(&head_stor_ptr), 0);
  EXPECT_LT(peak_memory_kib() - before, 512 * 1024);
  EXPECT_EQ(length(), 1024U);
  EXPECT_THAT(fakes::log_lines(), ElementsAre(no_memory()));
}

TEST_F(StorInfoTest, WithoutMemoryTheRecordsBeforeStay) {
  files_.write(path, snapshot({controller("A"), controller("B"), controller("C")}));
  fakes::fail_allocations(2, 1);
  EXPECT_EQ(get_stor_info(&head_stor_ptr), 0);
  EXPECT_EQ(fakes::failed_allocations(), 1);
  EXPECT_THAT(locations(), ElementsAre("A", "B"));
  EXPECT_THAT(fakes::log_lines(), ElementsAre(no_memory()));
}

TEST_F(StorInfoTest, ARecordIsAllocatedOnlyAfterItWasRead) {
  files_.write(path, snapshot(2, {controller("A")}));
  fakes::fail_allocations(1);
  EXPECT_EQ(get_stor_info(&head_stor_ptr), 0);
  EXPECT_EQ(fakes::failed_allocations(), 0);
}

TEST_F(StorInfoTest, NoDescriptorIsLeftOpen) {
  files_.write(path, snapshot(2, {controller("A")}));
  const int next = dup(0);
  close(next);
  for (int i = 0; i < 3; ++i) {
    get_stor_info(&head_stor_ptr);
    free_stor_info(head_stor_ptr);
  }
  const int afterwards = dup(0);
  close(afterwards);
  EXPECT_EQ(afterwards, next);
}

TEST_F(StorInfoTest, FreeingLeavesANullHead) {
  files_.write(path, snapshot({controller("A"), controller("B")}));
  ASSERT_EQ(get_stor_info(&head_stor_ptr), 1);
  free_stor_info(head_stor_ptr);
  EXPECT_EQ(head_stor_ptr, nullptr);
  free_stor_info(head_stor_ptr);
  EXPECT_EQ(head_stor_ptr, nullptr);
}

TEST_F(StorInfoTest, TheDaemonsOwnGlobalsAreZeroAndOfTheirSize) {
  EXPECT_EQ(flag_compat_stor_found, 0U);
  EXPECT_EQ(sizeof flag_compat_stor_found, 4U);
  EXPECT_EQ(sizeof tmp_raid_ptr, 1024U);
  EXPECT_THAT(tmp_raid_ptr, Each(0));
}

TEST_F(StorInfoTest, ASignalDoesNotEndTheSnapshot) {
  files_.write(path, fakes::snapshot({fakes::controller("A"), fakes::controller("B")}));
  for (int times = 1; times < 4; ++times) {
    fakes::interrupt_reads(times);
    EXPECT_EQ(get_stor_info(&head_stor_ptr), 1);
    free_stor_info(head_stor_ptr);
  }
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

}  // namespace
}  // namespace tavo
