// What the four statistics tables share: rounding a reading, and the time of the sample.
#pragma once

#include <cstdint>

namespace tavo {

// A decimal reading such as "36.5" as a whole number: 0.5 is added and the fraction dropped. Halves round up; below
// zero the result is not the nearest number: -2.7 gives -2. 0 for a text without a number; kept within 32 bits.
std::int32_t whole_reading(const char *text);

// A DateAndTime in a text column. It is sent like any text, up to the first zero octet: at most 7 of the 8 octets, and
// fewer on the hour or the minute. Managers expect it so.
using CollectionTime = char[64];

// Turns a dump's local time, such as "2026-11-15T12:00:07", into a DateAndTime. Leaves `collected` alone if the text is
// not such a time.
void take_collection_time(const char *text, CollectionTime &collected);

}  // namespace tavo
