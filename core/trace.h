// Diagnostic traces, shown by the agent's debug switch (-D): where the code is, then what it has to say.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

namespace tavo {

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
void trace_under(const char *token, const char *function, const char *source, int line, const char *format,
                 Args... args) {
  if (snmp_get_do_debugging() == 0) {
    return;
  }
  debug_message("trace", "%s(): %s, %d:\n", function, source, line);
  debug_message(token, format, args...);
}

// The same under the token that all but one of the module's messages have.
template <class... Args>
void trace(const char *function, const char *source, int line, const char *format, Args... args) {
  trace_under("snmp-subagentd", function, source, line, format, args...);
}

}  // namespace tavo
