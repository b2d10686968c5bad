// The chassis link when a call fails.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <ostream>
#include <string>
#include <vector>

#include "tests/fakes/clock.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fakes/sockets.h"
#include "tests/fakes/threads.h"
#include "tests/fixtures/cmc_thread_fixture.h"
#include "tests/harness/eventually.h"
#include "tests/harness/threaded.h"
#include "threads/cmc_thread.h"

namespace tavo {
namespace {

using fakes::CmcThreadTest;
using fakes::LogLine;
using testing::ElementsAre;

void expect_closed(int descriptor) {
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(CmcThreadTest, AFailedSendLeavesTheConnectionOpen) {
  set_block("block");
  fakes::fail_next_socket_call("send", ENOBUFS);
  start();
  const int peer = connect_client();
  ASSERT_TRUE(fakes::wait_for_log("\nSend failed\n"));
  EXPECT_THAT(fakes::log_lines(),
              ElementsAre(LogLine{LOG_DEBUG, "CMCThread initiated\n"}, LogLine{LOG_ERR, "Send failed...\n"},
                          LogLine{LOG_DEBUG, "\nSend failed\n"}));
  ASSERT_EQ(send(peer, "x", 1, 0), 1);
  EXPECT_EQ(receive(peer, 5), "block");
  close(peer);
}

TEST_F(CmcThreadTest, AnInterruptedWaitGoesOn) {
  set_block("block");
  fakes::fail_next_socket_call("select", EINTR);
  start();
  const int peer = connect_client();
  EXPECT_EQ(receive(peer, 5), "block");
  close(peer);
}

TEST_F(CmcThreadTest, AReceiveThatFailsEndsTheConnectionAlone) {
  set_block("block");
  fakes::fail_next_socket_call("recv", ETIMEDOUT);
  start();
  const int first = connect_client();
  ASSERT_TRUE(fakes::wait_for_log("\nSend successful\n"));
  ASSERT_EQ(send(first, "x", 1, 0), 1);
  ASSERT_TRUE(eventually([] { return std::atomic_ref(data_fd).load() == -1; }));
  close(first);
  const int second = connect_client();
  EXPECT_EQ(receive(second, 5), "block");
  close(second);
}

struct ListeningFailure {
  const char *function;
  const char *text;
};

void PrintTo(const ListeningFailure &failure, std::ostream *out) {
  *out << failure.function;
}

class CmcThreadFailureTest : public CmcThreadTest, public testing::WithParamInterface<ListeningFailure> {};

INSTANTIATE_TEST_SUITE_P(Calls, CmcThreadFailureTest,
                         testing::Values(ListeningFailure{"socket", "\nsocket error\n"},
                                         ListeningFailure{"setsockopt", "\nsetsockopt failed\n"},
                                         ListeningFailure{"bind", "\nbind failed\n"},
                                         ListeningFailure{"listen", "\nlisten failed\n"},
                                         ListeningFailure{"select", "\nselect failed\n"}),
                         [](const auto &failure) { return failure.param.function; });

TEST_P(CmcThreadFailureTest, IsLoggedAsAnErrorAndEndsTheThread) {
  fakes::reset_sockets();
  fakes::fail_next_socket_call(GetParam().function, ENOMEM);
  ASSERT_EQ(create_cmc_thread(), 0);
  join_cmc_thread();
  EXPECT_THAT(fakes::log_lines(),
              ElementsAre(LogLine{LOG_DEBUG, "CMCThread initiated\n"}, LogLine{LOG_ERR, GetParam().text},
                          LogLine{LOG_DEBUG, "CMCThread exited\n"}));
  EXPECT_EQ(sock_fd, -1);
  for (const fakes::OpenedSocket &opened : fakes::opened_sockets()) {
    expect_closed(opened.descriptor);
  }
}

TEST_F(CmcThreadTest, AFailedAcceptEndsTheThread) {
  fakes::fail_next_socket_call("accept4", EPERM);
  ASSERT_EQ(create_cmc_thread(), 0);
  const int peer = connect_client();
  join_cmc_thread();
  EXPECT_THAT(fakes::log_lines(),
              ElementsAre(LogLine{LOG_DEBUG, "CMCThread initiated\n"}, LogLine{LOG_ERR, "\nAccept failed\n"},
                          LogLine{LOG_DEBUG, "CMCThread exited\n"}));
  EXPECT_EQ(sock_fd, -1);
  EXPECT_EQ(data_fd, -1);
  EXPECT_EQ(receive(peer, 1), "") << "the listening socket is closed";
  close(peer);
}

TEST_F(CmcThreadTest, APeerWaitsUntilADescriptorIsFree) {
  const fakes::FakeClock clock;
  set_block("block");
  fakes::fail_next_socket_call("accept4", EMFILE);
  start();
  const int peer = connect_client();
  EXPECT_EQ(receive(peer, 5), "block");
  EXPECT_THAT(clock.sleeps(), ElementsAre(1));
  EXPECT_EQ(fakes::log_lines().at(1),
            (LogLine{LOG_WARNING, "cmc_thread: no file descriptor is free for a connection, which has to wait\n"}));
  close(peer);
}

TEST_F(CmcThreadTest, AStopEndsTheWaitForADescriptor) {
  fakes::FakeClock clock;
  clock.on_sleep([](unsigned) {
    fakes::fail_next_socket_call("accept4", EMFILE);
    stop_cmc_thread();
  });
  fakes::fail_next_socket_call("accept4", EMFILE);
  ASSERT_EQ(create_cmc_thread(), 0);
  const int peer = connect_client();
  join_cmc_thread();
  EXPECT_THAT(fakes::log_lines(), testing::Contains(LogLine{LOG_ERR, "\nAccept failed\n"}));
  EXPECT_EQ(sock_fd, -1);
  close(peer);
}

TEST_F(CmcThreadTest, AFailedWaitForAMessageClosesTheConnectionToo) {
  set_block("block");
  fakes::fail_next_socket_call("select", ENOMEM, 1);
  ASSERT_EQ(create_cmc_thread(), 0);
  const int peer = connect_client();
  EXPECT_EQ(receive(peer, 100), "block") << "and then the end";
  join_cmc_thread();
  EXPECT_THAT(fakes::log_lines(),
              ElementsAre(LogLine{LOG_DEBUG, "CMCThread initiated\n"}, LogLine{LOG_DEBUG, "\nSend successful\n"},
                          LogLine{LOG_ERR, "\nselect failed\n"}, LogLine{LOG_DEBUG, "CMCThread exited\n"}));
  EXPECT_EQ(sock_fd, -1);
  EXPECT_EQ(data_fd, -1);
  close(peer);
}

// Takes every descriptor that select() can wait for.
class TakenDescriptors {
 public:
  TakenDescriptors() {
    rlimit most{};
    getrlimit(RLIMIT_NOFILE, &most);
    most.rlim_cur = std::min<rlim_t>(most.rlim_max, 2 * FD_SETSIZE);
    setrlimit(RLIMIT_NOFILE, &most);
    do {
      taken_.push_back(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
    } while (taken_.back() >= 0 && taken_.back() < FD_SETSIZE - 1);
  }
  ~TakenDescriptors() {
    for (const int descriptor : taken_) {
      close(descriptor);
    }
  }
  TakenDescriptors(const TakenDescriptors &) = delete;
  TakenDescriptors &operator=(const TakenDescriptors &) = delete;

  bool all() const { return taken_.back() == FD_SETSIZE - 1; }

 private:
  std::vector<int> taken_;
};

TEST_F(CmcThreadTest, AConnectionBeyondSelectIsRefusedAndTheNextServed) {
  set_block("block");
  start();
  ASSERT_TRUE(eventually([] { return std::atomic_ref(sock_fd).load() != -1; }));
  {
    const int peer = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const TakenDescriptors taken;
    ASSERT_TRUE(taken.all()) << "a limit of more than " << FD_SETSIZE << " descriptors";
    connect_client(peer);
    EXPECT_EQ(receive(peer, 1), "") << "closed";
    expect_closed(fakes::opened_sockets().back().descriptor);
    close(peer);
  }
  const int peer = connect_client();
  EXPECT_EQ(receive(peer, 5), "block");
  ASSERT_TRUE(fakes::wait_for_log("\nSend successful\n"));
  EXPECT_THAT(fakes::log_lines(),
              ElementsAre(LogLine{LOG_DEBUG, "CMCThread initiated\n"}, LogLine{LOG_ERR, "\nAccept failed\n"},
                          LogLine{LOG_DEBUG, "\nSend successful\n"}));
  close(peer);
}

TEST_F(CmcThreadTest, AListeningSocketThatCannotBeWaitedForEndsTheThread) {
  const TakenDescriptors taken;
  ASSERT_TRUE(taken.all()) << "a limit of more than " << FD_SETSIZE << " descriptors";
  ASSERT_EQ(create_cmc_thread(), 0);
  join_cmc_thread();
  EXPECT_THAT(fakes::log_lines(),
              ElementsAre(LogLine{LOG_DEBUG, "CMCThread initiated\n"}, LogLine{LOG_ERR, "\nsocket error\n"},
                          LogLine{LOG_DEBUG, "CMCThread exited\n"}));
  EXPECT_EQ(sock_fd, -1);
  expect_closed(fakes::opened_sockets().back().descriptor);
}

TEST_F(CmcThreadTest, APortThatIsTakenEndsTheThread) {
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

TEST_F(CmcThreadTest, FailuresToCreateAndToJoinItAreLogged) {
  fakes::fail_thread_creation(EAGAIN);
  EXPECT_EQ(create_cmc_thread(), -1);
  EXPECT_EQ(join_cmc_thread(), 0);
  EXPECT_THAT(fakes::log_texts(),
              ElementsAre("Unable to create CMC thread\n", "Unable to join CMC thread\n", "CMCThread exited\n"));
}

}  // namespace
}  // namespace tavo
