// Keeps the inventory and statistics tables fresh: rebuilds what a fault or a storage event has marked as due, and most
// tables periodically. The rules stand in RefreshPass, which knows neither threads nor clocks.
#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>

namespace tavo {

// What is rebuilt as one.
enum class Inventory : std::uint8_t {
  fans,
  supplies,
  board_statistics,  // power and temperature
  memory,            // and its temperatures
  processors,        // and their temperatures
  rack_unit,
  storage,
  adaptors,
  leds,
};
inline constexpr std::size_t inventory_kinds = 9;

// What the other threads have asked for since the last check.
struct RefreshRequests {
  bool fans = false;
  bool supplies = false;
  bool memory = false;
  bool processors = false;
  bool storage = false;
  bool adaptors = false;
};

// One pass over the requests and, when it is time, over the periodic set. Rebuilds each kind at most once. Sleeps
// (before a rebuild, so that the platform's own view settles) and logs as it goes.
class RefreshPass {
 public:
  explicit RefreshPass(void (*rebuild)(Inventory)) : rebuild_(rebuild) {}

  // Fans, supplies, memory, processors, storage, adaptors, in this order.
  void serve(const RefreshRequests &requests);

  // Everything that changes without a request, but fans and storage. The supplies take part only while
  // `supply_refreshes_left` is above 0, which this counts down.
  void refresh_periodically(int &supply_refreshes_left);

 private:
  void once(Inventory kind);

  void (*rebuild_)(Inventory);
  std::bitset<inventory_kinds> rebuilt_;
};

}  // namespace tavo

#pragma GCC visibility push(default)
extern "C" {

// 0, or -1 when the thread cannot be created.
int create_inventory_thread(void);
// The thread sees it when it wakes next: after its first minute, or after the 10 seconds between two passes. A pass
// that is under way ends first, with its rebuilds and the sleeps of its requests (up to 90 seconds).
void stop_inventory_thread(void);
// Waits for the thread and destroys the inventory lock. Always 0.
int join_inventory_thread(void);
void *inventory_thread(void *unused);
}
#pragma GCC visibility pop
