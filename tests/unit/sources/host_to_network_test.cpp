#include "sources/stor_info.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <pthread.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "tests/fakes/mutexes.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/harness/eventually.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

using fakes::LogLine;
using testing::ElementsAre;

class HostToNetworkTest : public fakes::ModuleTest {
 protected:
  // Numbers the record's octets, converts it and returns it.
  static std::vector<unsigned char> converted() {
    std::vector<unsigned char> record = numbered();
    EXPECT_EQ(convert_host_to_network(record.data()), 1);
    return record;
  }
  static std::vector<unsigned char> numbered() {
    std::vector<unsigned char> record(STOR_CONTROLLER_SIZE);
    for (std::size_t i = 0; i < record.size(); ++i) {
      record[i] = static_cast<unsigned char>(i % 251);
    }
    return record;
  }
};

// Offsets of every 32-bit integer of a record.
std::vector<std::size_t> word_offsets() {
  std::vector<std::size_t> offsets = {0, 4};
  for (std::size_t at = 72; at < 104; at += 4) {
    offsets.push_back(at);
  }
  for (std::size_t at = 392; at < 440; at += 4) {
    offsets.push_back(at);
  }
  for (std::size_t drive = 0; drive < 256; ++drive) {
    for (const std::size_t field : {0, 4, 24, 28, 32}) {
      offsets.push_back(440 + 212 * drive + field);
    }
  }
  for (std::size_t volume = 0; volume < 64; ++volume) {
    offsets.push_back(54712 + 24 * volume);
    offsets.push_back(54712 + 24 * volume + 12);
  }
  for (std::size_t at = 56248; at < 56272; at += 4) {
    offsets.push_back(at);
  }
  return offsets;
}

TEST_F(HostToNetworkTest, Converts32BitIntegersAndNothingElse) {
  std::vector<unsigned char> expected = numbered();
  for (const std::size_t offset : word_offsets()) {
    std::uint32_t word;
    std::memcpy(&word, &expected[offset], sizeof word);
    word = htonl(word);
    std::memcpy(&expected[offset], &word, sizeof word);
  }
  EXPECT_EQ(converted(), expected);
}

TEST_F(HostToNetworkTest, TwiceIsBackAgain) {
  std::vector<unsigned char> record = converted();
  convert_host_to_network(record.data());
  EXPECT_EQ(record, numbered());
}

TEST_F(HostToNetworkTest, WaitsForItsMutexBeforeItConverts) {
  std::vector<unsigned char> record = converted();
  auto *const conversion_mutex = static_cast<pthread_mutex_t *>(const_cast<void *>(fakes::last_locked_mutex()));
  ASSERT_NE(conversion_mutex, nullptr);
  ASSERT_EQ(pthread_mutex_lock(conversion_mutex), 0);
  record = numbered();
  std::atomic<bool> waits = false;
  std::thread other([&] {
    fakes::before_next_mutex_lock([&] { waits = fakes::last_locked_mutex() == conversion_mutex; });
    convert_host_to_network(record.data());
  });
  EXPECT_TRUE(eventually([&] { return waits.load(); }));
  EXPECT_EQ(record, numbered());
  pthread_mutex_unlock(conversion_mutex);
  other.join();
  EXPECT_EQ(record, converted());
}

TEST_F(HostToNetworkTest, ANullRecordIsLoggedAndGivesZero) {
  EXPECT_EQ(convert_host_to_network(nullptr), 0);
  EXPECT_THAT(fakes::log_lines(),
              ElementsAre(LogLine{LOG_ERR, "From convert_host_to_network, Some of the pointers are NULL\n"}));
}

}  // namespace
}  // namespace tavo
