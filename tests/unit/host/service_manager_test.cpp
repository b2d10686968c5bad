#include "host/service_manager.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <string>

#include "core/descriptor.h"
#include "tests/unit/host/recorded_log.h"

namespace tavo {
namespace {

using Clock = std::chrono::steady_clock;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class ServiceManagerTest : public testing::Test {
 protected:
  ~ServiceManagerTest() override {
    unsetenv("NOTIFY_SOCKET");
    unlink(path_.c_str());
  }

  // `name` as in NOTIFY_SOCKET: a path, or '@' and an abstract address.
  void listen_at(const std::string &name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, name.size());
    if (name.front() == '@') {
      address.sun_path[0] = '\0';
    }
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    ASSERT_EQ(bind(manager_.get(), reinterpret_cast<const sockaddr *>(&address), size), 0);
    setenv("NOTIFY_SOCKET", name.c_str(), 1);
  }

  std::string received() {
    std::array<char, 200> text{};
    const ssize_t size = recv(manager_.get(), text.data(), text.size(), 0);
    return {text.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
  }

  // Until there is no more room, and the last report was given up.
  void fill() {
    while (log_.lines().empty()) {
      report_to_service_manager(Report::Passing, "STATUS=busy");
    }
  }

  const std::string path_ = testing::TempDir() + "service-manager-" + std::to_string(getpid());
  const Descriptor manager_{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
  const RecordedLog log_;
};

TEST_F(ServiceManagerTest, AReportArrivesAsItIs) {
  listen_at(path_);
  report_to_service_manager(Report::Decisive, "READY=1\nSTATUS=at your service");
  EXPECT_EQ(received(), "READY=1\nSTATUS=at your service");
}

TEST_F(ServiceManagerTest, TheAddressMayBeAbstract) {
  listen_at("@tavo-service-manager-" + std::to_string(getpid()));
  report_to_service_manager(Report::Decisive, "READY=1");
  EXPECT_EQ(received(), "READY=1");
}

TEST_F(ServiceManagerTest, WithoutAnAddressNothingIsReported) {
  report_to_service_manager(Report::Decisive, "READY=1");
  setenv("NOTIFY_SOCKET", std::string(200, 'x').c_str(), 1);
  report_to_service_manager(Report::Decisive, "READY=1");
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ServiceManagerTest, AFullSocketIsWaitedForOnce) {
  listen_at(path_);
  const auto full = Clock::now();
  fill();
  EXPECT_GE(Clock::now() - full, longest_report);
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("the service manager did not take STATUS=busy")));
  const auto begin = Clock::now();
  for (int i = 0; i < 100; ++i) {
    report_to_service_manager(Report::Passing, "STATUS=busy");
  }
  EXPECT_LT(Clock::now() - begin, longest_report);
  EXPECT_THAT(log_.lines(), SizeIs(1));
}

TEST_F(ServiceManagerTest, ADecisiveReportIsAlwaysWaitedFor) {
  listen_at(path_);
  fill();
  const auto begin = Clock::now();
  report_to_service_manager(Report::Decisive, "READY=1");
  EXPECT_GE(Clock::now() - begin, longest_report);
  EXPECT_THAT(log_.lines().back(), HasSubstr("the service manager did not take READY=1"));
  while (!received().empty()) {
  }
  report_to_service_manager(Report::Decisive, "READY=1");
  EXPECT_EQ(received(), "READY=1");
}

}  // namespace
}  // namespace tavo
