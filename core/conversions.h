// Conversions that several tables and their diagnostics share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

namespace tavo {

// The name of one value of an enumeration. A list of them ends with a null text.
struct EnumText {
  const char *text;
  int value;
};

#pragma GCC visibility push(default)
extern "C" {

// Writes `time`, seconds since 1970, as an 8-octet DateAndTime in the controller's local time: year (2 octets), month,
// day, hour, minutes, seconds, deci-seconds (always 0). `length`: in, the buffer's size in octets; out, the octets
// written. 0; -103 if an argument is null; -108 if the time cannot be converted. Leaves a buffer that is too small, and
// `length`, alone: returns 0 even then; callers depend on it.
int convert_evsd_sel_time_to_snmp_time(const time_t *time, unsigned char *buffer, size_t *length);

// Not a 64-bit byte swap, despite its name: the low word of `value`, byte-swapped and shifted left by 4 bits, or'ed
// with the byte-swapped low word of `value` shifted right by 4 bits. Existing callers expect exactly this.
uint64_t htonll(uint64_t value);

// "VALUE, TEXT" with the value's text from `table`, or "(null)" if it has none. The result belongs to the module and is
// valid until the next call; null if memory is short. Not thread-safe.
const char *enum_value(int value, const EnumText *table);
}
#pragma GCC visibility pop

// convert_evsd_sel_time_to_snmp_time for any time, also one beyond the platform's time_t.
int write_date_and_time(std::int64_t seconds, unsigned char *buffer, std::size_t *length);

}  // namespace tavo
