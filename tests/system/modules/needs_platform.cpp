// Calls a function of the platform's library, and logs what it returns.
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

namespace tavo {

extern "C" {

int tavo_test_platform_answer();

int init_subagent_modules() {
  snmp_log(LOG_INFO, "the platform answers %d\n", tavo_test_platform_answer());
  return 0;
}
}

}  // namespace tavo
