// Class numbers: the kind of object that a fault record or a refresh request is about. The platform assigns them.
// The numbers of the ev locks are not among them: they stand for tables (core/access_lock.h).
#pragma once

namespace tavo::class_number {

inline constexpr int processor = 3;
inline constexpr int memory = 8;
inline constexpr int server = 9;  // for faults that are the whole server's: no kind of part has it
inline constexpr int power_supply_fan = 10;
inline constexpr int adaptor = 11;
inline constexpr int memory_module = 25;
inline constexpr int system_fan = 29;
inline constexpr int storage = 208;
inline constexpr int drive = 209;
inline constexpr int volume = 210;

}  // namespace tavo::class_number
