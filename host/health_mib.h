// Serves TAVO-SUBAGENT-MIB: how the daemon itself is. No value takes a lock of the module, so the answer comes at once
// while every table of the module waits.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <chrono>

#include "host/module_health.h"
#include "host/notification_path.h"
#include "host/platform_calls.h"
#include "host/tools.h"

namespace tavo {

// Everything belongs to the loop's thread.
class HealthMib {
 public:
  // Who knows the values.
  struct Sources {
    bool stand_alone;
    NotificationPath &notifications;
    const ToolRunner &tools;
    const PlatformCalls &platform_calls;
    const ModuleHealth &module;
  };

  explicit HealthMib(const Sources &sources) : sources_(sources) {}
  HealthMib(const HealthMib &) = delete;
  HealthMib &operator=(const HealthMib &) = delete;

  // Registers all objects. Call it after init_agent() and before an AgentX session is opened. An object that cannot be
  // registered is logged and not served. The agent keeps pointers to this object and to its sources.
  void attach();

  const Sources &sources() const { return sources_; }
  std::chrono::steady_clock::duration uptime() const { return std::chrono::steady_clock::now() - started_; }

 private:
  const Sources sources_;
  const std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
};

}  // namespace tavo
