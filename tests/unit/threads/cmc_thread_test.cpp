#include "threads/cmc_thread.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>

#include "tests/fakes/mutexes.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fakes/sockets.h"
#include "tests/fakes/threads.h"
#include "tests/fixtures/cmc_thread_fixture.h"
#include "tests/harness/eventually.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

using fakes::CmcThreadTest;
using fakes::LogLine;
using fakes::SocketOption;
using testing::ElementsAre;

TEST_F(CmcThreadTest, APeerGetsTheBlockWhenItConnectsAndAfterEachMessage) {
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

TEST_F(CmcThreadTest, WithoutABlockNothingIsSentAndThatIsASuccess) {
  start();
  const int peer = connect_client();
  ASSERT_TRUE(fakes::wait_for_log("\nSend successful\n"));
  pollfd waiting = {.fd = peer, .events = POLLIN, .revents = 0};
  EXPECT_EQ(poll(&waiting, 1, 50), 0);
  close(peer);
}

TEST_F(CmcThreadTest, ALargeBlockArrivesWhole) {
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

TEST_F(CmcThreadTest, ABlockThatIsSentInPiecesArrivesWhole) {
  fakes::limit_sends(4);
  set_block("inventory block");
  start();
  const int peer = connect_client();
  ASSERT_TRUE(fakes::wait_for_log("\nSend successful\n"));
  shutdown(peer, SHUT_WR);
  EXPECT_EQ(receive(peer, 100), "inventory block");
  close(peer);
}

TEST_F(CmcThreadTest, ABurstOf3000OctetsIsAnsweredAtMostThreeTimes) {
  set_block("b");
  start();
  const int peer = connect_client();
  EXPECT_EQ(receive(peer, 1), "b");
  const std::string burst(3000, 'x');
  ASSERT_EQ(send(peer, burst.data(), burst.size(), 0), 3000);
  shutdown(peer, SHUT_WR);
  EXPECT_EQ(receive(peer, 100), "bbb") << "loopback hands a burst over at once: one receive of 1024 octets each";
  close(peer);
}

TEST_F(CmcThreadTest, ASecondPeerWaitsUntilTheFirstHasGone) {
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

TEST_F(CmcThreadTest, APeerThatGoesAwayDuringASendDoesNotEndTheProcess) {
  std::string block(8 << 20, 'x');
  set_block(block);
  start();
  int times = 0;
  for (const bool has_finished : {false, true}) {  // a send then ends with ECONNRESET, or with EPIPE and SIGPIPE
    const int peer = connect_client();
    EXPECT_EQ(receive(peer, 1000).size(), 1000U);
    if (has_finished) {
      shutdown(peer, SHUT_WR);
    }
    const linger reset = {.l_onoff = 1, .l_linger = 0};
    setsockopt(peer, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    close(peer);
    ASSERT_TRUE(fakes::wait_for_log("Send failed...\n", ++times));
    ASSERT_TRUE(fakes::wait_for_log("\nSend failed\n", times));
  }
  EXPECT_THAT(fakes::log_lines(), testing::Contains(LogLine{LOG_ERR, "Send failed...\n"}));

  set_block("small");
  const int next = connect_client();
  EXPECT_EQ(receive(next, 5), "small");
  close(next);
}

TEST_F(CmcThreadTest, ThousandsOfConnectionsLeaveNoDescriptorBehind) {
  set_block("block");
  start();
  const int before = connect_client();
  EXPECT_EQ(receive(before, 5), "block");
  const int connected = std::atomic_ref(data_fd).load();
  close(before);
  ASSERT_TRUE(eventually([connected] { return fcntl(connected, F_GETFD) == -1; }));
  const int probe = dup(0);
  close(probe);
  constexpr int connections = 2000;
  for (int i = 0; i < connections; ++i) {
    const int peer = connect_client();
    ASSERT_EQ(receive(peer, 5), "block") << i;
    close(peer);
  }
  EXPECT_TRUE(eventually([probe] {
    const int lowest_free = dup(0);
    close(lowest_free);
    return lowest_free == probe;
  }));
}

TEST_F(CmcThreadTest, SetsUpItsSocketsBeforeItUsesThem) {
  set_block("block");
  start();
  const int peer = connect_client();
  EXPECT_EQ(receive(peer, 5), "block");
  const int listening = std::atomic_ref(sock_fd).load();
  const int connected = std::atomic_ref(data_fd).load();
  EXPECT_THAT(fakes::socket_options(), ElementsAre(SocketOption{listening, SOL_SOCKET, SO_REUSEADDR, 1},
                                                   SocketOption{connected, SOL_SOCKET, SO_RCVBUF, 65536},
                                                   SocketOption{connected, SOL_SOCKET, SO_SNDBUF, 65536},
                                                   SocketOption{connected, IPPROTO_TCP, TCP_KEEPCNT, 5},
                                                   SocketOption{connected, IPPROTO_TCP, TCP_KEEPIDLE, 30},
                                                   SocketOption{connected, IPPROTO_TCP, TCP_KEEPINTVL, 30},
                                                   SocketOption{connected, SOL_SOCKET, SO_KEEPALIVE, 1}));
  ASSERT_EQ(fakes::bound_addresses().size(), 1U);
  sockaddr_in address{};
  ASSERT_EQ(fakes::bound_addresses()[0].octets.size(), sizeof address);
  std::memcpy(&address, fakes::bound_addresses()[0].octets.data(), sizeof address);
  EXPECT_EQ(address.sin_family, AF_INET);
  EXPECT_EQ(ntohs(address.sin_port), 25678);
  EXPECT_EQ(address.sin_addr.s_addr, INADDR_ANY);
  EXPECT_THAT(fakes::backlogs(), ElementsAre(1));
  for (const int descriptor : {listening, connected}) {
    EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC) << "the module's shell commands must not inherit it";
  }
  close(peer);
}

TEST_F(CmcThreadTest, AStopDoesNotEndTheLink) {
  set_block("block");
  start();
  stop_cmc_thread();
  const int peer = connect_client();
  EXPECT_EQ(receive(peer, 5), "block");
  ASSERT_EQ(send(peer, "x", 1, 0), 1);
  EXPECT_EQ(receive(peer, 5), "block");
  close(peer);
}

TEST_F(CmcThreadTest, ABlockOfLessThanNoOctetsIsNotSent) {
  std::array<int, 2> pair{};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()), 0);
  set_block("block");
  transfer_data_len = -5;
  data_fd = pair[0];
  EXPECT_EQ(send_to_cmc(), 1);
  data_fd = -1;
  char octet = 0;
  EXPECT_EQ(recv(pair[1], &octet, 1, MSG_DONTWAIT), -1) << "nothing came";
  close(pair[0]);
  close(pair[1]);
}

TEST_F(CmcThreadTest, SayingThatThereIsNothingToSendIsASuccess) {
  EXPECT_EQ(data_fd, -1);
  EXPECT_EQ(send_to_cmc(), 1);
  EXPECT_EQ(transfer_data_len, 0);
  EXPECT_EQ(cmc_data_buffer, nullptr);
}

TEST_F(CmcThreadTest, ASendTakesTheLockOfTheBlock) {
  send_to_cmc();
  EXPECT_EQ(fakes::last_locked_mutex(), &cmc_lock);
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

TEST_F(KeepaliveTest, TheFirstOptionThatFailsClosesTheSocketAndSaysWhy) {
  const std::array<std::string, 4> texts = {
      "setsockopt failed with error to enable keep alive count: ",
      "setsockopt failed with error to enable keep alive idle time: ",
      "setsockopt failed with error to enable keep alive interval time: ",
      "setsockopt failed with error to enable keep alive timer: ",
  };
  for (std::size_t i = 0; i < texts.size(); ++i) {
    fakes::reset_sockets();
    fakes::reset_net_snmp();
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int before = fd;
    fakes::fail_next_socket_call("setsockopt", ENOBUFS, static_cast<int>(i));
    EXPECT_EQ(setup_tcp_keepalive(&fd, 5, 30, 31, 1), -1);
    EXPECT_EQ(fd, -1);
    EXPECT_EQ(fcntl(before, F_GETFD), -1) << "closed";
    EXPECT_THAT(fakes::log_lines(), ElementsAre(LogLine{LOG_ERR, texts[i] + "No buffer space available\n"}));
    EXPECT_EQ(fakes::socket_options().size(), i + 1) << "none is set after the one that failed";
  }
}

TEST_F(CmcThreadTest, IsCreatedJoinableAndSaysSo) {
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

// Else a sender could meet the number in another thread's hands.
TEST_F(CmcThreadTest, AConnectionIsForgottenBeforeItIsClosed) {
  set_block("block");
  start();
  const int peer = connect_client();
  EXPECT_EQ(receive(peer, 5), "block");
  const int accepted = std::atomic_ref(data_fd).load();
  std::atomic<int> known_at_the_close = accepted;
  fakes::on_close([&](int descriptor) {
    if (descriptor == accepted) {
      known_at_the_close = std::atomic_ref(data_fd).load();
    }
  });
  shutdown(peer, SHUT_RDWR);
  EXPECT_TRUE(eventually([&] { return fcntl(accepted, F_GETFD) == -1; }));
  fakes::on_close(nullptr);
  EXPECT_EQ(known_at_the_close, -1);
  close(peer);
}

}  // namespace
}  // namespace tavo
