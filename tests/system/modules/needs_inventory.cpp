// Calls a function of the platform's library that the daemon stands in front of, and logs what it returns.
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include "platform/inventory.h"

namespace tavo {

extern "C" int init_subagent_modules() {
  int count = 0;
  const int result = GetCPUItems(&count, sizeof count, nullptr, &count);
  snmp_log(LOG_INFO, "the inventory answers %d\n", result);
  return 0;
}

}  // namespace tavo
