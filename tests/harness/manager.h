// A manager for net-snmp's agent, both in this process. Requests pass through the agent and the registered handlers as
// in the daemon, but without sockets, views or encoding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <span>
#include <vector>

#include "tests/harness/value.h"

namespace tavo::fakes {

struct Answer {
  Oid name;
  Value value;
  bool operator==(const Answer &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Answer &answer);

struct Response {
  long error_status;  // SNMP_ERR_...
  long error_index;   // from 1, 0 for none
  std::vector<Answer> answers;
};

// One SNMPv2c PDU each. The first call of any of these starts the agent. Call all of them from one thread, which
// becomes the agent's. They throw std::runtime_error without a response.
Response get(const std::vector<Oid> &names);
Response get_next(const std::vector<Oid> &names);
Response set(const std::vector<Oid> &names, std::int32_t value);

// The response to a PDU that the agent may set aside.
class PendingResponse {
 public:
  // Gives the agent's loop a few turns. Whether the response has arrived.
  bool arrived() const;
  // Runs the agent's loop until the response arrives.
  Response wait() const;

 private:
  friend PendingResponse send_pdu(netsnmp_pdu *pdu);
  struct State;
  std::shared_ptr<State> state_;
};

PendingResponse send_get(const std::vector<Oid> &names);
PendingResponse send_get_next(const std::vector<Oid> &names);
PendingResponse send_get_bulk(const std::vector<Oid> &names, int repetitions);
PendingResponse send_set(const std::vector<Oid> &names, std::int32_t value);
// Takes the PDU over.
PendingResponse send_pdu(netsnmp_pdu *pdu);

// The session that the PDUs go through, for callers that build their own.
netsnmp_session *session_to_agent();

// Everything under `root`, by one GETNEXT after the other or by GETBULKs. Throws std::runtime_error when a response has
// an error or a name does not ascend.
std::vector<Answer> walk(std::span<const oid> root);
std::vector<Answer> bulk_walk(std::span<const oid> root, int repetitions);

// The name of a table's cell. `table`: the table's OID, without the entry.
Oid cell(std::span<const oid> table, oid column, oid index);

}  // namespace tavo::fakes
