// A fake of the platform inventory library's memory calls: records every call and answers what the test has set.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/inventory.h"
#include "tests/harness/record_writer.h"

namespace tavo::fakes {

struct MemoryCall {
  std::string function;
  std::uint32_t request;  // its first word
  int size;
  std::optional<std::pair<int, int>> range;  // first and count, empty for null
  bool operator==(const MemoryCall &) const = default;
};

// The Get calls, oldest first.
std::vector<MemoryCall> memory_calls();

// One module's detail record, zeroed at first.
struct MemoryRecord : RecordOctets<MemoryRecord, MEMORY_RECORD_SIZE> {
  std::optional<int> sensor_number;  // what getSensorName delivers; empty: it returns 0

  MemoryRecord &numbered(int number);
};

// The server's modules: GetMemoryItems counts them, GetMemoryDetail copies as many as fit. None at first.
void set_memory_modules(std::vector<MemoryRecord> modules);

// What GetMemoryItems says instead of the number of modules; empty: that number.
void set_memory_count(std::optional<int> count);

// Results of the three calls, 0 at first. A failing call leaves its output alone.
void set_memory_results(int items, int detail, int summary);

// Called at each of the Get calls.
void on_memory_call(std::function<void()> observer);

void reset_memory();

}  // namespace tavo::fakes
