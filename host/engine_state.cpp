#include "host/engine_state.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <new>

#include "core/descriptor.h"
#include "host/name.h"

namespace tavo {
namespace {

// net-snmp does not say whether it could write the file.
bool holds(const std::string &file, const std::string &expected) {
  std::ifstream lines(file);
  for (std::string line; std::getline(lines, line);) {
    if (line == expected) {
      return true;
    }
  }
  return false;
}

}  // namespace

std::string engine_state_file() {
  const char *directory = get_persistent_directory();
  if (directory == nullptr) {
    throw std::bad_alloc();
  }
  return std::string(directory) + "/" + daemon_name + ".conf";
}

void store_engine_state() {
  snmp_store(daemon_name);
  const std::string file = engine_state_file();
  if (!holds(file, "engineBoots " + std::to_string(snmpv3_local_snmpEngineBoots()))) {
    snmp_log(LOG_WARNING, "cannot store the state of the SNMPv3 engine in %s: managers may reject it after a restart\n",
             file.c_str());
  }
  // A loss of power must not bring an earlier count back.
  for (const char *path : {file.c_str(), get_persistent_directory()}) {
    if (const Descriptor opened = open_for_reading(path)) {
      fsync(opened.get());
    }
  }
}

void warn_if_engine_state_is_volatile() {
  struct statfs system {};
  if (statfs(get_persistent_directory(), &system) != 0) {
    return;
  }
  const auto type = static_cast<std::uint32_t>(system.f_type);  // signed, and on 32-bit machines too narrow
  if (type == TMPFS_MAGIC || type == RAMFS_MAGIC) {
    snmp_log(LOG_WARNING,
             "the state of the SNMPv3 engine in %s is lost when the controller reboots: managers may reject it then\n",
             get_persistent_directory());
  }
}

}  // namespace tavo
