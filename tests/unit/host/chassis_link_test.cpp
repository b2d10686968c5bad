#include "host/chassis_link.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/exit_status.h"
#include "tests/harness/eventually.h"
#include "tests/harness/threaded.h"
#include "tests/unit/host/recorded_log.h"

namespace tavo {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

// What a module exports, and how often its thread was created, stopped and joined.
struct FakeModule {
  int created = 0;
  int stopped = 0;
  int joined = 0;
  int create_result = 0;
  pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
  unsigned char *block = nullptr;
  int32_t block_size = 0;
  int32_t listener = -1;
  int32_t connection = -1;
};

FakeModule *module = nullptr;

class ChassisLinkTest : public testing::Test {
 protected:
  ChassisLinkTest() {
    module = &fake_;
    std::string directory = testing::TempDir() + "chassis-link-XXXXXX";
    directory_ = mkdtemp(directory.data());
    file_ = directory_ / "block";
    reads_ = inotify_init1(IN_CLOEXEC);
    inotify_add_watch(reads_, directory_.c_str(), IN_CLOSE_NOWRITE);
  }
  ~ChassisLinkTest() override {
    close(reads_);
    std::filesystem::remove_all(directory_);
    module = nullptr;
  }

  ChassisLinkExports exports() {
    return {
        .create_thread = [] { return ++module->created, module->create_result; },
        .stop_thread = [] { ++module->stopped; },
        .join_thread = [] { return ++module->joined, 0; },
        .lock = &fake_.lock,
        .block = &fake_.block,
        .block_size = &fake_.block_size,
        .listener = &fake_.listener,
        .connection = &fake_.connection,
    };
  }

  // Renames a draft into place, so that a reader sees either the old content or the new one.
  void write(const std::string &content) const {
    const auto draft = directory_ / "draft";
    std::ofstream(draft, std::ios::binary) << content;
    std::filesystem::rename(draft, file_);
  }

  std::string block() {
    pthread_mutex_lock(&fake_.lock);
    const std::string content(fake_.block, fake_.block + fake_.block_size);
    pthread_mutex_unlock(&fake_.lock);
    return content;
  }

  bool becomes(const std::string &content) {
    return eventually([&] { return block() == content; });
  }

