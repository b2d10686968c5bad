#include "host/notification_path.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/agent_callbacks.h>
#include <net-snmp/agent/agent_trap.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <atomic>
#include <new>
#include <utility>

#include "host/interposed.h"

namespace tavo {
namespace {

constexpr int agentx_notify = 12;  // no installed header defines it
// How long a master may take to acknowledge. By default net-snmp sends again after a second, and a slow master then
// passes the same notification on twice.
constexpr long answer_seconds = 60;

std::atomic<NotificationPath *> current_path = nullptr;

// What happened at the AgentX session while net-snmp sent a notification. Only the loop's thread uses it.
struct AgentxAttempt {
  enum Outcome {
    Discarded,  // net-snmp refused the notification itself
    Sent,       // as number `request`
    SocketBroken,
  };
  Outcome outcome = Discarded;
  int request = 0;
};
AgentxAttempt *current_attempt = nullptr;

class CurrentAttempt {
 public:
  explicit CurrentAttempt(AgentxAttempt &attempt) { current_attempt = &attempt; }
  ~CurrentAttempt() { current_attempt = nullptr; }
  CurrentAttempt(const CurrentAttempt &) = delete;
  CurrentAttempt &operator=(const CurrentAttempt &) = delete;
};

int notify_answered(int operation, netsnmp_session * /*session*/, int request, netsnmp_pdu *answer, void * /*magic*/) {
  const bool timed_out = operation == NETSNMP_CALLBACK_OP_TIMED_OUT;
  if (!timed_out && operation != NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE) {
    return 1;  // the session is ending; link_down() follows
  }
  const bool accepted = !timed_out && answer->errstat == 0;
  NotificationPath *path = current_path.load();
  // net-snmp also calls for what was in flight when a session ended. The queue has taken that back.
  if (path == nullptr || !path->queue().answered(request, accepted)) {
    return 1;
  }
  if (timed_out) {
    snmp_log(LOG_WARNING, "the AgentX master did not acknowledge a notification\n");
  } else if (!accepted) {
    snmp_log(LOG_WARNING, "the AgentX master refused a notification (error %ld)\n", answer->errstat);
  }
  return 1;
}

// False when net-snmp refuses one of the varbinds, as it does when memory is short, too.
bool send_now(const Notification &notification) {
  static auto *const v3 = next_definition<decltype(::send_v3trap)>("send_v3trap");
  static auto *const enterprise = next_definition<decltype(::send_enterprise_trap_vars)>("send_enterprise_trap_vars");
  const VarbindList varbinds = notification.varbinds.unpack();
  if (varbinds == nullptr && !notification.varbinds.empty()) {
    return false;
  }
  if (notification.enterprise) {
    const auto &[trap, specific, id] = *notification.enterprise;
    enterprise(trap, specific, id.data(), static_cast<int>(id.size()), varbinds.get());
  } else {
    v3(varbinds.get(), notification.context ? notification.context->c_str() : nullptr);
  }
  return true;
}

void queue_is_readable(int /*descriptor*/, void *queue) {
  static_cast<NotificationQueue *>(queue)->turn();
}

// Called on the module's threads. Without memory for a copy, the notification counts as lost.
template <class Make>
void push_from_module(Make make) noexcept {
  NotificationPath *path = current_path.load();
  if (path == nullptr) {
    return;
  }
  try {
    path->queue().push(make());
  } catch (const std::bad_alloc &) {
    path->queue().count_lost();
  }
}

}  // namespace

NotificationPath::NotificationPath(std::size_t limit, bool agentx, LinkChanged link_changed)
    : agentx_(agentx),
      link_changed_(std::move(link_changed)),
      queue_(
          limit, [this](const Notification &notification) { return transmit(notification); },
          NotificationQueue::default_patience, [this] { return sinks_.ready(); }),
      sinks_([this] { queue_.resume(); }) {
  current_path = this;
}

NotificationPath::~NotificationPath() {
  current_path = nullptr;
  unregister_readfd(queue_.descriptor());
  for (const int minor : {SNMPD_CALLBACK_INDEX_START, SNMPD_CALLBACK_INDEX_STOP}) {
    snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, minor, session_changed, this, 1);
  }
}

