// Intercepts the module's calls of net-snmp that log, trace, send and set values: what the module logs, traces and
// sends is recorded and goes no further. Calls inside net-snmp are not intercepted; what it logs is recorded
// separately.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tavo::fakes {

struct LogLine {
  int priority;
  std::string text;
  bool operator==(const LogLine &) const = default;
};

// Called at each line of the module's, before it is recorded, by the thread that logs it.
void on_log(std::function<void(const LogLine &)> observer);

// What the module has logged, oldest first.
std::vector<LogLine> log_lines();

// The same without the priorities.
std::vector<std::string> log_texts();

// What net-snmp itself has logged, for instance about a value that it refused.
std::vector<LogLine> library_log_lines();

// Waits until the module has logged exactly `text` `times` times; false when `limit` passes first.
bool wait_for_log(std::string_view text, int times = 1, std::chrono::seconds limit = std::chrono::seconds(20));

// The result of the module's snmp_get_do_debugging. Off at first.
void set_debugging(bool on);

// One message of the module: sent through debugmsgtoken and then, with the same format, through debugmsg.
struct DebugMessage {
  std::string token;
  std::string text;
  bool operator==(const DebugMessage &) const = default;
};

// Throws std::logic_error when a debugmsgtoken call is not followed by its debugmsg call.
std::vector<DebugMessage> debug_messages();

// Called at each call of debugmsgtoken, before it is recorded, by the thread that makes it.
void on_debug_message(std::function<void()> observer);

// A trace pair: where the code is, under "trace", and what it says, under "snmp-subagentd" or, of the one table that
// has a token of its own, under "tavoEquipmentHealthLedTable:init".
struct Trace {
  std::string function;
  std::string source;
  int line;
  std::string text;
};

// Throws std::logic_error when the messages are not such pairs.
std::vector<Trace> traces();

// The texts of traces().
std::vector<std::string> trace_texts();

struct Varbind {
  std::vector<oid> name;
  std::uint8_t type;
  std::vector<std::uint8_t> value;
  bool operator==(const Varbind &) const = default;
};

struct Notification {
  enum class Call { send_v3trap, send_enterprise_trap_vars };

  Call call;
  std::string context;          // send_v3trap
  int generic = 0;              // send_enterprise_trap_vars
  int specific = 0;             // send_enterprise_trap_vars
  std::vector<oid> enterprise;  // send_enterprise_trap_vars
  std::vector<Varbind> varbinds;
};

// What the module has sent, oldest first, with varbinds copied at the time of the call.
std::vector<Notification> notifications();

// Waits until at least `count` notifications were sent; false when `limit` passes first.
bool wait_for_notifications(std::size_t count, std::chrono::seconds limit = std::chrono::seconds(20));

// Called at each notification, before it is recorded, by the thread that sends it.
void on_notification(std::function<void()> observer);

// From now on netsnmp_dateandtime_set_buf_from_vars writes its octets as usual but returns `error`; 0 makes it real
// again.
void set_date_and_time_result(int error);

// The calling thread's next snmp_set_var_typed_value after `successes` more fails, as without memory: the
// varbind stays as it is.
void refuse_value(int successes);

// The calling thread's next snmp_varlist_add_variable after `successes` more fails, as without memory.
void refuse_varbind(int successes);

// How many octets the module passed with the last value that it set.
std::size_t size_of_last_value();

// In a process with one of these in its environment, net-snmp takes a Counter64 of any length. The older ones copy
// their whole structure, whatever the length.
inline constexpr char older_net_snmp[] = "TAVO_COUNTER64=structure";
inline constexpr char net_snmp_that_copies_the_length[] = "TAVO_COUNTER64=length";

// Forgets every record, switches debugging off and makes every call succeed again.
void reset_net_snmp();

}  // namespace tavo::fakes
