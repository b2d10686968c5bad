#include "core/conversions.h"

#include <arpa/inet.h>
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/library/snmp-tc.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "core/calendar.h"

namespace tavo {
namespace {

constexpr int null_argument = -103;
constexpr int conversion_failed = -108;

// The last result of enum_value.
constinit char *last_text = nullptr;

}  // namespace

int convert_evsd_sel_time_to_snmp_time(const time_t *time, unsigned char *buffer, size_t *length) {
  if (time == nullptr || buffer == nullptr || length == nullptr) {
    return null_argument;
  }
  return write_date_and_time(*time, buffer, length);
}

int write_date_and_time(std::int64_t seconds, unsigned char *buffer, std::size_t *length) {
  const std::optional<std::tm> local = local_time(seconds);
  if (!local) {
    return conversion_failed;
  }
  // With 0 as the direction of the UTC offset, the library leaves out the zone's three octets.
  std::array<unsigned char, 32> octets = {};
  std::size_t count = octets.size();
  const int error = netsnmp_dateandtime_set_buf_from_vars(
      octets.data(), &count, static_cast<unsigned short>(static_cast<unsigned>(local->tm_year) + 1900U),
      static_cast<unsigned char>(local->tm_mon + 1), static_cast<unsigned char>(local->tm_mday),
      static_cast<unsigned char>(local->tm_hour), static_cast<unsigned char>(local->tm_min),
      static_cast<unsigned char>(local->tm_sec), 0, 0, 0, 0);
  if (*length >= count) {
    std::memcpy(buffer, octets.data(), count);
    *length = count;
  }
  return error == 0 ? 0 : conversion_failed;
}

uint64_t htonll(uint64_t value) {
  const uint64_t low = htonl(static_cast<uint32_t>(value));
  const uint64_t shifted = htonl(static_cast<uint32_t>(value >> 4));
  return low << 4 | shifted;
}

const char *enum_value(int value, const EnumText *table) {
  while (table->text != nullptr && table->value != value) {
    ++table;
  }
  char *text = nullptr;
  if (asprintf(&text, "%d, %s", value, table->text) < 0) {
    text = nullptr;
  }
  std::free(last_text);
  last_text = text;
  return text;
}

}  // namespace tavo
