#include "tests/fakes/net_snmp.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <span>
#include <stdexcept>
#include <string_view>

namespace tavo::fakes {
namespace {

struct DebugCall {
  bool prefix;  // debugmsgtoken, or else debugmsg
  std::string token;
  std::string text;
};

std::mutex mutex;
std::condition_variable recorded;
std::vector<LogLine> logged;
std::vector<LogLine> logged_by_library;
std::vector<DebugCall> debug_calls;
std::vector<Notification> sent;
std::function<void()> notification_observer;
std::function<void(const LogLine &)> log_observer;
std::function<void()> debug_observer;
std::atomic<bool> debugging = false;
std::atomic<int> date_and_time_result = 0;
thread_local std::optional<int> values_before_refusal;
thread_local std::optional<int> varbinds_before_refusal;
thread_local std::size_t last_value_size = 0;

// Whether it is this call's turn to fail.
bool is_refused(std::optional<int> &calls_before_refusal) {
  if (!calls_before_refusal || (*calls_before_refusal)-- != 0) {
    return false;
  }
  calls_before_refusal.reset();
  return true;
}

std::string formatted(const char *format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  std::string text(static_cast<std::size_t>(std::max(length, 0)), '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);
  return text;
}

std::vector<Varbind> copied(const netsnmp_variable_list *list) {
  std::vector<Varbind> varbinds;
  for (; list != nullptr; list = list->next_variable) {
    const std::span name(list->name, list->name_length);
    const std::span value(list->val.string, list->val_len);
    varbinds.push_back({.name = {name.begin(), name.end()}, .type = list->type, .value = {value.begin(), value.end()}});
  }
  return varbinds;
}

template <class Record, class List>
void record(List &list, Record entry) {
  {
    const std::scoped_lock lock(mutex);
    list.push_back(std::move(entry));
  }
  recorded.notify_all();
}

// An observer may use these fakes: it is called without the mutex.
template <class Observer, class... Arguments>
void call(const Observer &observer, const Arguments &...arguments) {
  Observer called;
  {
    const std::scoped_lock lock(mutex);
    called = observer;
  }
  if (called) {
    called(arguments...);
  }
}

void record_notification(Notification notification) {
  call(notification_observer);
  record(sent, std::move(notification));
}

// Copies the value as it is, of any length.
int set_counter64(netsnmp_variable_list *varbind, const void *value, std::size_t size) {
  snmp_free_var_internals(varbind);
  varbind->type = ASN_COUNTER64;
  varbind->val.string = varbind->buf;
  varbind->val_len = size;
  std::memcpy(varbind->buf, value, size);
  return 0;
}

int record_library_line(netsnmp_log_handler *, int priority, const char *text) {
  record(logged_by_library, LogLine{.priority = priority, .text = text});
  return 1;
}

[[maybe_unused]] const auto library_log_handler = [] {
  netsnmp_log_handler *handler = netsnmp_register_loghandler(NETSNMP_LOGHANDLER_CALLBACK, LOG_DEBUG);
  handler->handler = record_library_line;
  return handler;
}();

}  // namespace

std::vector<LogLine> log_lines() {
  const std::scoped_lock lock(mutex);
  return logged;
}

std::vector<std::string> log_texts() {
  std::vector<std::string> texts;
  for (LogLine &line : log_lines()) {
    texts.push_back(std::move(line.text));
  }
  return texts;
}

std::vector<LogLine> library_log_lines() {
  const std::scoped_lock lock(mutex);
  return logged_by_library;
}

bool wait_for_log(std::string_view text, int times, std::chrono::seconds limit) {
  std::unique_lock lock(mutex);
  return recorded.wait_for(lock, limit, [&] { return std::ranges::count(logged, text, &LogLine::text) >= times; });
}

void on_notification(std::function<void()> observer) {
  const std::scoped_lock lock(mutex);
  notification_observer = std::move(observer);
}

void on_log(std::function<void(const LogLine &)> observer) {
  const std::scoped_lock lock(mutex);
  log_observer = std::move(observer);
}

void set_debugging(bool on) {
  debugging = on;
}

void on_debug_message(std::function<void()> observer) {
  const std::scoped_lock lock(mutex);
  debug_observer = std::move(observer);
}

std::vector<DebugMessage> debug_messages() {
  const std::scoped_lock lock(mutex);
  if (debug_calls.size() % 2 != 0) {
    throw std::logic_error("a message went through one of debugmsgtoken and debugmsg only");
  }
  std::vector<DebugMessage> messages;
  for (std::size_t i = 0; i < debug_calls.size(); i += 2) {
    const DebugCall &prefix = debug_calls[i];
    const DebugCall &message = debug_calls[i + 1];
    if (!prefix.prefix || message.prefix || prefix.token != message.token || prefix.text != message.text) {
      throw std::logic_error("not debugmsgtoken and then debugmsg: " + prefix.text + message.text);
    }
    messages.push_back({.token = message.token, .text = message.text});
  }
  return messages;
}

std::vector<Trace> traces() {
  const std::vector<DebugMessage> messages = debug_messages();
  if (messages.size() % 2 != 0) {
    throw std::logic_error("half a trace pair");
  }
  std::vector<Trace> pairs;
  for (std::size_t i = 0; i < messages.size(); i += 2) {
    const DebugMessage &where = messages[i];
    const DebugMessage &what = messages[i + 1];
    char function[128] = "";
    char source[128] = "";
    int line = 0;
    int length = 0;
    const bool known_token = what.token == "snmp-subagentd" || what.token == "tavoEquipmentHealthLedTable:init";
    if (where.token != "trace" || !known_token ||
        std::sscanf(where.text.c_str(), "%127[^(](): %127[^,], %d:\n%n", function, source, &line, &length) != 3 ||
        static_cast<std::size_t>(length) != where.text.size()) {
      throw std::logic_error("not a trace pair: " + where.token + " " + where.text + what.token + " " + what.text);
    }
    pairs.push_back({.function = function, .source = source, .line = line, .text = what.text});
  }
  return pairs;
}

std::vector<std::string> trace_texts() {
  std::vector<std::string> texts;
  for (Trace &trace : traces()) {
    texts.push_back(std::move(trace.text));
  }
  return texts;
}

std::vector<Notification> notifications() {
  const std::scoped_lock lock(mutex);
  return sent;
}

bool wait_for_notifications(std::size_t count, std::chrono::seconds limit) {
  std::unique_lock lock(mutex);
  return recorded.wait_for(lock, limit, [&] { return sent.size() >= count; });
}

void set_date_and_time_result(int error) {
  date_and_time_result = error;
}

void refuse_value(int successes) {
  values_before_refusal = successes;
}

void refuse_varbind(int successes) {
  varbinds_before_refusal = successes;
}

std::size_t size_of_last_value() {
  return last_value_size;
}

void reset_net_snmp() {
  const std::scoped_lock lock(mutex);
  logged.clear();
  logged_by_library.clear();
  debug_calls.clear();
  sent.clear();
  notification_observer = nullptr;
  log_observer = nullptr;
  debug_observer = nullptr;
  debugging = false;
  date_and_time_result = 0;
  values_before_refusal.reset();
  varbinds_before_refusal.reset();
}

}  // namespace tavo::fakes

using namespace tavo::fakes;

// The linker's --wrap sends the module's calls here.
extern "C" {

int __wrap_snmp_log(int priority, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  LogLine line = {.priority = priority, .text = formatted(format, arguments)};
  va_end(arguments);
  call(log_observer, line);
  record(logged, std::move(line));
  return 0;
}

int __real_netsnmp_dateandtime_set_buf_from_vars(u_char *buffer, size_t *size, u_short year, u_char month, u_char day,
                                                 u_char hour, u_char minutes, u_char seconds, u_char deci_seconds,
                                                 int offset_direction, u_char offset_hours, u_char offset_minutes);

int __wrap_netsnmp_dateandtime_set_buf_from_vars(u_char *buffer, size_t *size, u_short year, u_char month, u_char day,
                                                 u_char hour, u_char minutes, u_char seconds, u_char deci_seconds,
                                                 int offset_direction, u_char offset_hours, u_char offset_minutes) {
  const int error =
      __real_netsnmp_dateandtime_set_buf_from_vars(buffer, size, year, month, day, hour, minutes, seconds, deci_seconds,
                                                   offset_direction, offset_hours, offset_minutes);
  return error == 0 ? date_and_time_result.load() : error;
}

int __real_snmp_set_var_typed_value(netsnmp_variable_list *varbind, u_char type, const void *value, size_t size);

int __wrap_snmp_set_var_typed_value(netsnmp_variable_list *varbind, u_char type, const void *value, size_t size) {
  last_value_size = size;
  if (is_refused(values_before_refusal)) {
    return 1;
  }
  if (const char *copied = std::getenv("TAVO_COUNTER64"); copied != nullptr && type == ASN_COUNTER64) {
    return set_counter64(varbind, value, std::string_view(copied) == "length" ? size : sizeof(struct counter64));
  }
  return __real_snmp_set_var_typed_value(varbind, type, value, size);
}

netsnmp_variable_list *__real_snmp_varlist_add_variable(netsnmp_variable_list **list, const oid *name, size_t length,
                                                        u_char type, const void *value, size_t size);

netsnmp_variable_list *__wrap_snmp_varlist_add_variable(netsnmp_variable_list **list, const oid *name, size_t length,
                                                        u_char type, const void *value, size_t size) {
  if (is_refused(varbinds_before_refusal)) {
    return nullptr;
  }
  return __real_snmp_varlist_add_variable(list, name, length, type, value, size);
}

int __wrap_snmp_get_do_debugging() {
  return debugging ? 1 : 0;
}

void __wrap_debugmsgtoken(const char *token, const char *format, ...) {
  call(debug_observer);
  va_list arguments;
  va_start(arguments, format);
  std::string text = formatted(format, arguments);
  va_end(arguments);
  record(debug_calls, DebugCall{.prefix = true, .token = token, .text = std::move(text)});
}

void __wrap_debugmsg(const char *token, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::string text = formatted(format, arguments);
  va_end(arguments);
  record(debug_calls, DebugCall{.prefix = false, .token = token, .text = std::move(text)});
}

void __wrap_send_v3trap(netsnmp_variable_list *varbinds, const char *context) {
  record_notification(Notification{.call = Notification::Call::send_v3trap,
                                   .context = context == nullptr ? "" : context,
                                   .enterprise = {},
                                   .varbinds = copied(varbinds)});
}

void __wrap_send_enterprise_trap_vars(int generic, int specific, const oid *enterprise, int enterprise_length,
                                      netsnmp_variable_list *varbinds) {
  const std::span name(enterprise, static_cast<std::size_t>(enterprise_length));
  record_notification(Notification{.call = Notification::Call::send_enterprise_trap_vars,
                                   .context = {},
                                   .generic = generic,
                                   .specific = specific,
                                   .enterprise = {name.begin(), name.end()},
                                   .varbinds = copied(varbinds)});
}
}