void NotificationPath::attach() {
  register_readfd(queue_.descriptor(), queue_is_readable, &queue_);
  if (agentx_) {
    for (const int minor : {SNMPD_CALLBACK_INDEX_START, SNMPD_CALLBACK_INDEX_STOP}) {
      snmp_register_callback(SNMP_CALLBACK_APPLICATION, minor, session_changed, this);
    }
  } else {
    queue_.link_up();
  }
}

// net-snmp reports the opening and closing of the AgentX session only through these callbacks of its index allocation.
int NotificationPath::session_changed(int /*major*/, int minor, void * /*session*/, void *self) {
  auto *path = static_cast<NotificationPath *>(self);
  const bool up = minor == SNMPD_CALLBACK_INDEX_START;
  if (up) {
    ++path->sessions_;
    path->queue_.link_up();
  } else {
    path->queue_.link_down();
  }
  path->link_changed_(up);
  return SNMPERR_SUCCESS;
}

Transmission NotificationPath::transmit(const Notification &notification) const {
  AgentxAttempt attempt;
  const CurrentAttempt current(attempt);
  if (!send_now(notification)) {
    return {.outcome = Transmission::Lost};
  }
  switch (attempt.outcome) {
    case AgentxAttempt::Sent:
      return {.outcome = Transmission::AwaitingAnswer, .request = attempt.request};
    case AgentxAttempt::SocketBroken:
      return {.outcome = Transmission::LinkBroken};
    case AgentxAttempt::Discarded:
      break;
  }
  return {.outcome = agentx_ ? Transmission::Lost : Transmission::Finished};
}

extern "C" {

// What the module calls. The caller keeps its varbinds.
void send_v3trap(netsnmp_variable_list *vars, const char *context) {
  push_from_module([&] {
    Notification notification{.varbinds = PackedVarbinds(vars), .enterprise = {}, .context = {}};
    if (context != nullptr) {
      notification.context = context;
    }
    return notification;
  });
}

void send_enterprise_trap_vars(int trap, int specific, const oid *enterprise, int enterprise_length,
                               netsnmp_variable_list *vars) {
  push_from_module([&] {
    return Notification{
        .varbinds = PackedVarbinds(vars),
        .enterprise = {{trap, specific, {enterprise, enterprise + enterprise_length}}},
        .context = {},
    };
  });
}

// net-snmp's notification code sends through this call. Only here can the daemon see whether an AgentX notification was
// sent, and under which number the master will acknowledge it; and only here can it hold back an inform.
int snmp_async_send(netsnmp_session *session, netsnmp_pdu *pdu, netsnmp_callback callback, void *magic) {
  static auto *const original = next_definition<decltype(::snmp_async_send)>("snmp_async_send");
  AgentxAttempt *attempt = current_attempt;
  NotificationPath *path = current_path;
  if (attempt == nullptr || path == nullptr) {
    return original(session, pdu, callback, magic);
  }
  if (pdu->command != agentx_notify) {
    return path->sinks().send({.send = original, .session = session, .pdu = pdu, .callback = callback});
  }
  pdu->flags |= UCD_MSG_FLAG_PDU_TIMEOUT;
  pdu->time = answer_seconds;
  const int request = original(session, pdu, notify_answered, nullptr);
  using enum AgentxAttempt::Outcome;
  if (request != 0) {
    *attempt = {.outcome = Sent, .request = request};
  } else {
    attempt->outcome = session->s_snmp_errno == SNMPERR_BAD_SENDTO ? SocketBroken : Discarded;
  }
  return request;
}

// What net-snmp calls for each destination in the configuration, and for the AgentX session.
int netsnmp_add_notification_session(netsnmp_session *session, int command, int confirmed, int version,
                                     const char *name, const char *tag, const char *profile) {
  static auto *const original =
      next_definition<decltype(::netsnmp_add_notification_session)>("netsnmp_add_notification_session");
  if (command != agentx_notify) {
    Sinks::add(session);
  }
  return original(session, command, confirmed, version, name, tag, profile);
}
}

}  // namespace tavo
