// Sends notifications from a thread of its own. The order "send FIRST COUNT OCTETS" sends numbered ones as fast as it
// can, each padded with that many octets; "kinds" sends one of each kind. Serves the number sent so far at BASE.1.0.
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <algorithm>
#include <iterator>
#include <sstream>

#include "control.h"

namespace tavo {

namespace {

int sent = 0;

void send_notification(unsigned long number, std::size_t octets) {
  const oid trap_oid[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
  const oid kind[] = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 200, 0, 1};
  oid name[test_base_length + 2];
  std::copy(std::begin(test_base), std::end(test_base), name);
  name[test_base_length] = 2;
  name[test_base_length + 1] = 0;
  netsnmp_variable_list *varbinds = nullptr;
  snmp_varlist_add_variable(&varbinds, trap_oid, std::size(trap_oid), ASN_OBJECT_ID, kind, sizeof kind);
  snmp_varlist_add_variable(&varbinds, name, std::size(name), ASN_UNSIGNED, &number, sizeof number);
  const std::string padding(octets, 'x');
  name[test_base_length] = 3;
  snmp_varlist_add_variable(&varbinds, name, std::size(name), ASN_OCTET_STR, padding.data(), padding.size());
  send_v3trap(varbinds, nullptr);
  snmp_free_varbind(varbinds);
}

// Uses both sending functions and every type of value, with and without a context.
void send_kinds() {
  const oid trap_oid[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
  const oid enterprise[] = {1, 3, 6, 1, 4, 1, 61453, 1, 3301};
  const oid name[] = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 200, 9, 0};
  const long integer = -7;
  const unsigned long large = 4'294'967'295;
  const counter64 wide{1, 2};
  netsnmp_variable_list *varbinds = nullptr;
  const auto add = [&](u_char type, const void *value, std::size_t size) {
    snmp_varlist_add_variable(&varbinds, name, std::size(name), type, value, size);
  };
  add(ASN_OCTET_STR, "text", 4);
  send_enterprise_trap_vars(1, -1, enterprise, std::size(enterprise), varbinds);
  send_enterprise_trap_vars(6, 12, enterprise, std::size(enterprise), varbinds);
  snmp_free_varbind(varbinds);
  varbinds = nullptr;
  snmp_varlist_add_variable(&varbinds, trap_oid, std::size(trap_oid), ASN_OBJECT_ID, name, sizeof name);
  add(ASN_OCTET_STR, "", 0);
  add(ASN_INTEGER, &integer, sizeof integer);
  add(ASN_UNSIGNED, &large, sizeof large);
  add(ASN_COUNTER, &large, sizeof large);
  add(ASN_COUNTER64, &wide, sizeof wide);
  add(ASN_OBJECT_ID, name, sizeof name);
  send_v3trap(varbinds, nullptr);
  send_v3trap(varbinds, "0x8000F00D0300002A6B7C8D01");
  snmp_free_varbind(varbinds);
}

void send_burst(const std::string &line) {
  std::istringstream words(line);
  std::string verb;
  unsigned long first = 0;
  unsigned long count = 0;
  std::size_t octets = 0;
  words >> verb >> first >> count >> octets;
  for (unsigned long number = first; number < first + count; ++number) {
    send_notification(number, octets);
    __atomic_add_fetch(&sent, 1, __ATOMIC_RELAXED);
    snmp_log(LOG_DEBUG, "sent number %lu\n", number);
  }
}

}  // namespace

extern "C" int init_subagent_modules() {
  oid name[test_base_length + 1];
  std::copy(std::begin(test_base), std::end(test_base), name);
  name[test_base_length] = 1;
  netsnmp_register_read_only_int_scalar("sent", name, std::size(name), &sent, nullptr);
  obey_control_lines([](const std::string &line) {
    if (line == "kinds") {
      send_kinds();
    } else {
      send_burst(line);
    }
  });
  return 0;
}

}  // namespace tavo
