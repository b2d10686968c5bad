// Parts of the simulated server, described by data: which fields a kind of part has, how a scenario or a command
// writes them, and where they stand in the platform's binary records.
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tavo::service {

// The user wrote something wrong. The message quotes the word and lists what would be right.
class BadInput : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum class FieldType {
  Text,     // at most `size` octets, on one line
  Decimal,  // a number with an optional fraction, kept as written; cannot be part of a record
  Octet,    // uint8
  Word,     // uint32
  Integer,  // int32
  Long,     // uint64, up to 2^63 - 1
  Flag,     // "yes" or "no", kept as 1 or 0; a 32-bit word in a record
  ObjectId  // "1.3.6.1.4.1"; in a record 32-bit sub-identifiers, at most `size` octets of them
};

// A name that may be written in place of a number.
struct NamedNumber {
  std::string_view name;
  std::int64_t number;
};

struct Range {
  std::int64_t least;
  std::int64_t most;
};

inline constexpr std::size_t not_in_record = SIZE_MAX;

struct Field {
  std::string_view name;
  FieldType type = FieldType::Text;
  std::size_t offset = not_in_record;  // octets from the start of the record
  std::size_t size = 64;               // octets; texts and object identifiers only
  bool required = false;               // a scenario must give it
  std::string_view fallback = {};      // the value when a scenario does not; empty: 0, or an empty text
  std::span<const NamedNumber> names = {};
  std::optional<Range> range = {};  // of a number; nothing: what its type holds
};

struct PartKind {
  std::string_view name;
  std::span<const Field> fields;
  std::size_t record_size = 0;                      // octets; 0: the kind has no binary record
  std::span<const std::string_view> identity = {};  // the fields by which the parts of a list differ; empty: none
};

// The field of that name, or null.
const Field *find_field(const PartKind &kind, std::string_view name);

// One part: a value for each field of its kind.
class Part {
 public:
  // Every field gets its fallback. The kind must outlive the part.
  explicit Part(const PartKind &kind);

  const PartKind &kind() const { return *kind_; }

  // The value of a number, text or flag field. A field that the kind lacks, or that is of another type, is a
  // programming error and throws.
  std::int64_t number(std::string_view field) const;
  const std::string &text(std::string_view field) const;
  bool flag(std::string_view field) const { return number(field) != 0; }

  // Sets a field from what a user wrote. Throws BadInput if the field is unknown or the value does not fit.
  void set(std::string_view field, std::string_view value);
  // Sets a number field without checking its range.
  void set_number(std::string_view field, std::int64_t value);

  // The value as a user would write it: a name in place of a number where the field has one.
  std::string written(const Field &field) const;

  // Writes every field that has an offset into `record`, which has room for the kind's record size and is zeroed.
  void encode(std::span<std::byte> record) const;
  std::vector<std::byte> encoded() const;

  bool operator==(const Part &) const = default;

 private:
  using Value = std::variant<std::int64_t, std::string>;

  std::size_t position(std::string_view field) const;

  const PartKind *kind_;
  std::vector<Value> values_;  // in the order of the kind's fields
};

// Words of the form "field=value".
using Settings = std::span<const std::string>;

// Applies all the settings or, if one of them is wrong, throws BadInput and applies none.
void apply_settings(Part &part, Settings settings);

// Throws BadInput if another part of the list has the identity of `part`.
void check_identity(const Part &part, const std::vector<Part> &list);

// The same as apply_settings() for a part of the list, which keeps an identity of its own.
void change_part(std::vector<Part> &list, Part &part, Settings settings);

// One line: "kind label: field=value field=value ...\n". Empty texts are left out.
std::string describe(const Part &part, std::string_view label);

// The part's fields as JSON: names in place of numbers where a field has them, flags as true and false.
nlohmann::ordered_json to_json(const Part &part);

// A line for each field: its name, what it may be, and its default.
std::string describe_fields(const PartKind &kind);

// "a, b, c", or "none", for messages that list what would have been right.
std::string joined(const std::vector<std::string_view> &names);

// The whole of `text` as a decimal or, after "0x", a hexadecimal number. Throws BadInput, which names `what`, if `text`
// is not a number or is out of range.
std::int64_t parse_number(std::string_view text, std::string_view what, std::int64_t least, std::int64_t most);

}  // namespace tavo::service
