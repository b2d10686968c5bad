// Diagnostic traces, enabled by the agent's option -D: first the place in the code, then the message.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

namespace tavo {

// The function and the line of a call. Not std::source_location: clang 14 cannot compile it, and g++ gives whole
// signatures where a trace needs the bare name.
struct Caller {
  const char *function;
  int line;

  // As the default argument of a function, names that function's caller.
  static constexpr Caller here(const char *function = __builtin_FUNCTION(), int line = __builtin_LINE()) {
    return {function, line};
  }
};

// Sends one message under `token`. net-snmp prints the token's prefix in one call and the text in the other, and both
// take all the arguments.
template <class... Args>
void debug_message(const char *token, const char *format, Args... args) {
  debugmsgtoken(token, format, args...);
  debugmsg(token, format, args...);
}

// The trace pair: "function(): source, line:" under "trace", then the message under `token`. Silent unless debugging is
// on.
template <class... Args>
void trace_under(const char *token, Caller caller, const char *source, const char *format, Args... args) {
  if (snmp_get_do_debugging() == 0) {
    return;
  }
  debug_message("trace", "%s(): %s, %d:\n", caller.function, source, caller.line);
  debug_message(token, format, args...);
}

// The same under the token of all the module's messages but one.
template <class... Args>
void trace(Caller caller, const char *source, const char *format, Args... args) {
  trace_under("snmp-subagentd", caller, source, format, args...);
}

}  // namespace tavo
