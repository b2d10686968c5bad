// A table's columns as data: where each column's field is in the row, and how its value is encoded. One interpreter
// serves all tables and notifications, so the answer to a GET and a notification's varbind cannot differ.
//
// The type of a row's field says how the column is served:
//
//   std::int32_t         INTEGER
//   std::uint32_t        Gauge32
//   Counter32            Counter32
//   std::uint64_t        Counter64
//   CounterWords         Counter64, kept as two words
//   FourOctetCounter64   Counter64, passed with a length of 4 if net-snmp accepts that
//   char[N]              OCTET STRING, up to the first NUL, at most N octets
//   CountedText<N>       OCTET STRING of the given length, at most N octets
//   std::uint8_t         OCTET STRING of length 1
//   ObjectIdentifier<N>  OBJECT IDENTIFIER of at most N sub-identifiers
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <type_traits>

#include "core/for_each.h"
#include "core/row_list.h"
#include "core/text.h"

namespace tavo {

struct Counter32 {
  std::uint32_t value;
};

struct CounterWords {
  std::uint32_t high;
  std::uint32_t low;
};

struct FourOctetCounter64 {
  std::uint32_t value;
};

// A text with its length in octets, without the NUL. A length out of range is served as the nearest valid one.
template <std::size_t N>
struct CountedText {
  char text[N];
  std::int32_t length;

  // Truncates what does not fit.
  void assign(std::string_view from) { length = static_cast<std::int32_t>(copy_text(text, from)); }
};

// The longest object identifier that a row holds.
inline constexpr std::size_t most_sub_identifiers = 32;

// Served empty if it cannot be encoded. A count out of range is served as the nearest valid one.
template <std::size_t N>
struct ObjectIdentifier {
  static_assert(N <= most_sub_identifiers);

  std::uint32_t sub_identifiers[N];
  std::int32_t count;
};

// How a field becomes a value: one codec for each field type above.
enum class Codec : std::uint8_t {
  Integer,
  Gauge32,
  Counter32,
  Counter64,
  CounterWords,
  FourOctetCounter64,
  Text,
  CountedText,
  Octet,
  ObjectIdentifier,
};

struct Column {
  Codec codec;
  std::uint16_t offset;    // of the field in the row record
  std::uint16_t capacity;  // the elements of a text or an object identifier, 1 for anything else
};

// The column of the field of type `T` at `offset`.
template <class T>
consteval Column column_of(std::size_t offset);

// The number of a table's first readable column. Column 1 is the index, which only notifications carry.
inline constexpr std::uint8_t first_column = 2;

// Defines the array `columns`: the columns of `table`, a MIB name, from column 2 on. The arguments after the row type
// are all its fields in order, except the index before them and the link after them. A list that omits a field or
// changes the order does not compile. (One omission slips through: four octets that could be padding, before a field or
// link aligned to eight. The MIB's test finds it.)
//
// The fields' names go into a section of the object file, for module/describe_tables.cpp. The linker drops it from the
// module.
#define TAVO_COLUMNS(table, Row, ...)                                                            \
  constexpr auto columns = ::tavo::checked<Row>({TAVO_FOR_EACH(TAVO_COLUMN, Row, __VA_ARGS__)}); \
  [[gnu::section("tavo_columns"), gnu::used]] constexpr char column_names[] = #table ":" #__VA_ARGS__

#define TAVO_COLUMN(Row, field) ::tavo::column_of<decltype(Row::field)>(offsetof(Row, field)),

// A column's value, ready for net-snmp's setters. Points into the row or into itself: valid while both exist.
class ColumnValue {
 public:
  // `row`: the record that holds the column's field.
  ColumnValue(const Column &column, const void *row);
  ColumnValue(const ColumnValue &) = delete;
  ColumnValue &operator=(const ColumnValue &) = delete;

  // Puts the value into `varbind`. False if net-snmp refuses it or memory is short.
  [[nodiscard]] bool set(netsnmp_variable_list *varbind) const;

  // Appends a varbind with this value to `list`. False if net-snmp refuses it or memory is short.
  [[nodiscard]] bool append(netsnmp_variable_list **list, std::span<const oid> name) const;

