#include "tests/harness/manager.h"

#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/library/snmpCallbackDomain.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>

// Exported by net-snmp's agent library, but declared in none of its headers.
extern "C" int handle_snmp_packet(int operation, netsnmp_session *session, int request_id, netsnmp_pdu *pdu,
                                  void *magic);

namespace tavo::fakes {
namespace {

// The agent listens on net-snmp's in-process transport, which subagents use for requests to themselves.
netsnmp_session *open_agent() {
  setenv("MIBS", "", 1);
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
  init_agent("unit_tests");
  init_snmp("unit_tests");
  const netsnmp_session *agent = netsnmp_callback_open(0, handle_snmp_packet, nullptr, nullptr);
  netsnmp_session *manager =
      agent == nullptr ? nullptr : netsnmp_callback_open(agent->local_port, nullptr, nullptr, nullptr);
  if (manager == nullptr) {
    throw std::runtime_error("cannot open a session to the agent in this process");
  }
  std::free(manager->community);
  manager->community = reinterpret_cast<u_char *>(strdup("public"));  // required, but never checked
  manager->community_len = 6;
  manager->timeout = 60'000'000;  // microseconds
  manager->retries = 0;
  return manager;
}

struct FreePdu {
  void operator()(netsnmp_pdu *pdu) const { snmp_free_pdu(pdu); }
};
using Pdu = std::unique_ptr<netsnmp_pdu, FreePdu>;

Pdu request(int type) {
  Pdu pdu(snmp_pdu_create(type));
  pdu->version = SNMP_VERSION_2c;
  pdu->flags |= UCD_MSG_FLAG_ALWAYS_IN_VIEW;
  return pdu;
}

Pdu request(int type, const std::vector<Oid> &names) {
  Pdu pdu = request(type);
  for (const Oid &name : names) {
    snmp_add_null_var(pdu.get(), name.data(), name.size());
  }
  return pdu;
}

bool is_under(std::span<const oid> root, const Oid &name) {
  return name.size() >= root.size() && std::ranges::equal(root, std::span(name).first(root.size()));
}

// `ask` requests what follows a name and returns the response.
template <class Ask>
std::vector<Answer> walked(std::span<const oid> root, Ask ask) {
  std::vector<Answer> walk;
  Oid last(root.begin(), root.end());
  while (true) {
    const Response response = ask(last);
    if (response.error_status != SNMP_ERR_NOERROR || response.answers.empty()) {
      throw std::runtime_error("the walk ended behind " + dotted(last) + " with error " +
                               std::to_string(response.error_status));
    }
    for (const Answer &answer : response.answers) {
      if (answer.value == end_of_mib_view || !is_under(root, answer.name)) {
        return walk;
      }
      if (!std::ranges::lexicographical_compare(last, answer.name)) {
        throw std::runtime_error(dotted(answer.name) + " does not follow " + dotted(last));
      }
      last = answer.name;
      walk.push_back(answer);
    }
  }
}

Response response_in(const netsnmp_pdu &pdu) {
  Response response = {.error_status = pdu.errstat, .error_index = pdu.errindex, .answers = {}};
  for (const netsnmp_variable_list *varbind = pdu.variables; varbind != nullptr; varbind = varbind->next_variable) {
    const std::span name(varbind->name, varbind->name_length);
    response.answers.push_back({.name = {name.begin(), name.end()}, .value = value_of(*varbind)});
  }
  return response;
}

}  // namespace

struct PendingResponse::State {
  std::optional<Response> response;
  bool lost = false;

  static int take(int operation, netsnmp_session *, int, netsnmp_pdu *pdu, void *waiting) {
    const std::unique_ptr<std::shared_ptr<State>> state(static_cast<std::shared_ptr<State> *>(waiting));
    if (operation == NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE) {
      (*state)->response = response_in(*pdu);
    } else {
      (*state)->lost = true;
    }
    return 1;
  }
};

PendingResponse send_pdu(netsnmp_pdu *pdu) {
  PendingResponse pending;
  pending.state_ = std::make_shared<PendingResponse::State>();
  netsnmp_session *session = session_to_agent();
  auto waiting = std::make_unique<std::shared_ptr<PendingResponse::State>>(pending.state_);
  if (snmp_async_send(session, pdu, PendingResponse::State::take, waiting.get()) == 0) {
    snmp_free_pdu(pdu);
    throw std::runtime_error(std::string("cannot ask the agent: ") + snmp_api_errstring(session->s_snmp_errno));
  }
  static_cast<void>(waiting.release());
  return pending;
}

bool PendingResponse::arrived() const {
  // One turn reads the request, a second one the response.
  for (int turn = 0; turn < 4 && !state_->response; ++turn) {
    agent_check_and_process(0);
  }
  return state_->response.has_value();
}

Response PendingResponse::wait() const {
  while (!state_->response) {
    if (state_->lost) {
      throw std::runtime_error("the agent did not respond");
    }
    agent_check_and_process(1);
  }
  return *state_->response;
}

netsnmp_session *session_to_agent() {
  static netsnmp_session *session = open_agent();
  return session;
}

std::ostream &operator<<(std::ostream &out, const Answer &answer) {
  return out << dotted(answer.name) << " = " << answer.value;
}

PendingResponse send_get(const std::vector<Oid> &names) {
  return send_pdu(request(SNMP_MSG_GET, names).release());
}

PendingResponse send_get_next(const std::vector<Oid> &names) {
  return send_pdu(request(SNMP_MSG_GETNEXT, names).release());
}

PendingResponse send_get_bulk(const std::vector<Oid> &names, int repetitions) {
  Pdu pdu = request(SNMP_MSG_GETBULK, names);
  pdu->non_repeaters = 0;
  pdu->max_repetitions = repetitions;
  return send_pdu(pdu.release());
}

PendingResponse send_set(const std::vector<Oid> &names, std::int32_t value) {
  Pdu pdu = request(SNMP_MSG_SET);
  for (const Oid &name : names) {
    snmp_pdu_add_variable(pdu.get(), name.data(), name.size(), ASN_INTEGER, &value, sizeof value);
  }
  return send_pdu(pdu.release());
}

Response get(const std::vector<Oid> &names) {
  return send_get(names).wait();
}

Response get_next(const std::vector<Oid> &names) {
  return send_get_next(names).wait();
}

Response set(const std::vector<Oid> &names, std::int32_t value) {
  return send_set(names, value).wait();
}

std::vector<Answer> walk(std::span<const oid> root) {
  return walked(root, [](const Oid &last) { return get_next({last}); });
}

std::vector<Answer> bulk_walk(std::span<const oid> root, int repetitions) {
  return walked(root, [repetitions](const Oid &last) { return send_get_bulk({last}, repetitions).wait(); });
}

Oid cell(std::span<const oid> table, oid column, oid index) {
  Oid name(table.begin(), table.end());
  name.insert(name.end(), {1, column, index});
  return name;
}

}  // namespace tavo::fakes