  // Waits until a file in the directory has been read and closed since the last call.
  bool file_is_read() const {
    pollfd readable{.fd = reads_, .events = POLLIN, .revents = 0};
    std::array<char, 4096> events{};
    return poll(&readable, 1, 10'000) == 1 && read(reads_, events.data(), events.size()) > 0;
  }

  // The message for a link that cannot be constructed.
  std::string refusal() {
    try {
      const ChassisLink link(exports(), file_);
    } catch (const StartFailure &failure) {
      EXPECT_EQ(failure.status(), ExitStatus::Configuration);
      return failure.what();
    }
    return "";
  }

  static void stop(ChassisLink &link) {
    link.ask_to_stop();
    link.close();
  }

  FakeModule fake_;
  std::filesystem::path directory_;
  std::filesystem::path file_;
  int reads_;
  const RecordedLog log_;
};

TEST_F(ChassisLinkTest, TheFirstBlockWaitsForTheLock) {
  write("first");
  pthread_mutex_lock(&fake_.lock);
  std::atomic<bool> constructed = false;
  std::thread constructor([&] {
    const ChassisLink link(exports(), file_);
    constructed = true;
  });
  EXPECT_TRUE(file_is_read());
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_FALSE(constructed);
  EXPECT_EQ(fake_.block, nullptr);
  pthread_mutex_unlock(&fake_.lock);
  constructor.join();
}

TEST_F(ChassisLinkTest, TheModuleHasTheBlockAsLongAsTheLinkExists) {
  const std::string content("\0a block\n\xff", 10);
  write(content);
  {
    ChassisLink link(exports(), file_);
    EXPECT_EQ(block(), content);
    EXPECT_EQ(fake_.created, 0);
    link.start();
    EXPECT_EQ(fake_.created, 1);
    stop(link);
    EXPECT_EQ(fake_.stopped, 1);
    EXPECT_EQ(fake_.joined, 1);
  }
  EXPECT_EQ(fake_.block, nullptr);
  EXPECT_EQ(fake_.block_size, 0);
}

TEST_F(ChassisLinkTest, ALinkThatWasNotStartedIsNotStopped) {
  write("block");
  { const ChassisLink link(exports(), file_); }
  EXPECT_EQ(fake_.stopped + fake_.joined, 0);
  EXPECT_EQ(fake_.block, nullptr);
}

TEST_F(ChassisLinkTest, AnEmptyFileIsABlockOfNoOctets) {
  write("");
  const ChassisLink link(exports(), file_);
  EXPECT_EQ(fake_.block_size, 0);
}

TEST_F(ChassisLinkTest, WhatIsNotARegularFileIsRefusedByName) {
  EXPECT_THAT(refusal(), AllOf(HasSubstr(file_), HasSubstr("No such file or directory")));
  std::filesystem::create_directory(file_);
  EXPECT_THAT(refusal(), AllOf(HasSubstr(file_), HasSubstr("not a regular file")));
  std::filesystem::remove(file_);
  mkfifo(file_.c_str(), 0600);
  EXPECT_THAT(refusal(), AllOf(HasSubstr(file_), HasSubstr("not a regular file")));
}

TEST_F(ChassisLinkTest, ABlockMayHaveSixteenMebibytesAndNoMore) {
  write("");
  std::filesystem::resize_file(file_, ChassisLink::largest_block);
  {
    const ChassisLink link(exports(), file_);
    EXPECT_EQ(fake_.block_size, 16 * 1024 * 1024);
  }
  std::filesystem::resize_file(file_, ChassisLink::largest_block + 1);
  EXPECT_THAT(refusal(), AllOf(HasSubstr(file_), HasSubstr("larger than 16777216 octets")));
}

TEST_F(ChassisLinkTest, TheStartFailsWhenAThreadCannotBeCreated) {
  write("block");
  fake_.create_result = -1;
  ChassisLink link(exports(), file_);
  EXPECT_THROW(link.start(), StartFailure);
}

TEST_F(ChassisLinkTest, WithoutAReplacerTheLinksThreadIsNotCreated) {
  write("block");
  ChassisLink link(exports(), file_);
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_getattr_default_np(&attributes), 0);
  std::size_t stack_size = 0;
  pthread_attr_getstacksize(&attributes, &stack_size);
  pthread_attr_setstacksize(&attributes, SIZE_MAX / 8 * 7);  // more than any program has left
  pthread_setattr_default_np(&attributes);
  EXPECT_THROW(link.start(), StartFailure);
  pthread_attr_setstacksize(&attributes, stack_size);
  pthread_setattr_default_np(&attributes);
  pthread_attr_destroy(&attributes);
  EXPECT_EQ(fake_.created, 0);
}

TEST_F(ChassisLinkTest, AReloadReplacesTheBlockAndLogsIt) {
  write("first");
  ChassisLink link(exports(), file_);
  link.start();
  for (const char *content : {"second, and longer", "", "third"}) {
    write(content);
    link.reload();
    EXPECT_TRUE(becomes(content)) << content;
  }
  stop(link);
  const std::string from = " octets from " + file_.string();
  EXPECT_THAT(log_.lines(), ElementsAre("6 the chassis link sends 5" + from + "\n",
                                        "6 the chassis link's block is 18" + from + " now\n",
                                        "6 the chassis link's block is 0" + from + " now\n",
                                        "6 the chassis link's block is 5" + from + " now\n"));
}

TEST_F(ChassisLinkTest, AnUnreadableFileLeavesTheBlockAndLogsAWarning) {
  write("first");
  ChassisLink link(exports(), file_);
  link.start();
  std::filesystem::remove(file_);
  link.reload();
  ASSERT_TRUE(eventually([this] { return log_.lines().size() == 2; }));
  EXPECT_EQ(log_.lines()[1], "4 cannot read the chassis link's block " + file_.string() +
                                 ": No such file or directory; the block stays as it was\n");
  EXPECT_EQ(block(), "first");
  write("second");
  link.reload();
  EXPECT_TRUE(becomes("second"));
  stop(link);
}

// The test holds the lock, as a send does. The block is "first".
class ChassisLinkUnderASendTest : public ChassisLinkTest {
 protected:
  void SetUp() override {
    write("first");
    link_.emplace(exports(), file_);
    ASSERT_TRUE(file_is_read());
    link_->start();
    pthread_mutex_lock(&fake_.lock);
  }

