#include "core/column.h"

#include <algorithm>
#include <cstring>

namespace tavo {
namespace {

template <class T>
T load(const std::byte *from) {
  T value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

constexpr std::size_t four_octets = 4;

// Two columns pass their Counter64 with a length of 4. Debian's net-snmp refuses that, with 32 as with 64 bits, and
// logs an error each time. Some older versions accept it, and copy their whole structure regardless of the length: so a
// whole structure is passed. If only four octets were copied, the value could not be encoded. So it is tried once, when
// the module is loaded.
bool takes_four_octet_counter64() {
  netsnmp_variable_list scratch{};
  const counter64 value = {.high = 1, .low = 2};
  const bool taken = snmp_set_var_typed_value(&scratch, ASN_COUNTER64, &value, four_octets) == 0 &&
                     scratch.val_len == sizeof value && scratch.val.counter64->low == value.low;
  snmp_free_var_internals(&scratch);
  return taken;
}

// How many elements of a text or an object identifier are used: the count after them, but at most what the field holds.
// `element`: the size of an element in octets.
std::size_t filled_length(const Column &column, const std::byte *field, std::size_t element) {
  constexpr std::size_t word = sizeof(std::int32_t);
  const std::size_t count_at = (column.capacity * element + word - 1) / word * word;
  return static_cast<std::size_t>(std::clamp<std::int32_t>(load<std::int32_t>(field + count_at), 0, column.capacity));
}

// Whether an object identifier can be encoded, which combines its first two sub-identifiers into one number. If one
// cannot, net-snmp drops the whole PDU, be it an answer or a notification.
bool can_be_encoded(std::span<const oid> identifier) {
  if (identifier.empty()) {
    return true;
  }
  const oid first = identifier[0];
  const oid second = identifier.size() > 1 ? identifier[1] : 0;
  return first < 2 ? second < 40 : first == 2 && second <= UINT32_MAX - 80;
}

const bool four_octet_counter64 = takes_four_octet_counter64();

}  // namespace

ColumnValue::ColumnValue(const Column &column, const void *row)
    : type_(ASN_NULL), data_(static_cast<const std::byte *>(row) + column.offset), size_(0), counter_{} {
  const auto *field = static_cast<const std::byte *>(data_);
  switch (column.codec) {
    case Codec::Integer:
      take_number(ASN_INTEGER);
      break;
    case Codec::Gauge32:
      take_number(ASN_GAUGE);
      break;
    case Codec::Counter32:
      take_number(ASN_COUNTER);
      break;
    case Codec::Counter64:
      take_counter64(load<std::uint64_t>(field));
      break;
    case Codec::CounterWords: {
      const auto words = load<CounterWords>(field);
      take_counter64(std::uint64_t{words.high} << 32 | words.low);
      break;
    }
    case Codec::FourOctetCounter64:
      take_counter64(load<std::uint32_t>(field));
      if (four_octet_counter64) {
        size_ = four_octets;
      }
      break;
    case Codec::Text:
      take_text(strnlen(reinterpret_cast<const char *>(field), column.capacity));
      break;
    case Codec::CountedText:
      take_text(filled_length(column, field, sizeof(char)));
      break;
    case Codec::Octet:
      take_text(1);
      break;
    case Codec::ObjectIdentifier:
      take_object_identifier(filled_length(column, field, sizeof(std::uint32_t)));
      break;
  }
}

void ColumnValue::take_text(std::size_t length) {
  type_ = ASN_OCTET_STR;
  size_ = length;
}

// Passes the field's four octets as they are.
void ColumnValue::take_number(u_char type) {
  type_ = type;
  size_ = sizeof(std::uint32_t);
}

// net-snmp expects its own structure of two words, each as wide as the machine's long.
void ColumnValue::take_counter64(std::uint64_t value) {
  counter_.high = static_cast<u_long>(value >> 32);
  counter_.low = static_cast<u_long>(value & 0xFFFFFFFFU);
  type_ = ASN_COUNTER64;
  data_ = &counter_;
  size_ = sizeof counter_;
}

// net-snmp's sub-identifiers are as wide as the machine's long.
void ColumnValue::take_object_identifier(std::size_t count) {
  const auto *field = static_cast<const std::byte *>(data_);
  for (std::size_t i = 0; i < count; ++i) {
    identifier_[i] = load<std::uint32_t>(field + i * sizeof(std::uint32_t));
  }
  type_ = ASN_OBJECT_ID;
  data_ = identifier_;
  size_ = can_be_encoded({identifier_, count}) ? count * sizeof(oid) : 0;
}

bool ColumnValue::set(netsnmp_variable_list *varbind) const {
  return snmp_set_var_typed_value(varbind, type_, data_, size_) == 0;
}

bool ColumnValue::append(netsnmp_variable_list **list, std::span<const oid> name) const {
  return snmp_varlist_add_variable(list, name.data(), name.size(), type_, data_, size_) != nullptr;
}

}  // namespace tavo
