// The fault engine's class codes that the simulator gives a name to.
#pragma once

#include <cstdint>

namespace tavo::sim {

inline constexpr std::int64_t class_processor = 3;
inline constexpr std::int64_t class_memory = 8;
inline constexpr std::int64_t class_supply = 10;
inline constexpr std::int64_t class_adapter = 11;
inline constexpr std::int64_t class_fan = 29;

}  // namespace tavo::sim
