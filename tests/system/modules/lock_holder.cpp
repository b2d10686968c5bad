// Makes requests wait, as during a table's rebuild. The order "hold SECONDS" holds the lock that guards BASE.4.0
// (always 42); BASE.5.0 (always 43) needs no lock. Logs "holding" when it has the lock, and "waiting" before a request
// takes it.
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <mutex>

#include "control.h"

namespace tavo {

namespace {

std::mutex rows;

int answer(netsnmp_mib_handler * /*handler*/, netsnmp_handler_registration *registration,
           netsnmp_agent_request_info *info, netsnmp_request_info *request) {
  const bool guarded = registration->rootoid[test_base_length] == 4;
  if (guarded) {
    snmp_log(LOG_INFO, "waiting\n");
    rows.lock();
  }
  if (info->mode == MODE_GET) {
    const long value = guarded ? 42 : 43;
    snmp_set_var_typed_integer(request->requestvb, ASN_INTEGER, value);
  }
  if (guarded) {
    rows.unlock();
  }
  return SNMP_ERR_NOERROR;
}

void register_scalar(oid number) {
  oid name[test_base_length + 1];
  std::copy(std::begin(test_base), std::end(test_base), name);
  name[test_base_length] = number;
  netsnmp_register_scalar(
      netsnmp_create_handler_registration("answer", answer, name, std::size(name), HANDLER_CAN_RONLY));
}

}  // namespace

extern "C" int init_subagent_modules() {
  register_scalar(4);
  register_scalar(5);
  obey_control_lines([](const std::string &line) {
    const std::lock_guard hold(rows);
    snmp_log(LOG_INFO, "holding\n");
    std::this_thread::sleep_for(std::chrono::duration<double>(std::stod(line.substr(line.find(' ')))));
  });
  return 0;
}

}  // namespace tavo
