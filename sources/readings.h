// What the four statistics tables share: how a reading becomes a whole number, and when it was taken.
#pragma once

#include <cstdint>

namespace tavo {

// The nearest whole number to a decimal reading such as "36.5", halves upwards: 0.5 is added and the fraction dropped,
// which rounds readings below zero towards it. 0 for a text that is no number; kept within 32 bits.
std::int32_t whole_reading(const char *text);

// A DateAndTime kept as a text, the way these tables have always sent it: its octets up to the first zero, so at most
// 7, and fewer on the hour.
using CollectionTime = char[64];

// Turns a dump's local time, such as "2026-11-15T12:00:07", into a DateAndTime. Leaves `collected` alone when the text
// is no such time.
void take_collection_time(const char *text, CollectionTime &collected);

}  // namespace tavo
