#include "host/master_subtrees.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/agent_callbacks.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <string>

#include "host/interposed.h"

namespace tavo {

// No installed header declares them. They return 1 for success, 0 for failure.
extern "C" {
int agentx_register(netsnmp_session *session, oid *start, std::size_t length, int priority, int range_subid,
                    oid range_bound, int timeout, unsigned char flags, const char *context);
int agentx_unregister(netsnmp_session *session, oid *start, std::size_t length, int priority, int range_subid,
                      oid range_bound, const char *context);
}

namespace {

using Subtree = std::array<oid, 9>;

constexpr std::array<Subtree, MasterSubtrees::count> subtrees = {{
    {1, 3, 6, 1, 4, 1, 61453, 4, 207},
    {1, 3, 6, 1, 4, 1, 61453, 4, 208},
}};

constexpr unsigned int retry_seconds = 5;

std::string dotted(std::span<const oid> name) {
  std::string text;
  for (const oid number : name) {
    text += (text.empty() ? "" : ".") + std::to_string(number);
  }
  return text;
}

// Whether the daemon has registered this object with the master already, as a part of a subtree.
bool is_covered(std::span<const oid> name, const char *context) {
  return (context == nullptr || *context == '\0') && std::ranges::any_of(subtrees, [&](const Subtree &subtree) {
           return name.size() >= subtree.size() && std::ranges::equal(name.first(subtree.size()), subtree);
         });
}

bool register_whole(void *session, Subtree subtree) {
  static auto *const original = next_definition<decltype(agentx_register)>("agentx_register");
  return original(static_cast<netsnmp_session *>(session), subtree.data(), subtree.size(), DEFAULT_MIB_PRIORITY, 0, 0,
                  0, 0, nullptr) == 1;
}

}  // namespace

MasterSubtrees::MasterSubtrees() {
  // net-snmp reports the session only through these callbacks of its index allocation.
  snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START, session_opened, this);
  snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP, session_ended, this);
}

MasterSubtrees::~MasterSubtrees() {
  stop_alarm();
  snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START, session_opened, this, 1);
  snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP, session_ended, this, 1);
}

int MasterSubtrees::session_opened(int /*major*/, int /*minor*/, void *session, void *self) {
  auto *master = static_cast<MasterSubtrees *>(self);
  master->session_ = session;
  master->register_missing();
  return SNMPERR_SUCCESS;
}

int MasterSubtrees::session_ended(int /*major*/, int /*minor*/, void * /*session*/, void *self) {
  auto *master = static_cast<MasterSubtrees *>(self);
  master->session_ = nullptr;
  master->registered_.reset();
  master->stop_alarm();
  return SNMPERR_SUCCESS;
}

void MasterSubtrees::register_missing() {
  // A registration waits for the master's answer, and the session may end meanwhile.
  for (std::size_t i = 0; i < count && session_ != nullptr; ++i) {
    if (!registered_[i]) {
      registered_[i] = register_whole(session_, subtrees[i]) && session_ != nullptr;
      if (!registered_[i]) {
        snmp_log(LOG_WARNING, "the AgentX master did not register %s\n", dotted(subtrees[i]).c_str());
      }
    }
  }
  if (session_ != nullptr && !registered_.all()) {
    alarm_ = snmp_alarm_register(
        retry_seconds, 0,
        [](unsigned int /*alarm*/, void *self) {
          static_cast<MasterSubtrees *>(self)->alarm_ = 0;
          static_cast<MasterSubtrees *>(self)->register_missing();
        },
        this);
  }
}

void MasterSubtrees::stop_alarm() {
  if (alarm_ != 0) {
    snmp_alarm_unregister(alarm_);
    alarm_ = 0;
  }
}

extern "C" {

// What net-snmp calls for each object that it registers or de-registers while a session is open, and for each object
// that it has after a session was opened.
int agentx_register(netsnmp_session *session, oid *start, std::size_t length, int priority, int range_subid,
                    oid range_bound, int timeout, unsigned char flags, const char *context) {
  static auto *const original = next_definition<decltype(agentx_register)>("agentx_register");
  if (is_covered({start, length}, context)) {
    return 1;
  }
  return original(session, start, length, priority, range_subid, range_bound, timeout, flags, context);
}

int agentx_unregister(netsnmp_session *session, oid *start, std::size_t length, int priority, int range_subid,
                      oid range_bound, const char *context) {
  static auto *const original = next_definition<decltype(agentx_unregister)>("agentx_unregister");
  if (is_covered({start, length}, context)) {
    return 1;
  }
  return original(session, start, length, priority, range_subid, range_bound, context);
}
}

}  // namespace tavo
