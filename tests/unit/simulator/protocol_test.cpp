#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <nlohmann/json.hpp>
#include <thread>
#include <vector>

#include "core/record.h"
#include "platform/fault_engine.h"
#include "served_scenario.h"
#include "service/protocol.h"
#include "service/unix_socket.h"
#include "tests/harness/threaded.h"

namespace tavo::service {
namespace {

using nlohmann::json;

constexpr std::chrono::seconds time_limit(60);

class Protocol : public ServedScenario {
 protected:
  Descriptor connect() const {
    Descriptor connection = connect_to(socket_, time_limit);
    EXPECT_TRUE(connection);
    return connection;
  }

  static std::optional<json> ask(const Descriptor &connection, const json &request) {
    EXPECT_TRUE(send_frame(connection.get(), request));
    return receive_frame(connection.get(), reply_limit);
  }

  // The connection has ended, rather than run into its time limit.
  static bool is_closed_by_the_server(const Descriptor &connection) {
    std::byte octet{};
    const ssize_t got = recv(connection.get(), &octet, 1, 0);
    return got == 0 || (got < 0 && errno == ECONNRESET);
  }

  // Sends the octets, shuts down its side and expects the server to close without a reply.
  void expect_closed_after(std::string_view octets) {
    const Descriptor connection = connect();
    send_all(connection.get(), std::as_bytes(std::span(octets)));
    shutdown(connection.get(), SHUT_WR);
    EXPECT_TRUE(is_closed_by_the_server(connection)) << octets.size() << " octets";
  }

