#include "host/dump_files.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace tavo {
namespace {

constexpr const char *directory = "/var";
constexpr auto dumps = std::to_array<const char *>({
    "/var/getCPUInventory",
    "/var/getMemoryInventory",
    "/var/getPSUInventory",
    "/var/getNumOfHDD",
    "/var/adapterInventory",
    "/var/LedInv",
    "/var/memoryStatsInventory",
    "/var/processorStatsInventory",
    "/var/motherboardStatsInventory",
});

bool can_write(const char *path, int also) {
  return faccessat(AT_FDCWD, path, W_OK | also, AT_EACCESS) == 0;
}

void warn(const char *path) {
  snmp_log(
      LOG_WARNING,
      "user %u cannot write %s: %s. What tables take from there stays empty, and each attempt takes 25 s or more\n",
      geteuid(), path, std::strerror(errno));
}

}  // namespace

void warn_of_unwritable_dumps() {
  if (!can_write(directory, X_OK)) {
    warn(directory);
  }
  for (const char *dump : dumps) {
    if (!can_write(dump, F_OK) && errno != ENOENT) {
      warn(dump);
    }
  }
}

}  // namespace tavo
