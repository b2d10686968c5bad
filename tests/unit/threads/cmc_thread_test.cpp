#include "threads/cmc_thread.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/fakes/module_test.h"
#include "tests/unit/fakes/net_snmp.h"
#include "tests/unit/fakes/threads.h"

namespace {

using fakes::LogLine;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::chrono::seconds limit(20);

// Waits until `done` holds; false when the limit passes first.
template <class Condition>
bool eventually(Condition done) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::yield();
  }
  return true;
}

// Moves the process to a network of its own, so that the link's port is free whatever else runs on this machine. False
// when the system does not allow it.
bool enter_private_network() {
  if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
    return false;
  }
  ifreq loopback{};
  std::strcpy(loopback.ifr_name, "lo");
  loopback.ifr_flags = IFF_UP | IFF_RUNNING;
  const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const bool up = ioctl(descriptor, SIOCSIFFLAGS, &loopback) == 0;
  close(descriptor);
  return up;
}

class ChassisLinkTest : public fakes::ModuleTest {
 protected:
  void SetUp() override {
    if (!enter_private_network()) {
      GTEST_SKIP() << "no network of one's own: " << std::strerror(errno);
    }
  }

  // The link lives as long as the process, unless its sockets fail.
  void TearDown() override {
    if (!started_) {
      return;
    }
    ASSERT_TRUE(eventually([] {
      shutdown(std::atomic_ref(data_fd).load(), SHUT_RDWR);
      shutdown(std::atomic_ref(sock_fd).load(), SHUT_RDWR);
      return std::atomic_ref(sock_fd).load() == -1;
    }));
    join_cmc_thread();
  }

  void start() {
    started_ = true;
    ASSERT_EQ(create_cmc_thread(), 0);
    ASSERT_TRUE(fakes::wait_for_log("CMCThread initiated\n"));
  }

  void set_block(std::string block) {
    pthread_mutex_lock(&cmc_lock);
    block_ = std::move(block);
    cmc_data_buffer = reinterpret_cast<unsigned char *>(block_.data());
    transfer_data_len = static_cast<int32_t>(block_.size());
    pthread_mutex_unlock(&cmc_lock);
  }

  // A connection to the link, which may still be in the backlog.
  static int connect_client() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(25678);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int descriptor = -1;
    EXPECT_TRUE(eventually([&] {
      descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
      if (connect(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0) {
        return true;
      }
      close(descriptor);
      return false;
    }));
    return descriptor;
  }

  static std::string receive(int descriptor, std::size_t octets) {
    std::string received(octets, '\0');
    std::size_t got = 0;
    while (got < octets) {
      pollfd waiting = {.fd = descriptor, .events = POLLIN, .revents = 0};
      if (poll(&waiting, 1, 20000) <= 0) {
        break;
      }
      const ssize_t part = recv(descriptor, received.data() + got, octets - got, 0);
      if (part <= 0) {
        break;
      }
      got += static_cast<std::size_t>(part);
    }
    received.resize(got);
    return received;
  }

 private:
  std::string block_;
  bool started_ = false;
};

TEST_F(ChassisLinkTest, APeerGetsTheBlockWhenItConnectsAndAfterEachMessage) {
  set_block("inventory block");
  start();
  const int peer = connect_client();
  EXPECT_EQ(receive(peer, 15), "inventory block");
  ASSERT_EQ(send(peer, "x", 1, 0), 1);
  EXPECT_EQ(receive(peer, 15), "inventory block");
  EXPECT_TRUE(fakes::wait_for_log("\nSend successful\n", 2));
  EXPECT_THAT(fakes::log_lines(), testing::Contains(LogLine{LOG_DEBUG, "\nSend successful\n"}).Times(2));
  close(peer);
}

TEST_F(ChassisLinkTest, WithoutABlockNothingIsSentAndThatIsASuccess) {
  start();
  const int peer = connect_client();
  ASSERT_TRUE(fakes::wait_for_log("\nSend successful\n"));
  pollfd waiting = {.fd = peer, .events = POLLIN, .revents = 0};
  EXPECT_EQ(poll(&waiting, 1, 50), 0);
  close(peer);
}

