// A notification as a module's thread handed it over, kept until the agent's loop can send it.
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

// A varbind list packed into one block. net-snmp's own list takes some 450 octets a varbind and an allocation each,
// which a full queue would multiply by hundreds of thousands; packed, a fault notification takes about 1.3 KiB.
class PackedVarbinds {
 public:
  explicit PackedVarbinds(const netsnmp_variable_list *list);

  // The list again: same names, types and values. Null when it was empty or net-snmp refuses a varbind.
  VarbindList unpack() const;
  bool empty() const { return octets_.empty(); }

 private:
  std::vector<std::byte> octets_;
};

// The two ways in which the module sends.
struct Notification {
  // Arguments of send_enterprise_trap_vars beside the varbinds.
  struct Enterprise {
    int trap;
    int specific;
    std::vector<oid> id;
  };

  PackedVarbinds varbinds;
  std::optional<Enterprise> enterprise;  // absent: send_v3trap
  std::optional<std::string> context;    // send_v3trap's second argument, absent when null
};

}  // namespace tavo
