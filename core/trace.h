// Diagnostic traces, shown by the agent's debug switch (-D): where the code is, then what it has to say.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

namespace tavo {

// The function and the line that a call stands in. std::source_location would do, but clang 14 cannot compile it, and
// g++ gives whole signatures where a trace wants the bare name.
struct Caller {
  const char *function;
  int line;

  // As a default argument it names the caller of the function that has it.
  static constexpr Caller here(const char *function = __builtin_FUNCTION(), int line = __builtin_LINE()) {
    return {function, line};
  }
};

// Sends one message under `token`. net-snmp prints the token's prefix through one call and the text through the other,
// and both take the whole format.
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

// The same under the token that all of the module's messages but one have.
template <class... Args>
void trace(Caller caller, const char *source, const char *format, Args... args) {
  trace_under("snmp-subagentd", caller, source, format, args...);
}

}  // namespace tavo
