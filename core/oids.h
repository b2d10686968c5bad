// Where the module's objects are in the tree of object identifiers.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/library/oid.h>

#include <array>
#include <cstddef>

namespace tavo {

// The server's subtree.
inline constexpr std::array<oid, 9> server_root = {1, 3, 6, 1, 4, 1, 61453, 4, 207};

// The object identifier `arcs` below the server's subtree.
template <class... Arcs>
constexpr std::array<oid, server_root.size() + sizeof...(Arcs)> below_server_root(Arcs... arcs) {
  std::array<oid, server_root.size() + sizeof...(Arcs)> name = {};
  std::size_t size = 0;
  for (const oid arc : server_root) {
    name[size++] = arc;
  }
  ((name[size++] = arcs), ...);
  return name;
}

// A table's OID, from its group's number and its own number within the group.
consteval auto table_root(oid group, oid number) {
  return below_server_root(1, group, number);
}

}  // namespace tavo
