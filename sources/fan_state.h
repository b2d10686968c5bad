// The state of each fan that is kept between the builds of the fan table. The fault event thread writes it from fault
// records; the inventory refresh thread reads it, and writes presence, when it builds the table.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace tavo {

// One octet for each fan. Two threads share it without a lock, so each octet is a relaxed atomic.
template <std::size_t N>
using FanOctets = std::atomic<std::uint8_t>[N];

// Fan numbers come from records and sensors and may lie beyond the array: such a fan keeps no state and reads as 0.
template <std::size_t N>
void store_fan(FanOctets<N> &fans, std::uint32_t fan, std::uint8_t value) {
  if (fan < N) {
    fans[fan].store(value, std::memory_order_relaxed);
  }
}

template <std::size_t N>
std::uint8_t load_fan(const FanOctets<N> &fans, std::uint32_t fan) {
  return fan < N ? fans[fan].load(std::memory_order_relaxed) : std::uint8_t{0};
}

#pragma GCC visibility push(default)
extern "C" {

// Presence of each system fan: 10 present, 11 absent, 30 undetermined.
extern FanOctets<14> sys_fan_prs;
// Severity of each system fan's fault, 0 for none; the same for the power supplies' fans.
extern FanOctets<14> sys_fan_sev;
extern FanOctets<4> ps_fan_sev;
}
#pragma GCC visibility pop

}  // namespace tavo
