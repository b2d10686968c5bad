#include "tests/harness/value.h"

#include <cstring>
#include <iomanip>
#include <ostream>
#include <stdexcept>

namespace tavo::fakes {
namespace {

// A varbind in memory: numbers and sub-identifiers are longs, a Counter64 is two of them.
template <class T>
std::vector<T> loaded(std::span<const std::uint8_t> octets) {
  if (octets.size() % sizeof(T) != 0) {
    throw std::logic_error("a value of " + std::to_string(octets.size()) + " octets");
  }
  std::vector<T> elements(octets.size() / sizeof(T));
  if (!elements.empty()) {
    std::memcpy(elements.data(), octets.data(), octets.size());
  }
  return elements;
}

std::string content_of(std::uint8_t type, std::span<const std::uint8_t> octets) {
  switch (type) {
    case ASN_OCTET_STR:
      return {octets.begin(), octets.end()};
    case ASN_INTEGER:
      return std::to_string(loaded<long>(octets).at(0));
    case ASN_GAUGE:
    case ASN_COUNTER:
    case ASN_TIMETICKS:
      return std::to_string(loaded<u_long>(octets).at(0));
    case ASN_COUNTER64: {
      const auto words = loaded<struct counter64>(octets).at(0);
      return std::to_string(std::uint64_t{words.high} << 32 | words.low);
    }
    case ASN_OBJECT_ID:
      return dotted(loaded<oid>(octets));
    default:
      return "";
  }
}

const char *type_name(std::uint8_t type) {
  switch (type) {
    case ASN_OCTET_STR:
      return "OCTET STRING";
    case ASN_INTEGER:
      return "INTEGER";
    case ASN_GAUGE:
      return "Gauge32";
    case ASN_COUNTER:
      return "Counter32";
    case ASN_TIMETICKS:
      return "TimeTicks";
    case ASN_COUNTER64:
      return "Counter64";
    case ASN_OBJECT_ID:
      return "OBJECT IDENTIFIER";
    case SNMP_NOSUCHOBJECT:
      return "noSuchObject";
    case SNMP_NOSUCHINSTANCE:
      return "noSuchInstance";
    case SNMP_ENDOFMIBVIEW:
      return "endOfMibView";
    default:
      return nullptr;
  }
}

}  // namespace

std::string dotted(std::span<const oid> name) {
  std::string dotted;
  for (const oid sub_identifier : name) {
    dotted += (dotted.empty() ? "" : ".") + std::to_string(sub_identifier);
  }
  return dotted;
}

std::ostream &operator<<(std::ostream &out, const Value &value) {
  if (const char *name = type_name(value.type)) {
    out << name;
  } else {
    out << "type " << int{value.type};
  }
  if (value.type == ASN_OCTET_STR) {
    return out << ' ' << std::quoted(value.content);
  }
  return out << ' ' << value.content;
}

Value text(std::string_view octets) {
  return {ASN_OCTET_STR, std::string(octets)};
}

Value integer(std::int32_t number) {
  return {ASN_INTEGER, std::to_string(number)};
}

Value gauge(std::uint32_t number) {
  return {ASN_GAUGE, std::to_string(number)};
}

Value counter(std::uint32_t number) {
  return {ASN_COUNTER, std::to_string(number)};
}

Value counter64(std::uint64_t number) {
  return {ASN_COUNTER64, std::to_string(number)};
}

Value object_identifier(std::span<const oid> name) {
  return {ASN_OBJECT_ID, dotted(name)};
}

Value value_of(const netsnmp_variable_list &varbind) {
  return {varbind.type, content_of(varbind.type, {varbind.val.string, varbind.val_len})};
}

Value value_of(const Varbind &varbind) {
  return {varbind.type, content_of(varbind.type, varbind.value)};
}

}  // namespace tavo::fakes
