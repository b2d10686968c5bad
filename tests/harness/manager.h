// A manager that asks net-snmp's agent, both in this process: requests pass through the agent and the handlers of
// whatever the test has registered, as they do in the daemon, but no socket, no view and no encoding is between them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
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

// One PDU each, SNMPv2c. The first call of any of these starts the agent. All come from one thread, the agent's, and
// throw std::runtime_error when no response comes.
Response get(const std::vector<Oid> &names);
Response get_next(const std::vector<Oid> &names);
Response set(const std::vector<Oid> &names, std::int32_t value);

// The session that the PDUs go through, for those who send their own.
netsnmp_session *session_to_agent();

// Everything under `root`, by one GETNEXT after the other or by GETBULKs. Throws std::runtime_error when a response has
// an error or a name does not ascend.
std::vector<Answer> walk(std::span<const oid> root);
std::vector<Answer> bulk_walk(std::span<const oid> root, int repetitions);

// The name of a table's cell. `table`: the table's OID, without the entry.
Oid cell(std::span<const oid> table, oid column, oid index);

}  // namespace tavo::fakes