  void end_send() { pthread_mutex_unlock(&fake_.lock); }

  // Makes the link read new content, which then waits for the send to end.
  void reload(const char *content) {
    write(content);
    link_->reload();
    EXPECT_TRUE(file_is_read()) << content;
  }

  std::string block_being_sent() const { return {fake_.block, fake_.block + fake_.block_size}; }

  std::optional<ChassisLink> link_;
};

TEST_F(ChassisLinkUnderASendTest, TheNewestContentReplacesTheBlockAfterwards) {
  for (const char *content : {"second", "third", "fourth"}) {
    reload(content);
  }
  EXPECT_EQ(block_being_sent(), "first");
  end_send();
  EXPECT_TRUE(becomes("fourth"));
  stop(*link_);
  EXPECT_EQ(log_.lines().size(), 2U) << "the contents in between never became the block";
}

TEST_F(ChassisLinkUnderASendTest, WhatIsReplacedUnreadNeverBecomesTheBlock) {
  reload("second");
  write("third");
  link_->reload();
  end_send();
  EXPECT_TRUE(becomes("third"));
  stop(*link_);
  EXPECT_EQ(log_.lines().size(), 2U);
}

TEST_F(ChassisLinkUnderASendTest, TheSendsEndIsAwaitedWithoutHaste) {
  reload("second");
  const std::clock_t before = std::clock();  // of the processor's time
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC / 20);
  end_send();
  EXPECT_TRUE(becomes("second"));
  stop(*link_);
}

TEST_F(ChassisLinkUnderASendTest, AFileRemovedAfterItWasReadChangesNothing) {
  reload("second");
  std::filesystem::remove(file_);
  link_->reload();
  EXPECT_TRUE(eventually([this] { return log_.lines().size() == 2; }));
  end_send();
  EXPECT_TRUE(becomes("second"));
  stop(*link_);
}

TEST_F(ChassisLinkUnderASendTest, TheStopDoesNotWaitForTheSend) {
  reload("second");
  stop(*link_);
  EXPECT_EQ(block_being_sent(), "first");
  end_send();
}

TEST_F(ChassisLinkTest, WakingShutsBothSocketsDown) {
  write("block");
  ChassisLink link(exports(), file_);
  link.wake();  // harmless without a descriptor
  std::array<int, 2> first{};
  std::array<int, 2> second{};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, first.data()), 0);
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, second.data()), 0);
  fake_.listener = first[0];
  fake_.connection = second[0];
  link.wake();
  for (const int descriptor : {first[0], second[0]}) {
    char octet = 0;
    EXPECT_EQ(recv(descriptor, &octet, 1, MSG_DONTWAIT), 0);
    EXPECT_EQ(send(descriptor, &octet, 1, MSG_DONTWAIT | MSG_NOSIGNAL), -1);
  }
  for (const int descriptor : {first[0], first[1], second[0], second[1]}) {
    close(descriptor);
  }
  fake_.listener = fake_.connection = -1;
}

// The daemon's start may fail after the link has started. Nobody has joined the link's thread then, and it may accept a
// peer and send to it just as it is woken.
TEST_F(ChassisLinkTest, DestructionCutsOffASendThatJustBegins) {
  write("block");
  std::array<int, 2> listener{};
  std::array<int, 2> connection{};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, listener.data()), 0);
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, connection.data()), 0);
  std::promise<void> locked;
  std::thread link_thread;
  {
    ChassisLink link(exports(), file_);
    link.start();
    fake_.listener = listener[0];
    link_thread = std::thread([&] {
      pthread_mutex_lock(&fake_.lock);
      locked.set_value();
      char octet = 0;
      recv(listener[0], &octet, 1, 0);
      std::atomic_ref(fake_.connection).store(connection[0]);
      recv(connection[0], &octet, 1, 0);
      pthread_mutex_unlock(&fake_.lock);
    });
    locked.get_future().wait();
  }
  EXPECT_EQ(fake_.block, nullptr);
  link_thread.join();
  for (const int descriptor : {listener[0], listener[1], connection[0], connection[1]}) {
    close(descriptor);
  }
}

}  // namespace
}  // namespace tavo
