// Parts of the simulated server, described by data: what fields a kind of part has, how they are written in a scenario
// and on the command line, and where they stand in the platform's binary records.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tavo::sim {

// What a user wrote is wrong; the text names the word and says what would be right.
class BadInput : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum class FieldType {
  Text,     // at most `size` octets
  Decimal,  // a number with an optional fraction, kept as it was written; never part of a record
  Octet,    // uint8
  Word,     // uint32
  Integer,  // int32
  Long,     // uint64, up to 2^63 - 1
  Flag,     // "yes" or "no", kept as 1 or 0
  ObjectId  // "1.3.6.1.4.1", up to `size` octets of 32-bit sub-identifiers
};

// A name that may be written in place of a number.
struct NamedNumber {
  std::string_view name;
  std::int64_t number;
};

inline constexpr std::size_t not_in_record = SIZE_MAX;

struct Field {
  std::string_view name;
  FieldType type = FieldType::Text;
  std::size_t offset = not_in_record;
  std::size_t size = 64;           // texts and object identifiers only
  bool required = false;           // a scenario must give it
  std::string_view fallback = {};  // the value when a scenario does not; empty is 0 or no text
  std::span<const NamedNumber> names = {};
};

struct PartKind {
  std::string_view name;
  std::span<const Field> fields;
  std::size_t record_size = 0;  // 0: the kind has no binary record
};

// One part: a value for each field of its kind.
class Part {
 public:
  // Every field at its fallback. The kind must outlive the part.
  explicit Part(const PartKind &kind);

  const PartKind &kind() const { return *kind_; }

  // The number of an integer field, the text of a text field. A name that the kind lacks is a programming error
  // (std::logic_error).
  std::int64_t number(std::string_view field) const;
  const std::string &text(std::string_view field) const;
  bool flag(std::string_view field) const { return number(field) != 0; }

  // Sets a field from what a user wrote. Throws BadInput for an unknown field or a value that does not fit.
  void set(std::string_view field, std::string_view value);
  void set_number(std::string_view field, std::int64_t value);

  // As it would be written: names in place of numbers where there are any.
  std::string written(const Field &field) const;

  // Puts every field that has an offset where it belongs. `record` has at least the kind's record size.
  void encode(std::span<std::byte> record) const;
  std::vector<std::byte> encoded() const;

 private:
  using Value = std::variant<std::int64_t, std::string>;

  std::size_t position(std::string_view field) const;

  const PartKind *kind_;
  std::vector<Value> values_;
};

// Sets several fields from words of the form field=value, all of them or, when one is wrong, none.
void apply_settings(Part &part, std::span<const std::string> settings);

// One line: "kind label: field=value field=value ...".
std::string describe(const Part &part, std::string_view label);

// "a, b, c", for the errors that list what would have been right.
std::string listed(const std::vector<std::string_view> &names);

// The whole of `text` as a number; throws BadInput that names `what` otherwise.
std::int64_t parse_number(std::string_view text, std::string_view what, std::int64_t least, std::int64_t most);

}  // namespace tavo::sim
