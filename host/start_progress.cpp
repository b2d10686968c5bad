#include "host/start_progress.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/agent_callbacks.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <systemd/sd-daemon.h>

#include <atomic>
#include <cstdint>

namespace tavo {
namespace {

// How much longer systemd may wait after a sign of life; 0 while nothing starts.
std::atomic<std::int64_t> extension_us = 0;

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
    sd_notifyf(0, "EXTEND_TIMEOUT_USEC=%lld", static_cast<long long>(extension));
  }
}

// The module registers each table before it builds it.
int StartProgress::table_registered(int /*major*/, int /*minor*/, void *registration, void * /*self*/) {
  const auto *registered = static_cast<const register_parameters *>(registration)->reginfo;
  if (registered != nullptr && registered->handlerName != nullptr) {
    sd_notifyf(0, "STATUS=building %s", registered->handlerName);
  }
  sign_of_life();
  return SNMPERR_SUCCESS;
}

}  // namespace tavo