TEST_F(ChassisLinkTest, ALargeBlockArrivesWhole) {
  std::string block(200000, '\0');
  for (std::size_t i = 0; i < block.size(); ++i) {
    block[i] = static_cast<char>(i * 31 >> 3);
  }
  set_block(block);
  start();
  const int peer = connect_client();
  EXPECT_EQ(receive(peer, block.size()), block);
  close(peer);
}

TEST_F(ChassisLinkTest, ABurstOfThreeThousandOctetsIsAnsweredAtMostThreeTimes) {
  set_block("b");
  start();
  const int peer = connect_client();
  EXPECT_EQ(receive(peer, 1), "b");
  const std::string burst(3000, 'x');
  ASSERT_EQ(send(peer, burst.data(), burst.size(), 0), 3000);
  EXPECT_EQ(receive(peer, 3), "bbb") << "loopback hands a burst over at once: one receive of 1024 octets each";
  close(peer);
}

TEST_F(ChassisLinkTest, ASecondPeerWaitsUntilTheFirstHasGone) {
  set_block("block");
  start();
  const int first = connect_client();
  EXPECT_EQ(receive(first, 5), "block");
  const int second = connect_client();
  pollfd waiting = {.fd = second, .events = POLLIN, .revents = 0};
  EXPECT_EQ(poll(&waiting, 1, 100), 0) << "in the backlog";
  close(first);
  EXPECT_EQ(receive(second, 5), "block");
  close(second);
}

