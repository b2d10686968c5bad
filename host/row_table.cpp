#include "host/row_table.h"

#include <cstdlib>

namespace tavo {
namespace {

RowIndex index_of(std::span<const oid> name) {
  RowIndex index{};
  std::ranges::transform(name.first(std::min(name.size(), index.size())), index.begin(),
                         [](oid number) { return static_cast<std::uint32_t>(number); });
  return index;
}

}  // namespace

std::optional<RowIndex> exact_index(std::span<const oid> name, std::size_t indexes) {
  return name.size() == indexes ? std::optional(index_of(name)) : std::nullopt;
}

std::optional<RowIndex> index_after(std::span<const oid> name, std::size_t indexes) {
  RowIndex next = index_of(name.first(std::min(name.size(), indexes)));
  if (name.size() < indexes) {
    return next;
  }
  for (std::size_t i = indexes; i-- > 0;) {
    if (++next[i] != 0) {
      return next;
    }
  }
  return std::nullopt;
}

void name_cell(const netsnmp_handler_registration &registration, std::size_t column,
               std::span<const std::uint32_t> index, netsnmp_variable_list *varbind) {
  std::array<oid, health_object_length + 2 + RowIndex{}.size()> name{};
  auto end = std::ranges::copy_n(registration.rootoid, health_object_length, name.begin()).out;
  *end++ = 1;
  *end++ = column;
  end = std::ranges::copy(index, end).out;
  snmp_set_var_objid(varbind, name.data(), static_cast<std::size_t>(end - name.begin()));
}

void register_rows(netsnmp_handler_registration *registration, const char *name, std::size_t indexes,
                   std::size_t columns) {
  auto *info = SNMP_MALLOC_TYPEDEF(netsnmp_table_registration_info);
  if (registration == nullptr || info == nullptr) {
    netsnmp_handler_registration_free(registration);
    std::free(info);
    log_unless_registered(MIB_REGISTRATION_FAILED, name);
    return;
  }
  for (std::size_t i = 0; i < indexes; ++i) {
    netsnmp_table_helper_add_indexes(info, ASN_UNSIGNED, 0);
  }
  info->min_column = static_cast<unsigned int>(indexes + 1);
  info->max_column = static_cast<unsigned int>(indexes + columns);
  log_unless_registered(netsnmp_register_table(registration, info), name);
}

}  // namespace tavo
