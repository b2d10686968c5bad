// The search for a lost AgentX master. net-snmp tries to open a session in a repeating alarm, and starts such an alarm
// whenever a session ends, even one that ends while it is being opened: each failure doubles their number, until the
// agent does nothing but try. Those that are left once a session stands never end. So the daemon replaces
// snmp_alarm_register(), keeps a single alarm for the search, and lets it rest after each session that was cut off.
//
// While there is a session, net-snmp pings the master as often as it searches for a lost one, and so wakes both up.
// Over a Unix socket a ping tells nothing: the kernel reports a master that ends at once.
#include "host/master_search.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <dlfcn.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>

#include "host/interposed.h"

namespace tavo {

// No installed header declares these.
extern "C" {
extern netsnmp_session *main_session;  // to the master; null without one
snmp_alarm *sa_find_specific(unsigned int alarm);
int subagent_startup(int major, int minor, void *server, void *client);
void agentx_check_session(unsigned int alarm, void *session);
}

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

// A session that lasts so long has not been cut off.
constexpr seconds good_session{1};
constexpr seconds longest_rest{32};
// net-snmp's own default.
constexpr unsigned int seconds_between_pings = 15;

// Used by the loop's thread only.
struct Search {
  SNMPAlarmCallback *open_session = nullptr;  // net-snmp's
  unsigned int alarm = 0;
  seconds rest{0};
  Clock::time_point last_attempt;
  Clock::time_point next_attempt;
  bool end_noted = true;  // the end of the session of the last attempt
};
Search search;

void note_end(seconds interval) {
  if (search.end_noted) {
    return;
  }
  search.end_noted = true;
  const auto now = Clock::now();
  if (now - search.last_attempt >= good_session) {
    search.rest = {};
    return;
  }
  search.rest = std::min(std::max(2 * search.rest, 2 * interval), longest_rest);
  search.next_attempt = now + search.rest;
  snmp_log(LOG_WARNING, "the AgentX master ended the session at once: next attempt in %lld s\n",
           static_cast<long long>(search.rest.count()));
}

void try_to_open(unsigned int alarm, void *argument) {
  if (main_session != nullptr) {
    snmp_alarm_unregister(alarm);
    return;
  }
  if (Clock::now() < search.next_attempt) {
    return;
  }
  search.last_attempt = Clock::now();
  search.end_noted = false;
  search.open_session(alarm, argument);
}

// Whether net-snmp's agent library, not a module or a platform library, defines this.
bool is_of_agent_library(SNMPAlarmCallback *callback) {
  static auto *const known = next_definition<decltype(subagent_startup)>("subagent_startup");
  Dl_info one;
  Dl_info other;
  return dladdr(reinterpret_cast<const void *>(callback), &one) != 0 &&
         dladdr(reinterpret_cast<const void *>(known), &other) != 0 && one.dli_fbase == other.dli_fbase;
}

// Of the agent library's repeating alarms only a subagent's search has no argument.
bool is_search(unsigned int flags, SNMPAlarmCallback *callback, const void *argument) {
  const bool is_subagent = netsnmp_ds_get_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE) != 0;
  return is_subagent && (flags & SA_REPEAT) != 0 && argument == nullptr && is_of_agent_library(callback);
}

bool is_ping(SNMPAlarmCallback *callback) {
  static auto *const ping = next_definition<decltype(agentx_check_session)>("agentx_check_session");
  return callback == ping;
}

bool is_on_this_machine(void *session) {
  void *const known = snmp_sess_pointer(static_cast<netsnmp_session *>(session));
  const netsnmp_transport *transport = known == nullptr ? nullptr : snmp_sess_transport(known);
  int domain = AF_UNSPEC;
  socklen_t size = sizeof domain;
  return transport != nullptr && getsockopt(transport->sock, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 &&
         domain == AF_UNIX;
}

}  // namespace

extern "C" unsigned int snmp_alarm_register(unsigned int interval, unsigned int flags, SNMPAlarmCallback *callback,
                                            void *argument) {
  static auto *const original = next_definition<decltype(::snmp_alarm_register)>("snmp_alarm_register");
  if (interval == search_seconds && is_ping(callback)) {
    return is_on_this_machine(argument) ? 0 : original(seconds_between_pings, flags, callback, argument);
  }
  if (!is_search(flags, callback, argument)) {
    return original(interval, flags, callback, argument);
  }
  note_end(seconds(interval));
  search.open_session = callback;
  if (search.alarm == 0 || sa_find_specific(search.alarm) == nullptr) {
    search.alarm = original(interval, flags, try_to_open, nullptr);
  }
  return search.alarm;
}

}  // namespace tavo