TEST_F(ChassisLinkTest, APeerThatGoesAwayDuringASendDoesNotEndTheProcess) {
  std::string block(8 << 20, 'x');
  set_block(block);
  start();
  const int peer = connect_client();
  EXPECT_EQ(receive(peer, 1000).size(), 1000U);
  const linger reset = {.l_onoff = 1, .l_linger = 0};
  setsockopt(peer, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
  close(peer);
  ASSERT_TRUE(fakes::wait_for_log("Send failed...\n"));
  ASSERT_TRUE(fakes::wait_for_log("\nSend failed\n"));
  EXPECT_THAT(fakes::log_lines(), testing::Contains(LogLine{LOG_ERR, "Send failed...\n"}));

  set_block("small");
  const int next = connect_client();
  EXPECT_EQ(receive(next, 5), "small");
  close(next);
}

TEST_F(ChassisLinkTest, ThousandsOfConnectionsLeaveNoDescriptorBehind) {
  set_block("block");
  start();
  const int before = connect_client();
  EXPECT_EQ(receive(before, 5), "block");
  close(before);
  ASSERT_TRUE(eventually([] { return std::atomic_ref(data_fd).load() == -1; }));
  const int probe = dup(0);
  close(probe);
  constexpr int connections = 2000;
  for (int i = 0; i < connections; ++i) {
    const int peer = connect_client();
    ASSERT_EQ(receive(peer, 5), "block") << i;
    close(peer);
  }
  ASSERT_TRUE(eventually([] { return std::atomic_ref(data_fd).load() == -1; }));
  const int again = dup(0);
  EXPECT_EQ(again, probe) << "the lowest free descriptor is the same";
  close(again);
}

TEST_F(ChassisLinkTest, APortThatIsTakenEndsTheThread) {
  const int taken = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(25678);
  address.sin_addr.s_addr = htonl(INADDR_ANY);
  ASSERT_EQ(bind(taken, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
  ASSERT_EQ(listen(taken, 1), 0);
  ASSERT_EQ(create_cmc_thread(), 0);
  EXPECT_EQ(join_cmc_thread(), 0);
  EXPECT_THAT(fakes::log_lines(),
              ElementsAre(LogLine{LOG_DEBUG, "CMCThread initiated\n"}, LogLine{LOG_ERR, "\nbind failed\n"},
                          LogLine{LOG_DEBUG, "CMCThread exited\n"}));
  EXPECT_EQ(sock_fd, -1);
  close(taken);
}

TEST_F(ChassisLinkTest, SayingThatThereIsNothingToSendIsASuccess) {
  EXPECT_EQ(data_fd, -1);
  EXPECT_EQ(send_to_cmc(), 1);
  EXPECT_EQ(transfer_data_len, 0);
  EXPECT_EQ(cmc_data_buffer, nullptr);
}

class KeepaliveTest : public fakes::ModuleTest {};

TEST_F(KeepaliveTest, SetsEveryOption) {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  EXPECT_EQ(setup_tcp_keepalive(&fd, 5, 30, 31, 1), 0);
  const auto option = [fd](int level, int name) {
    int value = 0;
    socklen_t size = sizeof value;
    getsockopt(fd, level, name, &value, &size);
    return value;
  };
  EXPECT_EQ(option(IPPROTO_TCP, TCP_KEEPCNT), 5);
  EXPECT_EQ(option(IPPROTO_TCP, TCP_KEEPIDLE), 30);
  EXPECT_EQ(option(IPPROTO_TCP, TCP_KEEPINTVL), 31);
  EXPECT_EQ(option(SOL_SOCKET, SO_KEEPALIVE), 1);
  close(fd);
}

// An option out of range fails, and so ends what comes before it in the order.
TEST_F(KeepaliveTest, TheFirstOptionThatFailsClosesTheSocket) {
  struct Failure {
    int count, idle, interval;
    const char *text;
  };
  for (const Failure &failure :
       {Failure{0, 30, 30, "setsockopt failed with error to enable keep alive count: %s\n"},
        Failure{5, 0, 30, "setsockopt failed with error to enable keep alive idle time: %s\n"},
        Failure{5, 30, 0, "setsockopt failed with error to enable keep alive interval time: %s\n"}}) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    const int before = fd;
    EXPECT_EQ(setup_tcp_keepalive(&fd, failure.count, failure.idle, failure.interval, 1), -1);
    EXPECT_EQ(fd, -1);
    EXPECT_EQ(fcntl(before, F_GETFD), -1) << "closed";
    std::string text = failure.text;
    text.replace(text.find("%s"), 2, "Invalid argument");
    EXPECT_EQ(fakes::log_lines().back(), (LogLine{LOG_ERR, text}));
  }
  int no_socket = open("/dev/null", O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(setup_tcp_keepalive(&no_socket, 5, 30, 30, 1), -1);
}

TEST_F(ChassisLinkTest, IsCreatedJoinableAndSaysSo) {
  fakes::start_no_threads();
  fakes::set_debugging(true);
  EXPECT_EQ(create_cmc_thread(), 0);
  ASSERT_EQ(fakes::created_threads().size(), 1U);
  EXPECT_EQ(fakes::created_threads()[0].start_routine, cmc_thread);
  EXPECT_EQ(fakes::created_threads()[0].detach_state, PTHREAD_CREATE_JOINABLE);
  ASSERT_EQ(fakes::traces().size(), 1U);
  EXPECT_EQ(fakes::traces()[0].source, "cmc_thread.c");
  EXPECT_EQ(fakes::traces()[0].text, "create_cmc_thread: Creating CMC thread\n");
  stop_cmc_thread();
  EXPECT_EQ(join_cmc_thread(), 0);
  EXPECT_THAT(fakes::log_texts(), ElementsAre("Stopping CMCThread\n", "CMCThread exited\n"));
}

TEST_F(ChassisLinkTest, FailuresToCreateAndToJoinItAreLogged) {
  fakes::fail_thread_creation(EAGAIN);
  EXPECT_EQ(create_cmc_thread(), -1);
  EXPECT_EQ(join_cmc_thread(), 0);
  EXPECT_THAT(fakes::log_texts(),
              ElementsAre("Unable to create CMC thread\n", "Unable to join CMC thread\n", "CMCThread exited\n"));
}

}  // namespace
