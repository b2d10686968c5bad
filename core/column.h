// A table's columns as data: which number a column has, where its field lies in the row and how it is put on the wire.
// One interpreter serves every table and every notification, so an answer to GET and a varbind cannot differ.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

namespace tavo {

// How a field becomes a value.
enum class Codec : std::uint8_t {
  text,                      // OCTET STRING: up to the first NUL, at most the field's capacity
  counted_text,              // OCTET STRING: as long as the length field says, at most the capacity
  octet,                     // OCTET STRING of length 1
  integer,                   // INTEGER
  gauge,                     // Gauge32
  counter,                   // Counter32
  counter64,                 // Counter64 from a 64-bit field or from a high and a low word
  counter64_of_four_octets,  // Counter64 from a 32-bit field, handed over with a length of 4 where net-snmp takes that
  object_identifier,         // OBJECT IDENTIFIER: as many sub-identifiers as the count says, at most the capacity;
                             // empty for one that has no encoding
};

// A 64-bit counter kept as two words.
struct CounterWords {
  std::uint32_t high;
  std::uint32_t low;
};

// The longest object identifier that a row holds.
inline constexpr std::size_t most_sub_identifiers = 32;

enum class FieldType : std::uint8_t { int32, uint32, uint64, counter_words, octet, text, sub_identifiers };

// Where a field lies in the row record.
struct Field {
  FieldType type;
  std::uint16_t offset;
  std::uint16_t capacity;  // elements of an array, 1 of anything else
};

// The field of type `T` at `offset`: field<decltype(Row::dn)>(offsetof(Row, dn)).
template <class T>
consteval Field field(std::size_t offset) {
  const auto at = static_cast<std::uint16_t>(offset);
  if constexpr (std::is_same_v<T, std::int32_t>) {
    return {FieldType::int32, at, 1};
  } else if constexpr (std::is_same_v<T, std::uint32_t>) {
    return {FieldType::uint32, at, 1};
  } else if constexpr (std::is_same_v<T, std::uint64_t>) {
    return {FieldType::uint64, at, 1};
  } else if constexpr (std::is_same_v<T, CounterWords>) {
    return {FieldType::counter_words, at, 1};
  } else if constexpr (std::is_same_v<T, std::uint8_t>) {
    return {FieldType::octet, at, 1};
  } else if constexpr (std::is_same_v<std::remove_extent_t<T>, char>) {
    return {FieldType::text, at, std::extent_v<T>};
  } else {
    static_assert(std::is_same_v<std::remove_extent_t<T>, std::uint32_t>, "no column is made of this type");
    return {FieldType::sub_identifiers, at, std::extent_v<T>};
  }
}

struct Column {
  std::uint8_t number;
  Codec codec;
  Field field;
  std::uint16_t length_offset = 0;  // of the int32 that counts a counted_text or an object_identifier
};

// What is wrong with a list of columns, null when nothing is: numbers have no gap and ascend, fields follow each other
// in the row as the columns do, and every codec fits its field.
constexpr const char *fault_of(std::span<const Column> columns);

// `columns`, or a compile-time error for a list that has a fault.
template <std::size_t N>
consteval std::array<Column, N> checked(std::array<Column, N> columns) {
  if (const char *fault = fault_of(columns)) {
    throw fault;  // NOLINT(misc-throw-by-value-catch-by-reference): read by the compiler, never thrown
  }
  return columns;
}

// A column's value, ready for net-snmp's setters. Points into the row or into itself: valid while both stay.
class ColumnValue {
 public:
  // `row`: the record that holds the column's field.
  ColumnValue(const Column &column, const void *row);
  ColumnValue(const ColumnValue &) = delete;
  ColumnValue &operator=(const ColumnValue &) = delete;

  // Puts the value into `varbind`. False when net-snmp refuses it or has no memory.
  [[nodiscard]] bool set(netsnmp_variable_list *varbind) const;

  // Appends a varbind with this value to `list`. False when net-snmp refuses it or has no memory.
  [[nodiscard]] bool append(netsnmp_variable_list **list, std::span<const oid> name) const;

 private:
  void take_text(std::size_t length);
  void take_counter64(std::uint64_t value);
  void take_object_identifier(const Column &column, const std::byte *row);

  u_char type_;
  const void *data_;
  std::size_t size_;  // octets
  union {
    counter64 counter_;
    oid identifier_[most_sub_identifiers];
  };
};

// Implementation of the compile-time check.

constexpr bool fits(Codec codec, FieldType type) {
  switch (codec) {
    case Codec::text:
    case Codec::counted_text:
      return type == FieldType::text;
    case Codec::octet:
      return type == FieldType::octet;
    case Codec::integer:
      return type == FieldType::int32;
    case Codec::gauge:
    case Codec::counter:
    case Codec::counter64_of_four_octets:
      return type == FieldType::uint32;
    case Codec::counter64:
      return type == FieldType::uint64 || type == FieldType::counter_words;
    case Codec::object_identifier:
      return type == FieldType::sub_identifiers;
  }
  return false;
}

constexpr std::size_t size_of(const Field &field) {
  switch (field.type) {
    case FieldType::text:
    case FieldType::octet:
      return field.capacity;
    case FieldType::int32:
    case FieldType::uint32:
    case FieldType::sub_identifiers:
      return sizeof(std::uint32_t) * field.capacity;
    case FieldType::uint64:
    case FieldType::counter_words:
      return sizeof(std::uint64_t);
  }
  return 0;
}

constexpr const char *fault_of(std::span<const Column> columns) {
  if (columns.empty()) {
    return "a table needs a column";
  }
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const Column &column = columns[i];
    const bool counted = column.codec == Codec::counted_text || column.codec == Codec::object_identifier;
    if (!fits(column.codec, column.field.type)) {
      return "a codec does not fit the type of its field";
    }
    if (column.field.type == FieldType::sub_identifiers && column.field.capacity > most_sub_identifiers) {
      return "an object identifier is too long";
    }
    if (counted != (column.length_offset != 0)) {
      return "a length field belongs to counted texts and object identifiers, and to nothing else";
    }
    if (i == 0) {
      continue;
    }
    const Column &previous = columns[i - 1];
    if (column.number != previous.number + 1) {
      return "column numbers ascend without gaps";
    }
    if (column.field.offset < previous.field.offset + size_of(previous.field)) {
      return "fields stand in the row in the order of their columns";
    }
  }
  return nullptr;
}

}  // namespace tavo
