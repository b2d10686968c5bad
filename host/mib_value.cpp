#include "host/mib_value.h"

#include <algorithm>
#include <array>
#include <limits>

namespace tavo {
namespace {

// tavoSubagentObjects
constexpr auto objects_root = std::to_array<oid>({1, 3, 6, 1, 4, 1, 61453, 4, 208, 1});
static_assert(health_object_length == objects_root.size() + 1);

// 0, or why net-snmp refuses it.
int set(netsnmp_variable_list *varbind, const MibValue &value) {
  switch (value.type) {
    case ASN_OCTET_STR:
      return snmp_set_var_typed_value(varbind, value.type, value.text.data(), value.text.size());
    case ASN_INTEGER:
      return snmp_set_var_typed_integer(varbind, value.type, static_cast<std::int32_t>(value.number));
    default:
      return snmp_set_var_typed_integer(varbind, value.type, static_cast<long>(value.number));
  }
}

}  // namespace

MibValue counter(std::uint64_t count) {
  return {.type = ASN_COUNTER, .number = static_cast<std::uint32_t>(count)};
}

MibValue gauge(std::uint64_t level) {
  constexpr std::uint64_t most = std::numeric_limits<std::uint32_t>::max();
  return {.type = ASN_GAUGE, .number = static_cast<std::uint32_t>(std::min(level, most))};
}

MibValue enumeration(std::int32_t number) {
  return {.type = ASN_INTEGER, .number = static_cast<std::uint32_t>(number)};
}

MibValue truth(bool is_true) {
  enum { True = 1, False = 2 };
  return enumeration(is_true ? True : False);
}

MibValue text(std::string_view octets) {
  return {.type = ASN_OCTET_STR, .text = octets};
}

MibValue date_and_time(std::time_t time) {
  if (time == 0) {
    using namespace std::string_view_literals;
    return text("\0\0\0\0\0\0\0\0"sv);
  }
  std::size_t size = 0;
  const u_char *octets = date_n_time(&time, &size);
  return text({reinterpret_cast<const char *>(octets), size});
}

void answer(netsnmp_agent_request_info *info, netsnmp_request_info *request, const MibValue &value) {
  if (set(request->requestvb, value) != 0) {
    netsnmp_set_request_error(info, request, SNMP_ERR_GENERR);
  }
}

netsnmp_handler_registration *new_registration(const char *name, oid number, Netsnmp_Node_Handler *handler,
                                               const void *owner) {
  std::array<oid, health_object_length> root{};
  std::ranges::copy(objects_root, root.begin());
  root.back() = number;
  netsnmp_handler_registration *registration =
      netsnmp_create_handler_registration(name, handler, root.data(), root.size(), HANDLER_CAN_RONLY);
  if (registration != nullptr) {
    registration->my_reg_void = const_cast<void *>(owner);
  }
  return registration;
}

void log_unless_registered(int result, const char *name) {
  if (result != MIB_REGISTERED_OK) {
    snmp_log(LOG_ERR, "cannot register %s\n", name);
  }
}

}  // namespace tavo
