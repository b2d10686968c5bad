// The chassis link as the daemon narrows it.
#include "threads/cmc_settings.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/fakes/allocation.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fakes/sockets.h"
#include "tests/fixtures/cmc_thread_fixture.h"
#include "tests/harness/threaded.h"
#include "threads/cmc_thread.h"

namespace tavo {
namespace {

using fakes::LogLine;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class CmcSettingsTest : public fakes::CmcThreadTest {
 protected:
  ~CmcSettingsTest() override {
    for (const char *name : {"TAVO_CHASSIS_LISTEN", "TAVO_CHASSIS_PEERS", "TAVO_CHASSIS_IDLE_LIMIT"}) {
      unsetenv(name);
    }
  }

  static void set(const char *name, const std::string &value) { setenv(name, value.c_str(), 1); }
};

in_addr address(const char *text) {
  return {.s_addr = inet_addr(text)};
}

TEST_F(CmcSettingsTest, WithoutSettingsTheLinkIsOpenToAll) {
  CmcSettings settings;
  ASSERT_TRUE(settings.read());
  EXPECT_EQ(settings.address.s_addr, htonl(INADDR_ANY));
  EXPECT_TRUE(settings.admits(address("192.0.2.1")));
  EXPECT_EQ(settings.idle_limit, 0);
}

TEST_F(CmcSettingsTest, PeersAreAListOfAddresses) {
  set("TAVO_CHASSIS_PEERS", "192.0.2.1,192.0.2.7");
  CmcSettings settings;
  ASSERT_TRUE(settings.read());
  EXPECT_TRUE(settings.admits(address("192.0.2.1")));
  EXPECT_TRUE(settings.admits(address("192.0.2.7")));
  EXPECT_FALSE(settings.admits(address("192.0.2.2")));
  EXPECT_FALSE(settings.admits(address("0.0.0.0")));
}

TEST_F(CmcSettingsTest, WhatCannotBeUnderstoodKeepsTheLinkClosed) {
  for (const auto &[name, value] :
       {std::pair("TAVO_CHASSIS_LISTEN", ""), std::pair("TAVO_CHASSIS_LISTEN", "localhost"),
        std::pair("TAVO_CHASSIS_PEERS", "192.0.2.1,"), std::pair("TAVO_CHASSIS_PEERS", "192.0.2.1 192.0.2.2"),
        std::pair("TAVO_CHASSIS_IDLE_LIMIT", "-1"), std::pair("TAVO_CHASSIS_IDLE_LIMIT", "10s")}) {
    fakes::reset_net_snmp();
    set(name, value);
    ASSERT_EQ(create_cmc_thread(), 0);
    join_cmc_thread();
    EXPECT_THAT(fakes::bound_addresses(), IsEmpty()) << name << '=' << value;
    EXPECT_EQ(fakes::log_lines().at(1), (LogLine{LOG_ERR, "the chassis link stays closed: " + std::string(name) +
                                                              " cannot be understood: " + value + "\n"}));
    unsetenv(name);
  }
}

TEST_F(CmcSettingsTest, PeersWithoutMemoryKeepTheLinkClosed) {
  set("TAVO_CHASSIS_PEERS", "192.0.2.1");
  CmcSettings settings;
  fakes::fail_allocations(0, 1);
  EXPECT_FALSE(settings.read());
  EXPECT_EQ(fakes::failed_allocations(), 1);
  EXPECT_THAT(
      fakes::log_lines(),
      ElementsAre(LogLine{LOG_ERR, "the chassis link stays closed: TAVO_CHASSIS_PEERS finds no memory: 192.0.2.1\n"}));
}

TEST_F(CmcSettingsTest, ListensOnTheOneAddress) {
  set("TAVO_CHASSIS_LISTEN", "127.0.0.1");
  set_block("block");
  start();
  const int peer = connect_client();
  EXPECT_EQ(receive(peer, 5), "block");
  close(peer);
  sockaddr_in bound;
  std::memcpy(&bound, fakes::bound_addresses().at(0).octets.data(), sizeof bound);
  EXPECT_EQ(bound.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
}

TEST_F(CmcSettingsTest, ANamedPeerIsServed) {
  set("TAVO_CHASSIS_PEERS", "192.0.2.1,127.0.0.1");
  set_block("block");
  start();
  const int peer = connect_client();
  EXPECT_EQ(receive(peer, 5), "block");
  close(peer);
}

TEST_F(CmcSettingsTest, AnyOtherPeerGetsNothingAndIsLoggedOnce) {
  set("TAVO_CHASSIS_PEERS", "192.0.2.1");
  set_block("block");
  start();
  for (int i = 0; i < 3; ++i) {
    const int peer = connect_client();
    EXPECT_EQ(receive(peer, 5), "");
    close(peer);
  }
  EXPECT_THAT(
      fakes::log_lines(),
      Contains(LogLine{LOG_WARNING, "the chassis link has refused 1 connections, the last from 127.0.0.1\n"}).Times(1));
  EXPECT_THAT(fakes::log_texts(), Not(Contains("\nSend successful\n")));
}

TEST_F(CmcSettingsTest, AnIdlePeerMakesRoomForTheNext) {
  set("TAVO_CHASSIS_IDLE_LIMIT", "1");
  set_block("block");
  start();
  const int silent = connect_client();
  EXPECT_EQ(receive(silent, 5), "block");
  const int next = connect_client();
  EXPECT_EQ(receive(next, 5), "block");
  EXPECT_EQ(receive(silent, 1), "") << "closed";
  EXPECT_THAT(fakes::log_lines(),
              Contains(LogLine{LOG_INFO, "the chassis link closes a connection that has been idle for 1 s\n"}));
  close(silent);
  close(next);
}

TEST_F(CmcSettingsTest, APeerThatDoesNotReadMakesRoomForTheNext) {
  set("TAVO_CHASSIS_IDLE_LIMIT", "1");
  set_block(std::string(std::size_t{16} << 20, 'b'));
  start();
  const int deaf = connect_client();
  ASSERT_TRUE(fakes::wait_for_log("Send failed...\n"));
  set_block("block");
  const int next = connect_client();
  EXPECT_EQ(receive(next, 5), "block");
  close(deaf);
  close(next);
}

TEST_F(CmcSettingsTest, WithoutALimitASilentPeerStays) {
  set_block("block");
  start();
  const int silent = connect_client();
  EXPECT_EQ(receive(silent, 5), "block");
  sleep(2);
  EXPECT_EQ(send(silent, "x", 1, MSG_NOSIGNAL), 1);
  EXPECT_EQ(receive(silent, 5), "block");
  close(silent);
}

}  // namespace
}  // namespace tavo
