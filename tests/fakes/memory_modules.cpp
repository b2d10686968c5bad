#include "tests/fakes/memory_modules.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace tavo::fakes {
namespace {

std::vector<MemoryCall> calls;
std::vector<MemoryRecord> modules;
std::optional<int> announced_count;
int items_result = 0;
int detail_result = 0;
int summary_result = 0;
std::function<void()> observer;

void record(const char *function, const void *request, int size, const inventory_range *range) {
  MemoryCall call = {.function = function, .request = 0, .size = size, .range = std::nullopt};
  std::memcpy(&call.request, request, sizeof call.request);
  if (range != nullptr) {
    call.range.emplace(range->first, range->count);
  }
  calls.push_back(std::move(call));
  if (observer) {
    observer();
  }
}

}  // namespace

std::vector<MemoryCall> memory_calls() {
  return calls;
}

MemoryRecord &MemoryRecord::numbered(int of_the_name) {
  sensor_number = of_the_name;
  return *this;
}

void set_memory_modules(std::vector<MemoryRecord> records) {
  modules = std::move(records);
}

void set_memory_count(std::optional<int> count) {
  announced_count = count;
}

void set_memory_results(int items, int detail, int summary) {
  items_result = items;
  detail_result = detail;
  summary_result = summary;
}

void on_memory_call(std::function<void()> called) {
  observer = std::move(called);
}

void reset_memory() {
  observer = nullptr;
  calls.clear();
  modules.clear();
  announced_count.reset();
  set_memory_results(0, 0, 0);
}

}  // namespace tavo::fakes

using namespace tavo::fakes;

int GetMemoryItems(void *request, int size, const inventory_range *range, int *count) {
  record("GetMemoryItems", request, size, range);
  if (items_result == 0) {
    *count = announced_count.value_or(static_cast<int>(modules.size()));
  }
  return items_result;
}

int GetMemoryDetail(void *request, int size, const inventory_range *range, void *records) {
  record("GetMemoryDetail", request, size, range);
  if (detail_result != 0) {
    return detail_result;
  }
  std::size_t room = static_cast<std::size_t>(std::max(size, 0)) / MEMORY_RECORD_SIZE;
  auto *to = static_cast<std::byte *>(records);
  for (const MemoryRecord &module : modules) {
    if (room-- == 0) {
      break;
    }
    to = std::ranges::copy(module.octets, to).out;
  }
  return 0;
}

int GetMemorySummary(void *request, int size, const inventory_range *range, void *summary) {
  record("GetMemorySummary", request, size, range);
  if (summary_result == 0) {
    std::memset(summary, 0xA5, static_cast<std::size_t>(size));
  }
  return summary_result;
}

int getSensorName(const void *detail_record, int *number) {
  for (const MemoryRecord &module : modules) {
    if (std::memcmp(module.octets.data(), detail_record, module.octets.size()) == 0 && module.sensor_number) {
      *number = *module.sensor_number;
      return 1;
    }
  }
  return 0;
}
