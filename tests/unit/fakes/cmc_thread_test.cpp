#include "tests/unit/fakes/cmc_thread_test.h"

#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <utility>

#include "tests/unit/eventually.h"
#include "tests/unit/fakes/net_snmp.h"
#include "threads/cmc_thread.h"

namespace fakes {
namespace {

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

}  // namespace

void CmcThreadTest::SetUp() {
  if (!enter_private_network()) {
    GTEST_SKIP() << "no network of one's own: " << std::strerror(errno);
  }
}

void CmcThreadTest::TearDown() {
  if (!started_) {
    return;
  }
  ASSERT_TRUE(tavo::eventually([] {
    shutdown(std::atomic_ref(data_fd).load(), SHUT_RDWR);
    shutdown(std::atomic_ref(sock_fd).load(), SHUT_RDWR);
    return std::atomic_ref(sock_fd).load() == -1;
  }));
  join_cmc_thread();
}

void CmcThreadTest::start() {
  started_ = true;
  ASSERT_EQ(create_cmc_thread(), 0);
  ASSERT_TRUE(wait_for_log("CMCThread initiated\n"));
}

void CmcThreadTest::set_block(std::string block) {
  pthread_mutex_lock(&cmc_lock);
  block_ = std::move(block);
  cmc_data_buffer = reinterpret_cast<unsigned char *>(block_.data());
  transfer_data_len = static_cast<int32_t>(block_.size());
  pthread_mutex_unlock(&cmc_lock);
}

int CmcThreadTest::connect_client() {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(25678);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int descriptor = -1;
  EXPECT_TRUE(tavo::eventually([&] {
    descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0) {
      return true;
    }
    close(descriptor);
    return false;
  }));
  return descriptor;
}

std::string CmcThreadTest::receive(int descriptor, std::size_t octets) {
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

}  // namespace fakes
