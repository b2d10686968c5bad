#include "host/dump_files.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>

namespace tavo {
namespace {

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

// What must be writable so that a tool can write the dump: the file, or the directory that it will be made in. The dump
// may be a link to a file that does not exist yet.
std::filesystem::path place_of(const std::filesystem::path &dump) {
  std::error_code ignored;
  const std::filesystem::path target = std::filesystem::read_symlink(dump, ignored);
  const std::filesystem::path file = dump.parent_path() / (target.empty() ? dump : target);
  return std::filesystem::exists(file, ignored) ? file : file.parent_path();
}

bool can_write(const std::filesystem::path &place) {
  std::error_code ignored;
  const int search = std::filesystem::is_directory(place, ignored) ? X_OK : 0;
  return faccessat(AT_FDCWD, place.c_str(), W_OK | search, AT_EACCESS) == 0;
}

}  // namespace

void warn_of_unwritable_dumps() {
  std::set<std::filesystem::path> places;
  for (const char *dump : dumps) {
    places.insert(place_of(dump));
  }
  for (const std::filesystem::path &place : places) {
    if (!can_write(place)) {
      snmp_log(LOG_WARNING,
               "user %u cannot write %s: %s. What tables take from there stays empty, and each attempt takes 25 s or "
               "more\n",
               geteuid(), place.c_str(), std::strerror(errno));
    }
  }
}

}  // namespace tavo
