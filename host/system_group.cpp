#include "host/system_group.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <string>

#include "host/name.h"

namespace tavo {

// No installed header declares these.
extern "C" void init_system_mib(void);
extern "C" void init_sysORTable(void);  // NOLINT(readability-identifier-naming): net-snmp's name
extern "C" int snmp_config_when(char *line, int when);

namespace {

// Does what the line does in a configuration file, at once. netsnmp_config() would do it again after the files, and so
// overrule them.
void configure(std::string line) {
  snmp_config_when(line.data(), NORMAL_CONFIG);
}

}  // namespace

void serve_system_group() {
  init_system_mib();
  init_sysORTable();
  configure("sysObjectID .1.3.6.1.4.1.61453.1.3301");
  configure("sysServices 72");  // end-to-end and applications, as for every host
  configure(std::string("sysDescr Management controller of a rack server, ") + daemon_name + " " SUBAGENTD_VERSION);
}

}  // namespace tavo
