// A value of the daemon's own MIB, and the registration of the objects that have it.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string_view>

namespace tavo {

// As it is sent. A text must live until then.
struct MibValue {
  u_char type;
  std::uint32_t number = 0;
  std::string_view text = {};
};

MibValue counter(std::uint64_t count);  // wraps, as counters do
MibValue gauge(std::uint64_t level);    // at most 2^32 - 1
MibValue enumeration(std::int32_t number);
MibValue truth(bool is_true);
MibValue text(std::string_view octets);
// Of a time that has not come yet (0), all octets are zero. Valid until the next call.
MibValue date_and_time(std::time_t time);

// The value becomes the answer to the request, or genErr if net-snmp refuses it.
void answer(netsnmp_agent_request_info *info, netsnmp_request_info *request, const MibValue &value);

// How long the OID of an object, or of a group of objects, is below tavoSubagentObjects.
inline constexpr std::size_t health_object_length = 11;

// A registration of the object or group with this number below tavoSubagentObjects. `owner` is for the handler, as
// my_reg_void. Null if memory is short.
netsnmp_handler_registration *new_registration(const char *name, oid number, Netsnmp_Node_Handler *handler,
                                               const void *owner);

void log_unless_registered(int result, const char *name);

}  // namespace tavo
