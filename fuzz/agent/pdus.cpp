// SNMP requests of a manager who knows where the tables are but keeps to no rule, while rows come and go and locks are
// held. Every request must get one answer.
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/library/snmpCallbackDomain.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <list>
#include <set>
#include <span>
#include <vector>

#include "core/table.h"
#include "fuzz/harness/platform.h"
#include "fuzz/harness/tables.h"

// Exported by net-snmp's agent library, but declared in none of its headers.
extern "C" int handle_snmp_packet(int operation, netsnmp_session *session, int request_id, netsnmp_pdu *pdu,
                                  void *magic);

namespace tavo::fuzz {
namespace {

using Name = std::vector<oid>;

// The agent listens on net-snmp's in-process transport.
netsnmp_session *open_agent() {
  netsnmp_register_loghandler(NETSNMP_LOGHANDLER_NONE, LOG_DEBUG);
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
  init_agent("fuzz_pdus");
  init_snmp("fuzz_pdus");
  for (Table *table : all_tables()) {
    expect(table->register_with_agent() == MIB_REGISTERED_OK, "a table is registered");
  }
  const netsnmp_session *agent = netsnmp_callback_open(0, handle_snmp_packet, nullptr, nullptr);
  netsnmp_session *manager = netsnmp_callback_open(agent->local_port, nullptr, nullptr, nullptr);
  std::free(manager->community);
  manager->community = reinterpret_cast<u_char *>(strdup("public"));
  manager->community_len = std::strlen("public");
  manager->timeout = 60'000'000;  // microseconds
  manager->retries = 0;
  return manager;
}

netsnmp_session *manager() {
  static netsnmp_session *session = open_agent();
  return session;
}

// What a request asked for, until it is answered.
struct Request {
  int type;
  std::vector<Name> names;
  bool answered = false;
};

void check_answer(const Request &request, const netsnmp_pdu &answer) {
  expect(answer.errstat >= SNMP_ERR_NOERROR && answer.errstat <= MAX_SNMP_ERR, "an error is one of SNMP's");
  if (answer.errstat != SNMP_ERR_NOERROR || request.type == SNMP_MSG_GETBULK) {
    return;
  }
  const netsnmp_variable_list *varbind = answer.variables;
  for (const Name &asked : request.names) {
    expect(varbind != nullptr, "each varbind is answered");
    const std::span<const oid> name(varbind->name, varbind->name_length);
    if (request.type != SNMP_MSG_GETNEXT) {
      expect(std::ranges::equal(name, asked), "the answer is to what was asked");
    } else if (varbind->type != SNMP_ENDOFMIBVIEW) {
      expect(std::ranges::lexicographical_compare(asked, name), "a walk goes forward");
    }
    varbind = varbind->next_variable;
  }
  expect(varbind == nullptr, "nothing is answered that was not asked");
}

int take_answer(int operation, netsnmp_session *, int, netsnmp_pdu *pdu, void *magic) {
  if (operation == NETSNMP_CALLBACK_OP_SEND_FAILED) {
    return 1;  // net-snmp does not even send it
  }
  auto *request = static_cast<Request *>(magic);
  expect(!request->answered, "a request is answered once");
  expect(operation == NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE, "a request is answered");
  request->answered = true;
  check_answer(*request, *pdu);
  return 1;
}

class Conversation {
 public:
  explicit Conversation(FuzzedDataProvider &input) : input_(input) {}

  void run() {
    constexpr std::size_t most_steps = 24;
    for (std::size_t i = 0; i < most_steps && input_.remaining_bytes() > 0; ++i) {
      step();
    }
    while (!held_.empty()) {
      release(**held_.begin());
    }
    // Each turn takes one packet, and a waiting request one more for each lock.
    for (int turn = 0; turn < 1000 && !all_answered(); ++turn) {
      agent_check_and_process(0);
    }
    expect(all_answered(), "every request is answered");
  }

 private:
  void step() {
    Table &table = *input_.PickValueInArray(tables());
    switch (input_.ConsumeIntegralInRange(0, 7)) {
      case 0:
        hold(table.lock());
        break;
      case 1:
        release(table.lock());
        break;
      case 2:
        change_rows(table);
        break;
      case 3:
        agent_check_and_process(0);
        break;
      default:
        send();
    }
  }

