#include "core/shortage.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "core/descriptor.h"

namespace tavo {
namespace {

// A tool's pipe and a file, and one to spare.
constexpr std::size_t needed_descriptors = 4;

bool enough_are_free() {
  std::array<Descriptor, needed_descriptors> probes;
  std::ranges::generate(probes, [] { return Descriptor(::eventfd(0, EFD_CLOEXEC)); });
  return std::ranges::all_of(probes, [](const Descriptor &probe) { return static_cast<bool>(probe); });
}

constinit bool was_short = false;

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
  if (!was_short && !enough_are_free()) {
    was_short = true;
    snmp_log(LOG_WARNING, "no file descriptor is free: tables that are built now may be incomplete\n");
  }
}

bool shortage_is_over() {
  if (!was_short || !enough_are_free()) {
    return false;
  }
  was_short = false;
  return true;
}

}  // namespace tavo
