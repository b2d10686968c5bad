// Serialises the agent's log. net-snmp's log handlers and debug tokens have no lock, and the module logs and traces
// from all its threads, so the daemon replaces the three functions and lets one thread in at a time. The library's own
// calls come through here too.
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <new>
#include <vector>

#include "host/interposed.h"

namespace tavo {
namespace {

// Recursive, because a log handler that fails logs its failure. Never destroyed, because threads may outlive main().
std::recursive_mutex &log_mutex() {
  static auto *mutex = new std::recursive_mutex;
  return *mutex;
}

using DebugFunction = void(const char *token, const char *format, ...);

void debug_one_at_a_time(DebugFunction *original, const char *token, const char *format, std::va_list arguments) {
  const std::lock_guard lock(log_mutex());
  if (debug_is_token_registered(token) != SNMPERR_SUCCESS) {
    return;
  }
  std::va_list again;
  va_copy(again, arguments);
  std::array<char, 1024> buffer{};
  const int length = std::vsnprintf(buffer.data(), buffer.size(), format, arguments);
  if (length < static_cast<int>(buffer.size())) {
    original(token, "%s", buffer.data());
  } else {
    try {
      std::vector<char> longer(static_cast<std::size_t>(length) + 1);
      std::vsnprintf(longer.data(), longer.size(), format, again);
      original(token, "%s", longer.data());
    } catch (const std::bad_alloc &) {
      original(token, "%s", buffer.data());
    }
  }
  va_end(again);
}

}  // namespace

extern "C" {

int snmp_log(int priority, const char *format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  int result = 0;
  {
    const std::lock_guard lock(log_mutex());
    result = snmp_vlog(priority, format, arguments);
  }
  va_end(arguments);
  return result;
}

void debugmsg(const char *token, const char *format, ...) {
  static auto *const original = next_definition<DebugFunction>("debugmsg");
  std::va_list arguments;
  va_start(arguments, format);
  debug_one_at_a_time(original, token, format, arguments);
  va_end(arguments);
}

void debugmsgtoken(const char *token, const char *format, ...) {
  static auto *const original = next_definition<DebugFunction>("debugmsgtoken");
  std::va_list arguments;
  va_start(arguments, format);
  debug_one_at_a_time(original, token, format, arguments);
  va_end(arguments);
}
}

}  // namespace tavo
