// The daemon's agent as an AgentX subagent of a master that lies: requests of any kind with any contents, answers that
// are wrong or never come, and sessions that end at any moment, while the module sends notifications.
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <arpa/inet.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "core/descriptor.h"
#include "core/table.h"
#include "fuzz/harness/door.h"
#include "host/agent.h"
#include "host/notification_path.h"
#include "tables/faults/tavoFaultTable_traps.h"

// Exported by net-snmp's agent library, but declared in none of its headers.
extern "C" int subagent_open_master_session();

namespace tavo::fuzz {
namespace {

// RFC 2741.
enum PduType : std::uint8_t {
  Open = 1,
  Close = 2,
  Get = 5,
  GetNext = 6,
  GetBulk = 7,
  TestSet = 8,
  CleanupSet = 11,
  Notify = 12,
  ResponsePdu = 18
};

struct Pdu {
  std::uint8_t type = 0;
  std::uint32_t session = 0;
  std::uint32_t transaction = 0;
  std::uint32_t packet = 0;
  std::string payload;
};

void append_word(std::string &octets, std::uint32_t word) {
  word = htonl(word);
  octets.append(reinterpret_cast<const char *>(&word), sizeof word);
}

void append_half_word(std::string &octets, std::uint16_t word) {
  word = htons(word);
  octets.append(reinterpret_cast<const char *>(&word), sizeof word);
}

std::string encoded(const Pdu &pdu) {
  std::string octets = {1, static_cast<char>(pdu.type), 0x10, 0};  // version, type, network byte order
  append_word(octets, pdu.session);
  append_word(octets, pdu.transaction);
  append_word(octets, pdu.packet);
  append_word(octets, static_cast<std::uint32_t>(pdu.payload.size()));
  return octets + pdu.payload;
}

constexpr std::size_t header_size = 20;

std::uint32_t word_at(const std::string &octets, std::size_t offset, bool network_order) {
  std::uint32_t word = 0;
  std::memcpy(&word, octets.data() + offset, sizeof word);
  return network_order ? ntohl(word) : word;
}

// Takes the first PDU off the octets; nothing while it is not complete.
std::optional<Pdu> take_pdu(std::string &octets) {
  if (octets.size() < header_size) {
    return std::nullopt;
  }
  expect(octets[0] == 1, "the subagent speaks version 1");
  const bool network_order = (octets[2] & 0x10) != 0;
  const std::size_t size = word_at(octets, 16, network_order);
  expect(size % 4 == 0 && size < 1 << 20, "the subagent sends whole words");
  if (octets.size() < header_size + size) {
    return std::nullopt;
  }
  Pdu pdu = {.type = static_cast<std::uint8_t>(octets[1]),
             .session = word_at(octets, 4, network_order),
             .transaction = word_at(octets, 8, network_order),
             .packet = word_at(octets, 12, network_order),
             .payload = octets.substr(header_size, size)};
  octets.erase(0, header_size + size);
  return pdu;
}

constexpr std::uint32_t session_number = 7;

// An answer to one of the subagent's PDUs.
Pdu response_to(const Pdu &pdu, std::uint16_t error) {
  Pdu response = {.type = ResponsePdu,
                  .session = session_number,
                  .transaction = pdu.transaction,
                  .packet = pdu.packet,
                  .payload = {}};
  append_word(response.payload, 0);  // up time
  append_half_word(response.payload, error);
  append_half_word(response.payload, 0);  // index
  return response;
}

// The master's end of the session.
class Master {
 public:
  Master() {
    std::string pattern = std::filesystem::temp_directory_path() / "fuzz-agentx-XXXXXX";
    expect(mkdtemp(pattern.data()) != nullptr, "there is room for a directory");
    directory_ = pattern;
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path().copy(address.sun_path, sizeof address.sun_path - 1);
    listener_ = Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    expect(bind(listener_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
               listen(listener_.get(), 4) == 0,
           "the master listens");
  }
  Master(const Master &) = delete;
  Master &operator=(const Master &) = delete;
  ~Master() {
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }

  std::string path() const { return directory_ / "master"; }

  // While it lives, answers everything that the subagent sends: the subagent waits for these answers when it opens a
  // session and registers its tables. Refuses the n-th PDU, if there are so many.
  class Handshake {
   public:
    Handshake(Master &master, int refused)
        : thread_([this, &master, refused] { master.answer(end_.get(), refused); }) {}
    Handshake(const Handshake &) = delete;
    Handshake &operator=(const Handshake &) = delete;
    ~Handshake() {
      eventfd_write(end_.get(), 1);
      thread_.join();
    }

   private:
    const Descriptor end_{eventfd(0, EFD_CLOEXEC)};
    std::thread thread_;
  };

  bool is_connected() const { return static_cast<bool>(peer_); }
  void hang_up() {
    peer_ = Descriptor();
    answers_awaited_ = 0;
  }

  // A request has left. Whether one is still without an answer, which this is.
  void await_answer() { ++answers_awaited_; }
  bool take_answer() { return answers_awaited_-- > 0; }

  void send(const std::string &octets) {
    // A subagent that does not read gets no more.
    if (::send(peer_.get(), octets.data(), octets.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0) {
      hang_up();
    }
  }

  // The PDUs that have arrived.
  std::vector<Pdu> received() {
    std::vector<Pdu> pdus;
    if (is_connected()) {
      take_octets();
    }
    while (const auto pdu = take_pdu(octets_)) {
      pdus.push_back(*pdu);
    }
    return pdus;
  }

 private:
  void take_octets() {
    std::array<char, 65536> part;
    ssize_t got = 0;
    while ((got = recv(peer_.get(), part.data(), part.size(), MSG_DONTWAIT)) > 0) {
      octets_.append(part.data(), static_cast<std::size_t>(got));
    }
    if (got == 0) {
      hang_up();
    }
  }

  void answer(int end, int refused) {
    for (;;) {
      std::array<pollfd, 2> watched = {
          {{.fd = is_connected() ? peer_.get() : listener_.get(), .events = POLLIN, .revents = 0},
           {.fd = end, .events = POLLIN, .revents = 0}}};
      poll(watched.data(), watched.size(), -1);
      if (watched[0].revents == 0) {
        return;
      }
      if (!is_connected()) {
        octets_.clear();
        peer_ = Descriptor(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        continue;
      }
      for (const Pdu &pdu : received()) {
        if (pdu.type != ResponsePdu && is_connected()) {
          constexpr std::uint16_t processing_error = 268;
          send(encoded(response_to(pdu, refused-- == 0 ? processing_error : 0)));
        }
      }
    }
  }

  std::filesystem::path directory_;
  Descriptor listener_;
  Descriptor peer_;
  std::string octets_;  // received, and not yet a whole PDU
  int answers_awaited_ = 0;
};

// To a master all tables are alike, and each costs a round trip when a session opens.
std::span<Table *const> some_tables() {
  return all_tables().first(3);
}

// The daemon's side: the agent, its path for notifications, and some tables with two rows.
class Subagent {
 public:
  explicit Subagent(Master &master) : notifications_(64, true, [](bool) {}) {
    std::signal(SIGPIPE, SIG_IGN);  // as in the daemon, a lost master is a write error
    const Master::Handshake handshake(master, -1);
    netsnmp_register_loghandler(NETSNMP_LOGHANDLER_NONE, LOG_DEBUG);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
    Options options;
    options.agentx_address = "unix:" + master.path();
    options.skip_default_configuration = true;
    open_agent(options, [this] {
      notifications_.attach();
      // The subagent looks for its master when the door says so, and not once a second.
      netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL, 0);
    });
    for (Table *table : some_tables()) {
      table->register_with_agent();
      const ListGuard guard(table->lock());
      const std::vector<std::byte> row(table->description().row.size);
      table->create(1, row.data());
      table->create(2, row.data());
    }
  }

  static void open_session(Master &master, int refused) {
    const Master::Handshake handshake(master, refused);
    if (subagent_open_master_session() == 0) {
      register_mib_reattach();
    }
  }

  void notify() {
    FaultRow row = {};
    row.severity_again = 1;
    send_fault_trap(1, &row);
  }

  void turn() {
    agent_check_and_process(0);
    notifications_.queue().turn();
  }

 private:
  NotificationPath notifications_;
};

class Conversation {
 public:
  Conversation(Master &master, Subagent &subagent, FuzzedDataProvider &input)
      : master_(master), subagent_(subagent), input_(input) {}

  void run() {
    constexpr std::size_t most_steps = 24;
    for (std::size_t i = 0; i < most_steps && input_.remaining_bytes() > 0; ++i) {
      step();
      read();
    }
    // What is on its way arrives before the next input.
    for (int turn = 0; turn < 8; ++turn) {
      subagent_.turn();
      read();
    }
    // The next input gets a session on which nothing is half sent or unanswered.
    if (is_damaged_ || !unanswered_.empty()) {
      master_.hang_up();
    }
  }

 private:
  void step() {
    if (!master_.is_connected()) {
      subagent_.turn();  // it notices
      Subagent::open_session(master_, input_.ConsumeIntegralInRange(-1, 40));
    }
    switch (input_.ConsumeIntegralInRange(0, 15)) {
      case 0:
        subagent_.notify();
        break;
      case 1:
        subagent_.turn();
        break;
      case 2:
        answer_something();
        break;
      case 3:
        if (input_.ConsumeIntegral<std::uint8_t>() == 0) {
          master_.hang_up();
        }
        break;
      case 4:
        acknowledges_ = input_.ConsumeBool();
        break;
      default:
        request();
        subagent_.turn();
    }
  }

  // Takes what the subagent has sent. A request gets one answer at most.
  void read() {
    for (const Pdu &pdu : master_.received()) {
      if (pdu.type == ResponsePdu) {
        expect(master_.take_answer(), "the subagent answers no more than it was asked");
      } else if (acknowledges_ && master_.is_connected()) {
        master_.send(encoded(response_to(pdu, 0)));
      } else {
        unanswered_.push_back(pdu);
      }
    }
  }

  // An answer that is late, wrong or to nothing.
  void answer_something() {
    Pdu asked = {.type = Notify, .packet = input_.ConsumeIntegral<std::uint8_t>()};
    if (!unanswered_.empty() && input_.ConsumeBool()) {
      asked = unanswered_.front();
      unanswered_.pop_front();
    }
    transmit(response_to(asked, input_.PickValueInArray<std::uint16_t>({0, 1, 5, 256, 268, 0xFFFF})));
  }

  void request() {
    Pdu pdu = {.type = input_.ConsumeBool() ? input_.PickValueInArray<std::uint8_t>({Get, GetNext, GetBulk})
                                            : input_.ConsumeIntegralInRange<std::uint8_t>(0, 20),
               .session = session_number,
               .transaction = input_.ConsumeIntegralInRange<std::uint32_t>(0, 3),
               .packet = input_.ConsumeIntegralInRange<std::uint32_t>(0, 255),
               .payload = {}};
    if (input_.ConsumeIntegral<std::uint8_t>() == 0) {
      pdu.session = input_.ConsumeIntegral<std::uint32_t>();
    }
    if (pdu.type == GetBulk) {
      append_half_word(pdu.payload, input_.ConsumeIntegralInRange<std::uint16_t>(0, 3));
      append_half_word(pdu.payload, input_.ConsumeIntegralInRange<std::uint16_t>(0, 8));
    }
    const int ranges = input_.ConsumeIntegralInRange(0, 4);
    for (int i = 0; i < ranges; ++i) {
      if (pdu.type == TestSet) {
        append_word(pdu.payload, std::uint32_t{ASN_INTEGER} << 16);
        append_name(pdu.payload, 0);
        append_word(pdu.payload, 1);
      } else {
        append_name(pdu.payload, input_.ConsumeBool() ? 1 : 0);
        append_name(pdu.payload, 0);
      }
    }
    master_.await_answer();
    transmit(pdu);
  }

  void append_name(std::string &payload, char inclusive) {
    const std::span<Table *const> tables = some_tables();
    const auto root = tables[input_.ConsumeIntegralInRange<std::size_t>(0, tables.size() - 1)]->description().root;
    std::vector<oid> name(root.begin(), root.end());
    name.insert(name.end(),
                {1, input_.ConsumeIntegralInRange<oid>(0, 60), input_.PickValueInArray<oid>({0, 1, 2, 3, 0xFFFFFFFF})});
    name.resize(input_.ConsumeBool() ? name.size() : input_.ConsumeIntegralInRange<std::size_t>(0, name.size()));
    const bool lies = input_.ConsumeIntegral<std::uint8_t>() == 0;
    payload += static_cast<char>(lies ? input_.ConsumeIntegral<char>() : static_cast<char>(name.size()));
    payload += '\0';  // no prefix
    payload += inclusive;
    payload += '\0';
    for (const oid part : name) {
      append_word(payload, static_cast<std::uint32_t>(part));
    }
  }

  // Now and then, damages what it sends.
  void transmit(const Pdu &pdu) {
    std::string octets = encoded(pdu);
    is_damaged_ = is_damaged_ || pdu.session != session_number;
    const int damage = input_.ConsumeIntegralInRange(0, 31);
    const auto place = damage < 2 ? input_.ConsumeIntegralInRange<std::size_t>(0, octets.size() - 1) : 0;
    is_damaged_ = is_damaged_ || damage < 2;
    if (damage == 0) {
      octets[place] = input_.ConsumeIntegral<char>();
    } else if (damage == 1) {
      octets.resize(place);
    }
    if (master_.is_connected()) {
      master_.send(octets);
    }
  }

  Master &master_;
  Subagent &subagent_;
  FuzzedDataProvider &input_;
  bool acknowledges_ = true;
  bool is_damaged_ = false;
  std::deque<Pdu> unanswered_;
};

}  // namespace

void try_input(Octets input) {
  static Master master;
  static Subagent subagent(master);
  FuzzedDataProvider data(input.data(), input.size());
  if (!master.is_connected()) {
    subagent.turn();  // it notices
    Subagent::open_session(master, -1);
  }
  Conversation(master, subagent, data).run();
}

}  // namespace tavo::fuzz
