#include "threads/velt_event_thread.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "core/access_lock.h"
#include "core/descriptor.h"
#include "platform/storage_client.h"
#include "refresh/storage_reload.h"
#include "tables/sd_cards/tavoStorageVeltroCardTable.h"
#include "tables/sd_cards/tavoStorageVeltroControllerTable.h"
#include "tables/sd_cards/tavoStorageVeltroDriveTable.h"
#include "tests/fakes/clock.h"
#include "tests/fakes/files.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fakes/sockets.h"
#include "tests/fakes/storage_client.h"
#include "tests/fakes/threads.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

using fakes::LogLine;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

const LogLine initiated = {LOG_DEBUG, "Velt Thread initiated\n"};
const LogLine triggered = {LOG_DEBUG, "Got the trigger from VELT\n"};

class VeltEventThreadTest : public fakes::ModuleTest {
 protected:
  static void start() { ASSERT_EQ(create_velt_thread(), 0); }

  // A connection to the thread, which may not listen yet.
  static Descriptor connect_to_thread() {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    fakes::FakeFiles::real_path(VELT_SOCKET_PATH).copy(address.sun_path, sizeof address.sun_path - 1);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < deadline) {
      Descriptor peer(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
      if (connect(peer.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0) {
        return peer;
      }
      std::this_thread::yield();
    }
    ADD_FAILURE() << "nobody listens";
    return Descriptor();
  }

  static void send_message(const std::string &message) {
    const Descriptor peer = connect_to_thread();
    EXPECT_EQ(send(peer.get(), message.data(), message.size(), MSG_NOSIGNAL), static_cast<ssize_t>(message.size()));
  }

  static bool wait_for_rebuilds(int count) { return fakes::wait_for_log(triggered.text, count); }

  // Makes the connection that a stopped thread waits for.
  static void stop_and_join() {
    EXPECT_TRUE(fakes::wait_until_accepting());
    stop_velt_thread();
    send_message("last");
    EXPECT_EQ(join_velt_thread(), 0);
  }

  // The log of a thread that ended by itself, without the lines of create and join.
  static std::vector<LogLine> log_of_a_failed_thread() {
    start();
    EXPECT_EQ(join_velt_thread(), 0);
    std::vector<LogLine> lines = fakes::log_lines();
    EXPECT_EQ(lines.back(), (LogLine{LOG_DEBUG, "Velt Thread exited\n"}));
    lines.pop_back();
    return lines;
  }

  static std::size_t accepted() {
    const auto opened = fakes::opened_sockets();
    return static_cast<std::size_t>(std::ranges::count(opened, "accept4", &fakes::OpenedSocket::function));
  }

  static std::size_t rows(const auto *head) {
    std::size_t count = 0;
    for (; head != nullptr; head = head->next) {
      ++count;
    }
    return count;
  }

  fakes::FakeFiles files_;
};

TEST_F(VeltEventThreadTest, AMessageIsLoggedAndTheTablesAreRebuiltOnce) {
  start();
  send_message("x");
  ASSERT_TRUE(wait_for_rebuilds(1));
  stop_and_join();
  EXPECT_THAT(fakes::log_lines(),
              ElementsAre(initiated, LogLine{LOG_DEBUG, "velt_thread: x\n"}, triggered,
                          LogLine{LOG_DEBUG, "Stopping Velt Thread\n"}, LogLine{LOG_DEBUG, "velt_thread: last\n"},
                          triggered, LogLine{LOG_DEBUG, "Velt Thread exited\n"}));
  EXPECT_EQ(fakes::velt_requests().size(), 6U) << "three for each connection";
}

TEST_F(VeltEventThreadTest, AnEmptyConnectionLogsAFailureAndRebuilds) {
  start();
  connect_to_thread();
  ASSERT_TRUE(wait_for_rebuilds(1));
  EXPECT_THAT(fakes::log_lines(),
              ElementsAre(initiated, LogLine{LOG_ERR, "velt_thread:recv() failed: Success\n"}, triggered));
  stop_and_join();
}

TEST_F(VeltEventThreadTest, AFailedReceiveIsLoggedAndRebuilds) {
  start();
  fakes::fail_next_socket_call("recv", ECONNRESET);
  connect_to_thread();
  ASSERT_TRUE(wait_for_rebuilds(1));
  EXPECT_THAT(
      fakes::log_lines(),
      ElementsAre(initiated, LogLine{LOG_ERR, "velt_thread:recv() failed: Connection reset by peer\n"}, triggered));
  stop_and_join();
}

TEST_F(VeltEventThreadTest, ALongMessageIsCutToWhatOneReceiveReturns) {
  start();
  send_message(std::string(1024, 'a') + std::string(976, 'b'));
  ASSERT_TRUE(wait_for_rebuilds(1));
  EXPECT_THAT(fakes::log_lines(),
              ElementsAre(initiated, LogLine{LOG_DEBUG, "velt_thread: " + std::string(1024, 'a') + "\n"}, triggered));
  stop_and_join();
}

TEST_F(VeltEventThreadTest, AMessageDoesNotShowTheRestOfALongerOneBefore) {
  start();
  send_message("a long message");
  ASSERT_TRUE(wait_for_rebuilds(1));
  send_message("short");
  ASSERT_TRUE(wait_for_rebuilds(2));
  EXPECT_THAT(fakes::log_texts(), Contains("velt_thread: short\n"));
  stop_and_join();
}

TEST_F(VeltEventThreadTest, AMessageIsNotTakenForAFormat) {
  start();
  send_message("%s%n%s");
  ASSERT_TRUE(wait_for_rebuilds(1));
  EXPECT_THAT(fakes::log_texts(), Contains("velt_thread: %s%n%s\n"));
  stop_and_join();
}

TEST_F(VeltEventThreadTest, AThousandConnectionsAreAThousandRebuilds) {
  start();
  for (int i = 0; i < 1000; ++i) {
    if (i % 2 == 0) {
      send_message("changed");
    } else {
      connect_to_thread();
    }
  }
  ASSERT_TRUE(wait_for_rebuilds(1000));
  stop_and_join();
  const auto lines = fakes::log_lines();
  EXPECT_EQ(std::ranges::count(lines, triggered), 1001);
  EXPECT_EQ(std::ranges::count(lines, LogLine{LOG_DEBUG, "velt_thread: changed\n"}), 500);
  EXPECT_EQ(fakes::velt_requests().size(), 3003U);
  EXPECT_EQ(rows(tavoStorageVeltroControllerTable_head), 1U);
}

TEST_F(VeltEventThreadTest, APeerThatSaysNothingHoldsNoLock) {
  start();
  {
    const Descriptor silent = connect_to_thread();
    while (accepted() == 0) {
      std::this_thread::yield();
    }
    for (int i = 0; i < 1000; ++i) {
      ASSERT_EQ(storage_lock.try_acquire(), 0) << "the tables must stay walkable";
      storage_lock.release();
    }
    EXPECT_THAT(fakes::log_lines(), ElementsAre(initiated));
  }
  EXPECT_TRUE(wait_for_rebuilds(1));
  stop_and_join();
}

TEST_F(VeltEventThreadTest, AStaleFileAtThePathDoesNotPreventBinding) {
  files_.write(VELT_SOCKET_PATH, "stale");
  start();
  send_message("x");
  EXPECT_TRUE(wait_for_rebuilds(1));
  stop_and_join();
}

TEST_F(VeltEventThreadTest, TheSocketStaysBehindAndTheNextStartReplacesIt) {
  for (int i = 0; i < 2; ++i) {
    start();
    send_message("x");
    ASSERT_TRUE(wait_for_rebuilds(2 * i + 1));
    stop_and_join();
    struct stat left;
    ASSERT_EQ(stat(fakes::FakeFiles::real_path(VELT_SOCKET_PATH).c_str(), &left), 0);
    EXPECT_TRUE(S_ISSOCK(left.st_mode));
  }
}

TEST_F(VeltEventThreadTest, TheWholeAddressIsBoundAndTwentyMayWait) {
  start();
  stop_and_join();
  const auto bound = fakes::bound_addresses();
  ASSERT_EQ(bound.size(), 1U);
  sockaddr_un expected;
  std::memset(&expected, 0, sizeof expected);
  expected.sun_family = AF_UNIX;
  std::strcpy(expected.sun_path, VELT_SOCKET_PATH);
  ASSERT_EQ(bound[0].octets.size(), 110U);
  EXPECT_EQ(std::memcmp(bound[0].octets.data(), &expected, sizeof expected), 0);
  EXPECT_THAT(fakes::backlogs(), ElementsAre(20));
}

TEST_F(VeltEventThreadTest, ItsSocketsAreCloseOnExecAndClosedAtTheEnd) {
  start();
  send_message("x");
  ASSERT_TRUE(wait_for_rebuilds(1));
  stop_and_join();
  const auto opened = fakes::opened_sockets();
  EXPECT_EQ(accepted(), 2U);
  for (const auto &socket : opened) {
    EXPECT_TRUE(socket.close_on_exec);
    EXPECT_EQ(fcntl(socket.descriptor, F_GETFD), -1);
  }
}

TEST_F(VeltEventThreadTest, WithoutASocketTheThreadEnds) {
  fakes::fail_next_socket_call("socket", EMFILE);
  EXPECT_THAT(log_of_a_failed_thread(),
              ElementsAre(initiated, LogLine{LOG_ERR, "velt_thread:socket() failed: Too many open files\n"}));
}

TEST_F(VeltEventThreadTest, WhenItCannotBindTheThreadClosesItsSocketAndEnds) {
  fakes::fail_next_socket_call("bind", EACCES);
  EXPECT_THAT(log_of_a_failed_thread(),
              ElementsAre(initiated, LogLine{LOG_ERR, "velt_thread: bind() failed: Permission denied\n"}));
  ASSERT_EQ(fakes::opened_sockets().size(), 1U);
  EXPECT_EQ(fcntl(fakes::opened_sockets()[0].descriptor, F_GETFD), -1);
  EXPECT_THAT(fakes::backlogs(), IsEmpty());
}

TEST_F(VeltEventThreadTest, ADirectoryAtThePathIsMovedAside) {
  files_.write(std::string(VELT_SOCKET_PATH) + "/keeps-it-from-being-removed", "");
  start();
  send_message("x");
  ASSERT_TRUE(wait_for_rebuilds(1));
  stop_and_join();
  EXPECT_THAT(fakes::log_lines().at(1).text,
              testing::StartsWith("velt_thread: a directory stood at "
                                  "/tmp/snmp_velt_sock and is now /tmp/snmp_velt_sock."));
}

TEST_F(VeltEventThreadTest, APathThatIsTakenAgainAtOnceIsClearedAgain) {
  fakes::fail_next_socket_call("bind", EADDRINUSE);
  start();
  send_message("x");
  EXPECT_TRUE(wait_for_rebuilds(1));
  stop_and_join();
}

TEST_F(VeltEventThreadTest, OnlyOwnerAndGroupMayConnectWhateverTheUmask) {
  const mode_t before = umask(0);
  start();
  send_message("x");
  ASSERT_TRUE(wait_for_rebuilds(1));
  umask(before);
  struct stat socket_file;
  ASSERT_EQ(stat(fakes::FakeFiles::real_path(VELT_SOCKET_PATH).c_str(), &socket_file), 0);
  EXPECT_EQ(socket_file.st_mode & 07777, 0660U);
  stop_and_join();
}

TEST_F(VeltEventThreadTest, ASilentPeerDoesNotKeepTheNextWaiting) {
  start();
  const Descriptor silent = connect_to_thread();
  send_message("x");
  ASSERT_TRUE(wait_for_rebuilds(2)) << "one for each";
  EXPECT_THAT(fakes::log_lines(),
              ElementsAre(initiated, LogLine{LOG_ERR, "velt_thread:recv() failed: Resource temporarily unavailable\n"},
                          triggered, LogLine{LOG_DEBUG, "velt_thread: x\n"}, triggered));
  stop_and_join();
}

TEST_F(VeltEventThreadTest, WhenItCannotListenTheThreadClosesItsSocketAndEnds) {
  fakes::fail_next_socket_call("listen", EADDRINUSE);
  EXPECT_THAT(log_of_a_failed_thread(),
              ElementsAre(initiated, LogLine{LOG_ERR, "velt_thread: listen() failed: Address already in use\n"}));
  EXPECT_EQ(fcntl(fakes::opened_sockets()[0].descriptor, F_GETFD), -1);
}

TEST_F(VeltEventThreadTest, WhenItCannotAcceptTheThreadClosesItsSocketAndEnds) {
  fakes::fail_next_socket_call("accept4", EPERM);
  EXPECT_THAT(log_of_a_failed_thread(),
              ElementsAre(initiated, LogLine{LOG_ERR, "velt_thread: accept() failed: Operation not permitted\n"}));
  EXPECT_EQ(fcntl(fakes::opened_sockets()[0].descriptor, F_GETFD), -1);
}

TEST_F(VeltEventThreadTest, APeerWaitsUntilADescriptorIsFree) {
  const fakes::FakeClock clock;
  fakes::fail_next_socket_call("accept4", ENFILE);
  start();
  send_message("x");
  ASSERT_TRUE(wait_for_rebuilds(1));
  EXPECT_THAT(clock.sleeps(), ElementsAre(1));
  EXPECT_THAT(
      fakes::log_texts(),
      ElementsAre(initiated.text, "velt_thread: no file descriptor is free for a connection, which has to wait\n",
                  "velt_thread: x\n", triggered.text));
  stop_and_join();
}

TEST_F(VeltEventThreadTest, AThreadThatFailedLeavesTheTablesAsTheyWere) {
  storage_lock.acquire();
  initialize_velt_controller_table(1);
  storage_lock.release();
  fakes::fail_next_socket_call("accept4", EPERM);
  log_of_a_failed_thread();
  EXPECT_EQ(rows(tavoStorageVeltroControllerTable_head), 1U);
  EXPECT_THAT(fakes::velt_requests(), IsEmpty());
}

TEST_F(VeltEventThreadTest, AStopBeforeItListensEndsItWithoutAConnection) {
  fakes::start_no_threads();
  start();
  stop_velt_thread();
  std::thread(velt_thread, nullptr).join();
  EXPECT_THAT(fakes::log_texts(), ElementsAre("Stopping Velt Thread\n", "Velt Thread initiated\n"));
  EXPECT_EQ(join_velt_thread(), 0);
}

TEST_F(VeltEventThreadTest, CreationIsTracedAndJoinable) {
  fakes::start_no_threads();
  fakes::set_debugging(true);
  EXPECT_EQ(create_velt_thread(), 0);
  const auto traces = fakes::traces();
  ASSERT_EQ(traces.size(), 1U);
  EXPECT_EQ(traces[0].function, "create_velt_thread");
  EXPECT_EQ(traces[0].source, "velt_event_thread");
  EXPECT_EQ(traces[0].text, "create_velt_thread: Creating Velt thread\n");
  const auto created = fakes::created_threads();
  ASSERT_EQ(created.size(), 1U);
  EXPECT_EQ(created[0].start_routine, velt_thread);
  EXPECT_EQ(created[0].detach_state, PTHREAD_CREATE_JOINABLE);
  EXPECT_EQ(join_velt_thread(), 0);
}

TEST_F(VeltEventThreadTest, AThreadThatCannotBeCreatedIsLogged) {
  fakes::fail_thread_creation(EAGAIN);
  EXPECT_EQ(create_velt_thread(), -1);
  EXPECT_THAT(fakes::log_lines(), ElementsAre(LogLine{LOG_ERR, "Unable to create velt thread\n"}));
}

TEST_F(VeltEventThreadTest, AFailedJoinIsLoggedAndShutDownGoesOn) {
  start();
  fakes::fail_thread_join(EINVAL);
  stop_and_join();
  const auto lines = fakes::log_lines();
  ASSERT_GE(lines.size(), 2U);
  EXPECT_EQ(lines[lines.size() - 2], (LogLine{LOG_ERR, "Unable to join velt thread\n"}));
  EXPECT_EQ(lines.back(), (LogLine{LOG_DEBUG, "Velt Thread exited\n"}));
}

TEST_F(VeltEventThreadTest, ARebuildReplacesEveryRowWhateverItsArgument) {
  fakes::set_velt_cards({fakes::VeltCard().number(VELT_CARD_SLOT, 1), fakes::VeltCard().number(VELT_CARD_SLOT, 2)});
  fakes::set_velt_partitions({fakes::VeltPartition().number(VELT_PARTITION_NUMBER, 1)});
  for (const int argument : {0, 1, 2, -1}) {
    EXPECT_EQ(reinit_velt_table(argument), 1);
    EXPECT_EQ(rows(tavoStorageVeltroControllerTable_head), 1U);
    EXPECT_EQ(rows(tavoStorageVeltroCardTable_head), 2U);
    EXPECT_EQ(rows(tavoStorageVeltroDriveTable_head), 1U);
  }
  EXPECT_EQ(storage_lock.try_acquire(), 0) << "the lock is given back";
  storage_lock.release();
}

TEST_F(VeltEventThreadTest, ARebuildLocksThenLogsThenAsksTheService) {
  fakes::set_velt_result(VELT_REQUEST_CONTROLLER, -1);
  ListLock &storage = storage_lock;
  std::vector<int> holds;
  std::vector<std::size_t> requests;
  fakes::on_log([&](const LogLine &) {
    holds.push_back(storage.hold_count());
    requests.push_back(fakes::velt_requests().size());
  });
  reinit_velt_table(1);
  EXPECT_THAT(fakes::log_texts(), ElementsAre(triggered.text, "Failed to get controller info from velt\n"));
  EXPECT_THAT(holds, ElementsAre(1, 1));
  EXPECT_THAT(requests, ElementsAre(0, 1));
}

TEST_F(VeltEventThreadTest, ThePeersConnectionIsClosedBeforeTheRebuild) {
  Descriptor peer;
  ssize_t received = 1;  // 0 is the end of the connection
  fakes::on_log([&](const LogLine &line) {
    if (line == triggered && peer) {
      char octet = 0;
      received = recv(peer.get(), &octet, 1, MSG_DONTWAIT);
      peer = Descriptor();
    }
  });
  start();
  peer = connect_to_thread();
  EXPECT_EQ(send(peer.get(), "x", 1, MSG_NOSIGNAL), 1);
  ASSERT_TRUE(wait_for_rebuilds(1));
  EXPECT_EQ(received, 0);
  stop_and_join();
}

TEST_F(VeltEventThreadTest, ARebuildBuildsInItsOrderUnderTheStorageLock) {
  fakes::set_velt_cards({fakes::VeltCard().number(VELT_CARD_SLOT, 1), fakes::VeltCard()});
  fakes::set_velt_partitions({fakes::VeltPartition().number(VELT_PARTITION_NUMBER, 1)});
  fakes::set_debugging(true);
  reinit_velt_table(1);
  std::vector<std::string> functions;
  for (const auto &trace : fakes::traces()) {
    functions.push_back(trace.function);
  }
  EXPECT_THAT(functions, ElementsAre("acquire_sa_lock", "tavoStorageVeltroControllerTable_createEntry",
                                     "tavoStorageVeltroCardTable_createEntry",
                                     "tavoStorageVeltroDriveTable_createEntry", "release_sa_lock"));
}

}  // namespace
}  // namespace tavo
