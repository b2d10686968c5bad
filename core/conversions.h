// Conversions that several tables and their diagnostics share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

namespace tavo {

// One name of an enumeration's value. A list of them ends with a null text.
struct EnumText {
  const char *text;
  int value;
};

#pragma GCC visibility push(default)
extern "C" {

// Writes `time`, seconds since 1970, as an 8-octet DateAndTime in the controller's local time: year (2 octets), month,
// day, hour, minutes, seconds, deci-seconds (always 0). `length`: in, the buffer's size in octets; out, the octets
// written. 0; -103 when an argument is null; -108 when the time cannot be converted. A buffer that is too small is left
// as it is, and so is its length: the result says nothing of that, and callers rely on being told success.
int convert_evsd_sel_time_to_snmp_time(const time_t *time, unsigned char *buffer, size_t *length);

// Reorders the low 36 bits of `value`: its low word byte-swapped and shifted left by 4 bits, or'ed with the
// byte-swapped low word of the value shifted right by 4. Not a swap of all 64 bits, for all its name; existing callers
// expect this.
uint64_t htonll(uint64_t value);

// "VALUE, TEXT" with the text that `table` has for the value, "(null)" when it has none. The module owns the result,
// which is valid until the next call; null when there is no memory. Not for two threads at once.
const char *enum_value(int value, const EnumText *table);
}
#pragma GCC visibility pop

}  // namespace tavo
