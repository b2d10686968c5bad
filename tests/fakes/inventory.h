// A fake of the platform inventory library's processor calls: records every call and answers what the test has set.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/inventory.h"
#include "tests/harness/record_writer.h"

namespace tavo::fakes {

struct InventoryCall {
  std::string function;
  std::uint32_t word;  // what the first argument points to
  int size;
  bool whole_list;  // the range was null
  bool operator==(const InventoryCall &) const = default;
};

// Oldest first.
std::vector<InventoryCall> inventory_calls();

// One processor, zeroed at first. Texts and integers stand at the offsets of platform/inventory.h.
using ProcessorRecord = PlatformRecord<PROCESSOR_RECORD_SIZE>;

// The server's processors: GetCPUItems counts them, GetCPUInfo copies as many as fit. None at first.
void set_processors(std::vector<ProcessorRecord> processors);

// What GetCPUItems says instead of the number of processors; empty: that number.
void set_processor_count(std::optional<int> count);

// Results of the two calls, 0 at first. A failing call leaves its output alone.
void set_processor_count_result(int result);
void set_processor_info_result(int result);

// Called at each GetCPUInfo.
void on_processor_info(std::function<void()> observer);

void reset_inventory();

}  // namespace tavo::fakes