 private:
  void take_text(std::size_t length);
  void take_number(u_char type);
  void take_counter64(std::uint64_t value);
  void take_object_identifier(std::size_t count);

  u_char type_;
  const void *data_;
  std::size_t size_;  // octets
  union {
    counter64 counter_;
    oid identifier_[most_sub_identifiers];
  };
};

// Implementation.

template <class T>
struct FieldTraits;

template <Codec codec_of_type, std::size_t capacity_of_type = 1>
struct FieldTraitsOf {
  static constexpr Codec codec = codec_of_type;
  static constexpr std::size_t capacity = capacity_of_type;
};

template <>
struct FieldTraits<std::int32_t> : FieldTraitsOf<Codec::Integer> {};
template <>
struct FieldTraits<std::uint32_t> : FieldTraitsOf<Codec::Gauge32> {};
template <>
struct FieldTraits<Counter32> : FieldTraitsOf<Codec::Counter32> {};
template <>
struct FieldTraits<std::uint64_t> : FieldTraitsOf<Codec::Counter64> {};
template <>
struct FieldTraits<CounterWords> : FieldTraitsOf<Codec::CounterWords> {};
template <>
struct FieldTraits<FourOctetCounter64> : FieldTraitsOf<Codec::FourOctetCounter64> {};
template <std::size_t N>
struct FieldTraits<char[N]> : FieldTraitsOf<Codec::Text, N> {};
template <std::size_t N>
struct FieldTraits<CountedText<N>> : FieldTraitsOf<Codec::CountedText, N> {};
template <>
struct FieldTraits<std::uint8_t> : FieldTraitsOf<Codec::Octet> {};
template <std::size_t N>
struct FieldTraits<ObjectIdentifier<N>> : FieldTraitsOf<Codec::ObjectIdentifier, N> {};

template <class T>
concept ColumnType = requires {
  FieldTraits<T>::codec;
};

template <class T>
consteval Column column_of(std::size_t offset) {
  static_assert(ColumnType<T>, "no column is made of a field of this type: see core/column.h");
  return {.codec = FieldTraits<T>::codec,
          .offset = static_cast<std::uint16_t>(offset),
          .capacity = static_cast<std::uint16_t>(FieldTraits<T>::capacity)};
}

// The size in octets, and the alignment, of a column's field.
struct FieldShape {
  std::size_t size;
  std::size_t alignment;
};

constexpr FieldShape shape_of(const Column &column) {
  switch (column.codec) {
    case Codec::Text:
    case Codec::Octet:
      return {column.capacity, 1};
    case Codec::CountedText:
      return {(column.capacity + std::size_t{3}) / 4 * 4 + 4, 4};
    case Codec::ObjectIdentifier:
      return {(column.capacity + std::size_t{1}) * 4, 4};
    case Codec::Counter64:
      return {8, alignof(std::uint64_t)};
    case Codec::CounterWords:
      return {8, 4};
    default:
      return {4, 4};
  }
}

// Whether the columns name every field of `Row` in order, except the index and the link.
template <class Row>
constexpr bool names_every_field(std::span<const Column> columns) {
  const auto aligned = [](std::size_t offset, std::size_t alignment) {
    return (offset + alignment - 1) / alignment * alignment;
  };
  std::size_t end = sizeof(std::uint32_t);  // of the index
  for (const Column &column : columns) {
    const FieldShape shape = shape_of(column);
    if (column.offset != aligned(end, shape.alignment)) {
      return false;
    }
    end = column.offset + shape.size;
  }
  return layout_of<Row>().next == aligned(end, alignof(void *));
}

// Defined nowhere: the compiler's message quotes the name.
void columns_must_name_every_field_in_order();

// `columns`, or a compile-time error if they do not.
template <class Row, std::size_t N>
consteval std::array<Column, N> checked(const Column (&columns)[N]) {
  if (!names_every_field<Row>(columns)) {
    columns_must_name_every_field_in_order();
  }
  return std::to_array(columns);
}

}  // namespace tavo
