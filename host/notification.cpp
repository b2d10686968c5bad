#include "host/notification.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace tavo {
namespace {

// Followed by the sub-identifiers, 32 bits each, and the octets of the value.
struct VarbindHeader {
  std::uint32_t value_size;
  std::uint16_t name_length;
  std::uint8_t type;
};

void append(std::vector<std::byte> &octets, const void *source, std::size_t size) {
  const auto *bytes = static_cast<const std::byte *>(source);
  octets.insert(octets.end(), bytes, bytes + size);
}

std::span<const std::byte> take(std::span<const std::byte> &rest, std::size_t size) {
  const auto front = rest.first(size);
  rest = rest.subspan(size);
  return front;
}

}  // namespace

PackedVarbinds::PackedVarbinds(const netsnmp_variable_list *list) {
  for (const auto *varbind = list; varbind != nullptr; varbind = varbind->next_variable) {
    const VarbindHeader header{
        .value_size = varbind->val.string != nullptr ? static_cast<std::uint32_t>(varbind->val_len) : 0,
        .name_length = static_cast<std::uint16_t>(varbind->name_length),
        .type = varbind->type,
    };
    append(octets_, &header, sizeof header);
    for (const oid part : std::span(varbind->name, varbind->name_length)) {
      const auto narrow = static_cast<std::uint32_t>(part);
      append(octets_, &narrow, sizeof narrow);
    }
    append(octets_, varbind->val.string, header.value_size);
  }
  octets_.shrink_to_fit();
}

VarbindList PackedVarbinds::unpack() const {
  VarbindList list;
  std::array<oid, MAX_OID_LEN> name{};
  std::vector<std::byte> value;  // aligned, because net-snmp reads numbers and identifiers in place
  for (std::span<const std::byte> rest(octets_); !rest.empty();) {
    VarbindHeader header{};
    std::memcpy(&header, take(rest, sizeof header).data(), sizeof header);
    for (oid &part : std::span(name).first(header.name_length)) {
      std::uint32_t narrow = 0;
      std::memcpy(&narrow, take(rest, sizeof narrow).data(), sizeof narrow);
      part = narrow;
    }
    const auto octets = take(rest, header.value_size);
    value.assign(octets.begin(), octets.end());
    netsnmp_variable_list *first = list.release();
    const auto *added =
        snmp_varlist_add_variable(&first, name.data(), header.name_length, header.type, value.data(), value.size());
    list.reset(first);
    if (added == nullptr) {
      return nullptr;
    }
  }
  return list;
}

}  // namespace tavo
