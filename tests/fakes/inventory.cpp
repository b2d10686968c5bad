#include "tests/fakes/inventory.h"

#include <algorithm>
#include <cstring>
#include <mutex>

namespace tavo::fakes {
namespace {

std::mutex mutex;
std::vector<InventoryCall> calls;
std::vector<ProcessorRecord> processors;
std::optional<int> announced_count;
int count_result = 0;
int info_result = 0;
std::function<void()> info_observer;

void record(const char *function, const void *word, int size, const inventory_range *range) {
  InventoryCall call = {.function = function, .word = 0, .size = size, .whole_list = range == nullptr};
  std::memcpy(&call.word, word, sizeof call.word);
  calls.push_back(std::move(call));
}

}  // namespace

std::vector<InventoryCall> inventory_calls() {
  const std::scoped_lock lock(mutex);
  return calls;
}

void set_processors(std::vector<ProcessorRecord> records) {
  const std::scoped_lock lock(mutex);
  processors = std::move(records);
}

void set_processor_count(std::optional<int> count) {
  const std::scoped_lock lock(mutex);
  announced_count = count;
}

void set_processor_count_result(int result) {
  const std::scoped_lock lock(mutex);
  count_result = result;
}

void set_processor_info_result(int result) {
  const std::scoped_lock lock(mutex);
  info_result = result;
}

void on_processor_info(std::function<void()> observer) {
  const std::scoped_lock lock(mutex);
  info_observer = std::move(observer);
}

void reset_inventory() {
  const std::scoped_lock lock(mutex);
  calls.clear();
  processors.clear();
  announced_count.reset();
  count_result = 0;
  info_result = 0;
  info_observer = nullptr;
}

}  // namespace tavo::fakes

using namespace tavo::fakes;

int GetCPUItems(void *status, int size, const inventory_range *range, int *count) {
  const std::scoped_lock lock(mutex);
  record("GetCPUItems", status, size, range);
  if (count_result == 0) {
    *count = announced_count.value_or(static_cast<int>(processors.size()));
  }
  return count_result;
}

int GetCPUInfo(void *status, int size, const inventory_range *range, void *records) {
  const std::scoped_lock lock(mutex);
  record("GetCPUInfo", status, size, range);
  if (info_observer) {
    info_observer();
  }
  if (info_result != 0) {
    return info_result;
  }
  std::size_t room = static_cast<std::size_t>(std::max(size, 0)) / PROCESSOR_RECORD_SIZE;
  auto *to = static_cast<std::byte *>(records);
  for (const ProcessorRecord &processor : processors) {
    if (room-- == 0) {
      break;
    }
    to = std::ranges::copy(processor.octets, to).out;
  }
  return 0;
}