  void expect_still_serving() {
    const auto reply = ask(connect(), {{"call", "ping"}});
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->at("result"), 0);
  }
};

std::string frame_of(const json &message) {
  const auto body = json::to_cbor(message);
  std::string frame(4, '\0');
  for (std::size_t i = 0; i < 4; ++i) {
    frame[i] = static_cast<char>(body.size() >> (8 * i));
  }
  return frame + std::string(body.begin(), body.end());
}

TEST_F(Protocol, OneConnectionCarriesSeveralRequests) {
  const Descriptor connection = connect();
  EXPECT_EQ(ask(connection, {{"call", "ping"}}).value().at("result"), 0);
  EXPECT_EQ(ask(connection, {{"call", "processors"}}).value().at("count"), 2);
  EXPECT_EQ(ask(connection, {{"call", "fault-count"}}).value().at("count"), 4);
}

TEST_F(Protocol, FaultRecordsFollowTheirReplyRaw) {
  const Descriptor connection = connect();
  const json request = {{"call", "faults"}, {"start", 1}, {"count", 3}};
  EXPECT_EQ(ask(connection, request), (json{{"result", 0}}));
  std::vector<std::byte> records(std::size_t{3} * FAULT_RECORD_SIZE);
  ASSERT_TRUE(receive_all(connection.get(), records));
  EXPECT_EQ(tavo::Record(records).u32(2 * FAULT_RECORD_SIZE + FAULT_INDEX), 31U);
  EXPECT_EQ(ask(connection, {{"call", "faults"}, {"start", 4}, {"count", 1}}).value().count("records"), 0U);
  EXPECT_EQ(ask(connection, {{"call", "fault-count"}}).value().at("count"), 4);
}

TEST_F(Protocol, TruncatedFrameEndsOnlyItsConnection) {
  const std::string whole = frame_of({{"call", "ping"}});
  for (std::size_t length = 0; length < whole.size(); ++length) {
    expect_closed_after(std::string_view(whole).substr(0, length));
  }
  expect_still_serving();
}

TEST_F(Protocol, GarbageEndsOnlyItsConnection) {
  expect_closed_after(std::string(64, '\xff'));                                        // a length of 4 GiB
  expect_closed_after(std::string("\x01\x20\x00\x00", 4) + std::string(0x2001, 'x'));  // one octet too long
  expect_closed_after(frame_of({{"call", "ping"}, {"padding", std::string(request_limit, 'x')}}));
  expect_closed_after(std::string("\x04\x00\x00\x00\xff\xff\xff\xff", 8));                // not CBOR
  expect_closed_after(std::string("\x00\x00\x00\x00", 4));                                // empty
  expect_closed_after(std::string("\x00\x20\x00\x00", 4) + std::string(0x2000, '\x81'));  // nested arrays
  expect_closed_after(frame_of(json::array({1, 2})));                                     // not an object
  expect_still_serving();
}

// A CBOR list of a list of a list ..., each with one element: 0x81, and at last 0.
std::string nested_frame(std::size_t levels) {
  std::string frame(4, '\0');
  for (std::size_t i = 0; i < 4; ++i) {
    frame[i] = static_cast<char>((levels + 1) >> (8 * i));
  }
  return frame + std::string(levels, '\x81') + '\0';
}

// What a client receives from a server that answers with these octets.
std::optional<json> received(const std::string &frame) {
  std::array<int, 2> ends{};
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
  const Descriptor client(ends[0]);
  const Descriptor server(ends[1]);
  std::thread sender([&] { send_all(server.get(), std::as_bytes(std::span(frame))); });
  const auto message = receive_frame(client.get(), reply_limit);
  shutdown(client.get(), SHUT_RDWR);
  sender.join();
  return message;
}

TEST_F(Protocol, DeeplyNestedReplyIsRefused) {
  EXPECT_FALSE(received(nested_frame(15 * 1024 * 1024)));
}

TEST_F(Protocol, ListWithAnAbsurdCountIsRefused) {
  const std::string body = "\xa1\x61x\x9b\x4d\x4d\x4d\x4d\x4d\x4d\x4d\x4d";  // {"x": [5,570,193,308,531,903,821 of
  EXPECT_FALSE(received(std::string("\x0c\0\0\0", 4) + body));
}

TEST_F(Protocol, CorruptedOctetsNeverStopTheServer) {
  const std::string whole = frame_of({{"call", "faults"}, {"start", 0}, {"count", 2}});
  for (std::size_t i = 4; i < whole.size(); ++i) {
    std::string flipped = whole;
    flipped[i] = static_cast<char>(flipped[i] ^ 0xff);
    const Descriptor connection = connect();
    send_all(connection.get(), std::as_bytes(std::span(flipped)));
    shutdown(connection.get(), SHUT_WR);
    receive_frame(connection.get(), reply_limit);
  }
  expect_still_serving();
}

TEST_F(Protocol, SenselessRequestsGetAnError) {
  for (const json &request :
       {json{{"call", "nonsense"}}, json{{"call", 5}}, json{{"cal", "ping"}}, json{{"call", "sensor"}},
        json{{"call", "sensor"}, {"number", "five"}}, json{{"call", "sensor"}, {"number", 1e300}},
        json{{"call", "velt"}, {"controller", "Veltro-0"}, {"kind", 1.5}},
        json{{"call", "control"}, {"words", {1, 2}}}}) {
    const auto reply = ask(connect(), request);
    ASSERT_TRUE(reply) << request;
    EXPECT_TRUE(reply->contains("error")) << request;
  }
}

TEST_F(Protocol, SilentClientDelaysNobody) {
  const Descriptor silent = connect();
  const Descriptor half = connect();
  send_all(half.get(), std::as_bytes(std::span(std::string_view("\x10", 1))));
  expect_still_serving();
}

TEST_F(Protocol, ConnectionsAreLimited) {
  constexpr std::size_t most = 1024;
  constexpr rlim_t needed = 2 * most + 100;  // both ends are in this process
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit enough{.rlim_cur = std::max(before.rlim_cur, needed), .rlim_max = before.rlim_max};
  if (setrlimit(RLIMIT_NOFILE, &enough) != 0) {
    GTEST_SKIP() << "the process may not have " << needed << " descriptors";
  }
  std::vector<Descriptor> connections;
  while (connections.size() < most) {
    connections.push_back(connect());
  }
  EXPECT_TRUE(ask(connections.back(), {{"call", "ping"}}));
  EXPECT_TRUE(is_closed_by_the_server(connect())) << "one too many";
  connections.clear();
  EXPECT_TRUE(eventually([&] { return ask(connect(), {{"call", "ping"}}).has_value(); })) << "there is room again";
  setrlimit(RLIMIT_NOFILE, &before);
}

TEST_F(Protocol, FollowerThatSendsIsDropped) {
  const Descriptor follower = connect();
  EXPECT_EQ(ask(follower, {{"call", call::follow_faults}}).value().at("result"), 0);
  send_frame(follower.get(), {{"call", "ping"}});
  EXPECT_TRUE(is_closed_by_the_server(follower));
  EXPECT_TRUE(eventually([&] { return machine_->faults().broadcaster().followers() == 0; }));
}

}  // namespace
}  // namespace tavo::service
