// Values that a manager reads, in a form that tests can write, compare and print.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <cstdint>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tests/fakes/net_snmp.h"

namespace tavo::fakes {

using Oid = std::vector<oid>;

std::string dotted(std::span<const oid> name);

struct Value {
  std::uint8_t type;    // ASN_..., or an exception: SNMP_NOSUCHOBJECT, SNMP_NOSUCHINSTANCE, SNMP_ENDOFMIBVIEW
  std::string content;  // the octets of an OCTET STRING, the number in decimal, the dotted OBJECT IDENTIFIER
  bool operator==(const Value &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Value &value);

Value text(std::string_view octets);
Value integer(std::int32_t number);
Value gauge(std::uint32_t number);
Value counter(std::uint32_t number);
Value counter64(std::uint64_t number);
Value object_identifier(std::span<const oid> name);
inline const Value no_such_object = {SNMP_NOSUCHOBJECT, ""};
inline const Value no_such_instance = {SNMP_NOSUCHINSTANCE, ""};
inline const Value end_of_mib_view = {SNMP_ENDOFMIBVIEW, ""};

Value value_of(const netsnmp_variable_list &varbind);

// The value of a varbind recorded from a notification.
Value value_of(const Varbind &varbind);

}  // namespace tavo::fakes
