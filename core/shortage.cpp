#include "core/shortage.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>

#include "core/descriptor.h"
#include "core/zeroed.h"

namespace tavo {
namespace {

// A tool's pipe and a file, and one to spare.
constexpr std::size_t needed_descriptors = 4;
// The largest dump.
constexpr std::size_t needed_octets = std::size_t{1} << 20;

bool descriptors_are_free() {
  std::array<Descriptor, needed_descriptors> probes;
  std::ranges::generate(probes, [] { return Descriptor(::eventfd(0, EFD_CLOEXEC)); });
  return std::ranges::all_of(probes, [](const Descriptor &probe) { return static_cast<bool>(probe); });
}

bool memory_is_free() {
  // Volatile, because a compiler may leave out an allocation that is only freed; clang does.
  void *volatile probe = allocate_zeroed(1, needed_octets);
  const bool is_free = probe != nullptr;
  std::free(probe);
  return is_free;
}

// What is logged when a shortage is seen, and once it is over.
struct Shortage {
  const char *seen;
  const char *over;
};
constexpr Shortage of_descriptors = {
    .seen = "no file descriptor is free: tables that are built now may be incomplete\n",
    .over = "file descriptors are free again: rebuilding the tables\n",
};
constexpr Shortage of_memory = {
    .seen = "memory is short: tables that are built now may be incomplete\n",
    .over = "memory is free again: rebuilding the tables\n",
};

constinit const Shortage *remembered = nullptr;

void remember(const Shortage &shortage) {
  remembered = &shortage;
  snmp_log(LOG_WARNING, "%s", shortage.seen);
}

}  // namespace

int accept_when_possible(int listener, const char *name, const BackgroundThread &thread) {
  constexpr unsigned int pause = 1;  // seconds
  bool said = false;
  while (true) {
    const int accepted = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (accepted >= 0 || (errno != EMFILE && errno != ENFILE) || !thread.is_running()) {
      return accepted;
    }
    if (!said) {
      snmp_log(LOG_WARNING, "%s: no file descriptor is free for a connection, which has to wait\n", name);
      said = true;
    }
    ::sleep(pause);
  }
}

void look_for_shortage() {
  if (remembered != nullptr) {
    return;
  }
  if (failed_allocations.exchange(0) != 0) {
    remember(of_memory);
  } else if (!descriptors_are_free()) {
    remember(of_descriptors);
  }
}

bool shortage_is_over() {
  if (remembered == nullptr && failed_allocations.exchange(0) != 0) {
    remember(of_memory);  // on a thread that does not look itself
  }
  if (remembered == nullptr || !descriptors_are_free() || !memory_is_free()) {
    return false;
  }
  snmp_log(LOG_WARNING, "%s", remembered->over);
  remembered = nullptr;
  failed_allocations = 0;
  return true;
}

}  // namespace tavo