  static std::array<Table *, 20> tables() {
    std::array<Table *, 20> all;
    expect(all_tables().size() == all.size(), "these are all tables");
    std::ranges::copy(all_tables(), all.begin());
    return all;
  }

  void hold(ListLock &lock) TAVO_LOCKING(no_thread_safety_analysis) {
    if (held_.insert(&lock).second) {
      expect(lock.acquire() == 0, "between requests no lock is held");
    }
  }

  void release(ListLock &lock) TAVO_LOCKING(no_thread_safety_analysis) {
    if (held_.erase(&lock) != 0) {
      lock.release();
    }
  }

  void change_rows(Table &table) TAVO_LOCKING(no_thread_safety_analysis) {
    const bool was_held = held_.contains(&table.lock());
    hold(table.lock());
    if (input_.ConsumeBool()) {
      table.remove_all();
    } else {
      const std::vector<std::byte> row(table.description().row.size);
      table.create(input_.PickValueInArray<std::uint32_t>({0, 1, 2, 3, 0x7FFFFFFF, 0xFFFFFFFF}), row.data());
    }
    if (!was_held) {
      release(table.lock());
    }
  }

  Name name() {
    const std::span<const oid> root = input_.PickValueInArray(tables())->description().root;
    Name name(root.begin(), root.end());
    name.insert(name.end(), {1, input_.ConsumeIntegralInRange<oid>(0, 60),
                             input_.PickValueInArray<oid>({0, 1, 2, 3, 0x7FFFFFFF, 0xFFFFFFFF})});
    if (input_.ConsumeBool()) {
      name.resize(input_.ConsumeIntegralInRange<std::size_t>(0, name.size()));
    }
    while (input_.ConsumeIntegral<std::uint8_t>() > 250 && name.size() < MAX_OID_LEN) {
      name.push_back(input_.ConsumeIntegral<std::uint32_t>());
    }
    return name;
  }

  void send() {
    netsnmp_pdu *pdu =
        snmp_pdu_create(input_.PickValueInArray({SNMP_MSG_GET, SNMP_MSG_GETNEXT, SNMP_MSG_GETBULK, SNMP_MSG_SET}));
    pdu->version = input_.ConsumeIntegral<std::uint8_t>() == 0 ? SNMP_VERSION_1 : SNMP_VERSION_2c;
    pdu->flags |= UCD_MSG_FLAG_ALWAYS_IN_VIEW;
    if (pdu->command == SNMP_MSG_GETBULK) {
      pdu->non_repeaters = input_.ConsumeIntegralInRange(-1, 4);
      pdu->max_repetitions = input_.ConsumeIntegralInRange(-1, 8);
    }
    Request &request = requests_.emplace_back(Request{.type = pdu->command, .names = {}});
    const auto count = input_.ConsumeIntegralInRange<std::size_t>(0, 6);
    for (std::size_t i = 0; i < count; ++i) {
      const Name &asked = request.names.emplace_back(name());
      if (pdu->command == SNMP_MSG_SET) {
        const std::int32_t value = 1;
        snmp_pdu_add_variable(pdu, asked.data(), asked.size(), ASN_INTEGER, &value, sizeof value);
      } else {
        snmp_add_null_var(pdu, asked.data(), asked.size());
      }
    }
    if (snmp_async_send(manager(), pdu, take_answer, &request) == 0) {
      snmp_free_pdu(pdu);
      requests_.pop_back();
    }
  }

  bool all_answered() const { return std::ranges::all_of(requests_, &Request::answered); }

  FuzzedDataProvider &input_;
  std::list<Request> requests_;
  std::set<ListLock *> held_;
};

void start_with_two_rows(Table &table) {
  const ListGuard guard(table.lock());
  table.remove_all();
  const std::vector<std::byte> row(table.description().row.size);
  table.create(1, row.data());
  table.create(2, row.data());
}

}  // namespace

void try_input(Octets input) {
  manager();
  Platform platform(input);
  std::ranges::for_each(all_tables(), [](Table *table) { start_with_two_rows(*table); });
  Conversation(platform.answers).run();
}

}  // namespace tavo::fuzz
