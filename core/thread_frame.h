// The outermost function of a background thread. It is not with the rest of what threads have in common, because it
// catches exceptions: only what is built with tables for unwinding may include it.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>
#include <pthread.h>

#include <exception>

namespace tavo {

// The frame of a start routine: does the thread's work, logs an exception that would otherwise end the process, and
// leaves by pthread_exit. That unwinds the stack, so no caller may be noexcept. Only standard exceptions are caught,
// because `catch (...)` would also catch such an unwinding.
template <class Work>
[[noreturn]] void run_thread(const char *name, Work work) {
  try {
    work();
  } catch (const std::exception &exception) {
    snmp_log(LOG_ERR, "%s: %s\n", name, exception.what());
  }
  pthread_exit(nullptr);
}

}  // namespace tavo
