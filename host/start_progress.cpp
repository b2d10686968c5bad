#include "host/start_progress.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/agent_callbacks.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <array>
#include <atomic>
#include <cinttypes>
#include <cstdint>
#include <cstdio>

#include "host/service_manager.h"

namespace tavo {
namespace {

// How much longer systemd may wait after a sign of life; 0 while nothing starts.
std::atomic<std::int64_t> extension_us = 0;

// Without memory of its own. What is too long for a line of systemctl is cut off.
template <class Value>
void report(const char *format, Value value) {
  std::array<char, 128> state{};
  std::snprintf(state.data(), state.size(), format, value);
  report_to_service_manager(Report::Passing, state.data());
}

}  // namespace

StartProgress::StartProgress(std::chrono::seconds longest_silence) {
  extension_us = std::chrono::microseconds(longest_silence).count();
  snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_REGISTER_OID, table_registered, this);
}

StartProgress::~StartProgress() {
  snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_REGISTER_OID, table_registered, this, 1);
  extension_us = 0;
}

void StartProgress::sign_of_life() {
  if (const std::int64_t extension = extension_us; extension != 0) {
    report("EXTEND_TIMEOUT_USEC=%" PRIi64, extension);
  }
}

// The module registers each table before it builds it.
int StartProgress::table_registered(int /*major*/, int /*minor*/, void *registration, void * /*self*/) {
  const auto *registered = static_cast<const register_parameters *>(registration)->reginfo;
  if (registered != nullptr && registered->handlerName != nullptr) {
    report("STATUS=building %s", registered->handlerName);
  }
  sign_of_life();
  return SNMPERR_SUCCESS;
}

}  // namespace tavo
