// A notification as a module thread submitted it, kept until the agent's loop can send it.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tavo {

struct VarbindListDeleter {
  void operator()(netsnmp_variable_list *list) const { snmp_free_varbind(list); }
};
using VarbindList = std::unique_ptr<netsnmp_variable_list, VarbindListDeleter>;

// A varbind list packed into one block. net-snmp's own list takes about 450 octets and an allocation for each varbind,
// and a full queue holds some 200,000 of them; packed, a fault notification takes about 1.3 KiB.
class PackedVarbinds {
 public:
  explicit PackedVarbinds(const netsnmp_variable_list *list);

  // A list with the same names, types and values. Null when the original was empty, or net-snmp refuses a varbind or
  // has no memory for it. Throws std::bad_alloc.
  VarbindList unpack() const;
  bool empty() const { return octets_.empty(); }

 private:
  std::vector<std::byte> octets_;
};

// The arguments of one of the two calls by which the module sends.
struct Notification {
  // What send_enterprise_trap_vars takes besides the varbinds.
  struct Enterprise {
    int trap;
    int specific;
    std::vector<oid> id;
  };

  PackedVarbinds varbinds;
  std::optional<Enterprise> enterprise;  // absent for send_v3trap
  std::optional<std::string> context;    // send_v3trap's second argument; absent when null
};

}  // namespace tavo
