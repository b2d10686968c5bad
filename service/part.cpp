#include "service/part.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>

#include "service/little_endian.h"

namespace tavo::service {
namespace {

Range range_of(const Field &field) {
  if (field.range) {
    return *field.range;
  }
  switch (field.type) {
    case FieldType::Flag:
      return {.least = 0, .most = 1};
    case FieldType::Octet:
      return {.least = 0, .most = std::numeric_limits<std::uint8_t>::max()};
    case FieldType::Word:
      return {.least = 0, .most = std::numeric_limits<std::uint32_t>::max()};
    case FieldType::Integer:
      return {.least = std::numeric_limits<std::int32_t>::min(), .most = std::numeric_limits<std::int32_t>::max()};
    default:
      return {.least = 0, .most = std::numeric_limits<std::int64_t>::max()};
  }
}

bool is_text(FieldType type) {
  return type == FieldType::Text || type == FieldType::Decimal || type == FieldType::ObjectId;
}

// A flag is written as the first name of its value, and read in every form that YAML has for it.
constexpr auto flag_names = std::to_array<NamedNumber>({{.name = "no", .number = 0},
                                                        {.name = "yes", .number = 1},
                                                        {.name = "false", .number = 0},
                                                        {.name = "true", .number = 1}});

std::span<const NamedNumber> names_of(const Field &field) {
  return field.type == FieldType::Flag ? std::span<const NamedNumber>(flag_names) : field.names;
}

// The names of fields, or of named numbers.
template <class Named>
std::vector<std::string_view> names_in(std::span<const Named> list) {
  std::vector<std::string_view> names(list.size());
  std::ranges::transform(list, names.begin(), &Named::name);
  return names;
}

std::string in_lower_case(std::string_view written) {
  std::string lower(written);
  std::ranges::transform(lower, lower.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

std::int64_t read_number(const Field &field, std::string_view written) {
  if (written.empty() && !field.range) {
    return 0;
  }
  const auto names = names_of(field);
  const std::string word = field.type == FieldType::Flag ? in_lower_case(written) : std::string(written);
  const auto named = std::ranges::find(names, word, &NamedNumber::name);
  if (named != names.end()) {
    return named->number;
  }
  const Range range = range_of(field);
  try {
    return parse_number(written, field.name, range.least, range.most);
  } catch (const BadInput &error) {
    if (names.empty()) {
      throw;
    }
    throw BadInput(std::string(error.what()) + " or one of " + joined(names_in(names)));
  }
}

std::vector<std::uint32_t> read_object_id(const Field &field, std::string_view written) {
  std::vector<std::uint32_t> sub_identifiers;
  while (!written.empty()) {
    const std::size_t dot = written.find('.');
    sub_identifiers.push_back(static_cast<std::uint32_t>(
        parse_number(written.substr(0, dot), field.name, 0, std::numeric_limits<std::uint32_t>::max())));
    if (dot == std::string_view::npos) {
      break;
    }
    written.remove_prefix(dot + 1);
  }
  return sub_identifiers;
}

std::string read_text(const Field &field, std::string_view written) {
  const std::string name(field.name);
  if (field.type == FieldType::Decimal) {
    double number = 0;
    const auto [end, error] = std::from_chars(written.data(), written.data() + written.size(), number);
    if (error != std::errc() || end != written.data() + written.size()) {
      throw BadInput(name + ": '" + std::string(written) + "' is not a decimal number");
    }
  } else if (field.type == FieldType::ObjectId) {
    if (read_object_id(field, written).size() * sizeof(std::uint32_t) > field.size) {
      throw BadInput(name + ": more than " + std::to_string(field.size / sizeof(std::uint32_t)) + " sub-identifiers");
    }
  } else if (written.size() > field.size) {
    throw BadInput(name + ": '" + std::string(written) + "' is longer than " + std::to_string(field.size) + " octets");
  } else if (written.find('\n') != std::string_view::npos) {
    throw BadInput(name + ": a text must not contain a line break");
  }
  return std::string(written);
}

std::string what_it_may_be(const Field &field) {
  switch (field.type) {
    case FieldType::Text:
      return "a text of at most " + std::to_string(field.size) + " octets";
    case FieldType::Decimal:
      return "a decimal number";
    case FieldType::Flag:
      return "yes or no";
    case FieldType::ObjectId:
      return "an object identifier like 1.3.6.1";
    default: {
      const Range range = range_of(field);
      const std::string number = "a number from " + std::to_string(range.least) + " to " + std::to_string(range.most);
      return field.names.empty() ? number : joined(names_in(field.names)) + ", or " + number;
    }
  }
}

// The size of a number of this type in a record.
std::size_t octets_of(FieldType type) {
  switch (type) {
    case FieldType::Octet:
      return 1;
    case FieldType::Long:
      return 8;
    default:
      return 4;
  }
}

}  // namespace

const Field *find_field(const PartKind &kind, std::string_view name) {
  const auto found = std::ranges::find(kind.fields, name, &Field::name);
  return found != kind.fields.end() ? &*found : nullptr;
}

Part::Part(const PartKind &kind) : kind_(&kind) {
  values_.reserve(kind.fields.size());
  for (const Field &field : kind.fields) {
    if (is_text(field.type)) {
      values_.emplace_back(std::string(field.fallback));
    } else {
      values_.emplace_back(field.fallback.empty() ? 0 : read_number(field, field.fallback));
    }
  }
}

std::size_t Part::position(std::string_view field) const {
  const Field *found = find_field(*kind_, field);
  if (found == nullptr) {
    throw std::logic_error(std::string(kind_->name) + " has no field " + std::string(field));
  }
  return static_cast<std::size_t>(found - kind_->fields.data());
}

std::int64_t Part::number(std::string_view field) const {
  return std::get<std::int64_t>(values_[position(field)]);
}

const std::string &Part::text(std::string_view field) const {
  return std::get<std::string>(values_[position(field)]);
}

void Part::set(std::string_view field, std::string_view value) {
  const Field *found = find_field(*kind_, field);
  if (found == nullptr) {
    throw BadInput("a " + std::string(kind_->name) + " has no field '" + std::string(field) + "'; it has " +
                   joined(names_in(kind_->fields)));
  }
  Value &kept = values_[position(field)];
  if (is_text(found->type)) {
    kept = read_text(*found, value);
  } else {
    kept = read_number(*found, value);
  }
}

void Part::set_number(std::string_view field, std::int64_t value) {
  values_[position(field)] = value;
}

std::string Part::written(const Field &field) const {
  const Value &value = values_[position(field.name)];
  if (const auto *text = std::get_if<std::string>(&value)) {
    return *text;
  }
  const std::int64_t number = std::get<std::int64_t>(value);
  const auto names = names_of(field);
  const auto named = std::ranges::find(names, number, &NamedNumber::number);
  return named != names.end() ? std::string(named->name) : std::to_string(number);
}

void Part::encode(std::span<std::byte> record) const {
  for (std::size_t i = 0; i < values_.size(); ++i) {
    const Field &field = kind_->fields[i];
    if (field.offset == not_in_record) {
      continue;
    }
    if (field.type == FieldType::ObjectId) {
      std::size_t offset = field.offset;
      for (const std::uint32_t sub_identifier : read_object_id(field, std::get<std::string>(values_[i]))) {
        put_little_endian(record.subspan(offset, sizeof sub_identifier), sub_identifier);
        offset += sizeof sub_identifier;
      }
    } else if (const auto *text = std::get_if<std::string>(&values_[i])) {
      std::memcpy(record.data() + field.offset, text->data(), std::min(text->size(), field.size));
    } else {
      put_little_endian(record.subspan(field.offset, octets_of(field.type)),
                        static_cast<std::uint64_t>(std::get<std::int64_t>(values_[i])));
    }
  }
}

std::vector<std::byte> Part::encoded() const {
  std::vector<std::byte> record(kind_->record_size);
  encode(record);
  return record;
}

void apply_settings(Part &part, Settings settings) {
  Part changed = part;
  for (const std::string &setting : settings) {
    const std::size_t equals = setting.find('=');
    if (equals == std::string::npos) {
      throw BadInput("'" + setting + "' is not of the form field=value");
    }
    changed.set(std::string_view(setting).substr(0, equals), std::string_view(setting).substr(equals + 1));
  }
  part = changed;
}

void check_identity(const Part &part, const std::vector<Part> &list) {
  const PartKind &kind = part.kind();
  const auto words_of = [&kind](const Part &any) {
    std::string words;
    for (const std::string_view field : kind.identity) {
      words += ' ' + std::string(field) + ' ' + any.written(*find_field(kind, field));
    }
    return words;
  };
  const std::string words = words_of(part);
  if (!words.empty() &&
      std::ranges::any_of(list, [&](const Part &other) { return &other != &part && words_of(other) == words; })) {
    throw BadInput("there is another " + std::string(kind.name) + " with" + words);
  }
}

void change_part(std::vector<Part> &list, Part &part, Settings settings) {
  const Part before = part;
  apply_settings(part, settings);
  try {
    check_identity(part, list);
  } catch (const BadInput &) {
    part = before;
    throw;
  }
}

std::string describe(const Part &part, std::string_view label) {
  std::string line(part.kind().name);
  if (!label.empty()) {
    line += ' ';
    line += label;
  }
  line += ':';
  for (const Field &field : part.kind().fields) {
    const std::string value = part.written(field);
    if (value.empty()) {
      continue;
    }
    const bool quoted = value.find(' ') != std::string::npos;
    line += ' ';
    line += field.name;
    line += quoted ? "=\"" + value + '"' : '=' + value;
  }
  return line + '\n';
}

nlohmann::ordered_json to_json(const Part &part) {
  auto fields = nlohmann::ordered_json::object();
  for (const Field &field : part.kind().fields) {
    const std::string value = part.written(field);
    auto &member = fields[std::string(field.name)];
    if (field.type == FieldType::Flag) {
      member = part.flag(field.name);
    } else if (field.type == FieldType::Decimal) {
      member = std::strtod(value.c_str(), nullptr);
    } else if (is_text(field.type) || std::ranges::find(field.names, value, &NamedNumber::name) != field.names.end()) {
      member = value;
    } else {
      member = part.number(field.name);
    }
  }
  return fields;
}

std::string describe_fields(const PartKind &kind) {
  constexpr std::size_t column = 24;
  std::string lines;
  for (const Field &field : kind.fields) {
    std::string line = "  " + std::string(field.name);
    line.resize(std::max(column, line.size() + 1), ' ');
    lines += line + what_it_may_be(field);
    if (!field.fallback.empty()) {
      lines += "; default: " + std::string(field.fallback);
    }
    lines += field.required ? "; required in a scenario\n" : "\n";
  }
  return lines;
}

std::string joined(const std::vector<std::string_view> &names) {
  std::string all;
  for (const std::string_view name : names) {
    all += all.empty() ? "" : ", ";
    all += name;
  }
  return names.empty() ? "none" : all;
}

std::int64_t parse_number(std::string_view text, std::string_view what, std::int64_t least, std::int64_t most) {
  const bool hexadecimal = text.starts_with("0x");
  const std::string_view digits = hexadecimal ? text.substr(2) : text;
  std::int64_t number = 0;
  const auto [end, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), number, hexadecimal ? 16 : 10);
  if (digits.empty() || error != std::errc() || end != digits.data() + digits.size() || number < least ||
      number > most) {
    throw BadInput(std::string(what) + ": '" + std::string(text) + "' is not a number from " + std::to_string(least) +
                   " to " + std::to_string(most));
  }
  return number;
}

}  // namespace tavo::service
