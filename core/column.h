// A table's columns as data: where a column's field lies in the row and how it is put on the wire. One interpreter
// serves every table and every notification, so an answer to GET and a varbind cannot differ.
//
// The type of a row's field says how the column is served:
//
//   std::int32_t         INTEGER
//   std::uint32_t        Gauge32
//   Counter32            Counter32
//   std::uint64_t        Counter64
//   CounterWords         Counter64, kept as two words
//   FourOctetCounter64   Counter64, handed over with a length of 4 where net-snmp takes that
//   char[N]              OCTET STRING, up to the first NUL, at most N octets
//   CountedText<N>       OCTET STRING, as long as it says, at most N octets
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

// A text that carries its length in octets, which does not count the NUL. A length out of range is served as the
// nearest within it.
template <std::size_t N>
struct CountedText {
  char text[N];
  std::int32_t length;

  // Cuts off what does not fit before a NUL.
  void assign(std::string_view from) {
    copy_text(text, from);
    length = static_cast<std::int32_t>(std::min(from.size(), N - 1));
  }
};

// The longest object identifier that a row holds.
inline constexpr std::size_t most_sub_identifiers = 32;

// Served empty when it has no encoding. A count out of range is served as the nearest within it.
template <std::size_t N>
struct ObjectIdentifier {
  static_assert(N <= most_sub_identifiers);

  std::uint32_t sub_identifiers[N];
  std::int32_t count;
};

// How a field becomes a value: one for each type of field above.
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
  std::uint16_t capacity;  // elements of a text or an object identifier, 1 of anything else; a count follows them
};

// The column of the field of type `T` at `offset`.
template <class T>
consteval Column column_of(std::size_t offset);

// The number of a table's first readable column. Column 1 is the index, which only notifications carry.
inline constexpr std::uint8_t first_column = 2;

// Lists the columns of `table`, a MIB name, from column 2 on, in the array `columns`. What follows the row type are its
// fields: all of them in their order, but for the index before them and the link to the next row behind. A list that
// leaves out a field or changes the order does not compile. (A field whose place could be padding slips through: four
// octets in front of a field, or of the link, that is aligned to eight. The MIB's test finds that one.)
//
// The fields' names are kept beside the object code for tools (module/describe_tables.cpp); the linker drops them from
// the module.
#define TAVO_COLUMNS(table, Row, ...)                                                            \
  constexpr auto columns = ::tavo::checked<Row>({TAVO_FOR_EACH(TAVO_COLUMN, Row, __VA_ARGS__)}); \
  [[gnu::section("tavo_columns"), gnu::used]] constexpr char column_names[] = #table ":" #__VA_ARGS__

#define TAVO_COLUMN(Row, field) ::tavo::column_of<decltype(Row::field)>(offsetof(Row, field)),

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
consteval Column column_of(std::size_t offset) {
  return {.codec = FieldTraits<T>::codec,
          .offset = static_cast<std::uint16_t>(offset),
          .capacity = static_cast<std::uint16_t>(FieldTraits<T>::capacity)};
}

// The octets of a column's field, and what its address is a multiple of.
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

// What is wrong with a list of columns, null when nothing is: it names every field of `Row` but the index and the link,
// in their order.
template <class Row>
constexpr const char *fault_of(std::span<const Column> columns) {
  const auto aligned = [](std::size_t offset, std::size_t alignment) {
    return (offset + alignment - 1) / alignment * alignment;
  };
  std::size_t end = sizeof(std::uint32_t);  // of the index
  for (const Column &column : columns) {
    const FieldShape shape = shape_of(column);
    if (column.offset != aligned(end, shape.alignment)) {
      return "columns follow each other as the row's fields do, and leave none out";
    }
    end = column.offset + shape.size;
  }
  return layout_of<Row>().next == aligned(end, alignof(void *)) ? nullptr : "a column for each field up to the last";
}

// `columns`, or a compile-time error for a list that has a fault.
template <class Row, std::size_t N>
consteval std::array<Column, N> checked(const Column (&columns)[N]) {
  if (const char *fault = fault_of<Row>(columns)) {
    throw fault;  // NOLINT(misc-throw-by-value-catch-by-reference): the compiler reads it, nothing throws it
  }
  return std::to_array(columns);
}

}  // namespace tavo
