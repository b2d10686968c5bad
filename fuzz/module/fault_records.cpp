// The fault engine: its table, its broadcasts in any order, and its failures, as the fault event thread sees them. The
// table must hold exactly the faults that are active.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <utility>

#include "fuzz/harness/platform.h"
#include "fuzz/harness/tables.h"
#include "platform/fault_engine.h"
#include "tables/faults/tavoFaultTable.h"
#include "threads/event_thread.h"

namespace tavo::fuzz {
namespace {

// Class codes with a meaning, codes that share a bucket with them, and the rest.
constexpr auto class_codes = std::to_array<std::uint32_t>({0, 3, 12, 30, 41, 56, 105, 259, 268, 0xFFFFFFFF});

class FaultEngine {
 public:
  explicit FaultEngine(Platform &platform) : platform_(platform), answers_(platform.answers) {
    platform.fault_count = [this] {
      active_.clear();
      return answers_.ConsumeBool() ? answers_.ConsumeIntegral<int>() : answers_.ConsumeIntegralInRange(0, 5);
    };
    platform.read_faults = [this](std::byte *records, int, int count) { return read(records, count); };
    platform.listen = [this](std::byte *record) { return broadcast(record); };
  }

 private:
  void put(std::byte *record, std::size_t offset, std::uint32_t word) {
    std::memcpy(record + offset, &word, sizeof word);
  }

  // One fault, which is known or not, raised or cleared.
  void make(std::byte *record) {
    platform_.fill(record, FAULT_RECORD_SIZE);
    const auto class_code = answers_.PickValueInArray(class_codes);
    const auto index = answers_.ConsumeIntegralInRange<std::uint32_t>(0, 7);
    const auto severity = answers_.ConsumeIntegralInRange<std::uint32_t>(0, 6);
    put(record, FAULT_CLASS_CODE, class_code);
    put(record, FAULT_INDEX, index);
    put(record, FAULT_SEVERITY, severity);
    if (answers_.ConsumeBool()) {
      put(record, FAULT_AFFECTED_OID_COUNT, answers_.PickValueInArray<std::uint32_t>({0, 1, 31, 32, 33, 0xFFFFFFFF}));
      put(record, FAULT_UNIT_POSITION, answers_.ConsumeIntegral<std::uint32_t>());
      put(record, FAULT_CAUSE, answers_.PickValueInArray<std::uint32_t>({0, 238, 0x80000000}));
    }
    if (severity == 0) {
      active_.erase({class_code, index});
    } else {
      active_.emplace(class_code, index);
    }
  }

  int read(std::byte *records, int count) {
    constexpr int most = 8;
    if (count > most || platform_.failure() != 0) {
      return -1;
    }
    for (int i = 0; i < count; ++i) {
      make(records + static_cast<std::ptrdiff_t>(i) * FAULT_RECORD_SIZE);
    }
    return 0;
  }

  int broadcast(std::byte *record) {
    serve({&tavoFaultTable_table});
    {
      const ListGuard guard(tavoFaultTable_table.lock());
      expect(tavoFaultTable_table.rows().count() == active_.size(), "the table holds the active faults");
    }
    if (answers_.remaining_bytes() == 0) {
      stop_FE_thread();
      errno = EINTR;
      return -1;
    }
    switch (answers_.ConsumeIntegralInRange(0, 15)) {
      case 0:
        return 0;
      case 1:
        errno = EINTR;
        return 0;
      case 2:
        errno = ECONNRESET;
        return -1;
      default:
        make(record);
        return FAULT_RECORD_SIZE;
    }
  }

  Platform &platform_;
  FuzzedDataProvider &answers_;
  std::set<std::pair<std::uint32_t, std::uint32_t>> active_;  // class code and index
};

}  // namespace

void try_input(Octets input) {
  Platform platform(input);
  const FaultEngine engine(platform);
  if (platform.answers.ConsumeBool()) {
    platform.files["/var/tvmcWarmStartup"] = "";
  }
  expect(create_FE_thread() == 0, "the thread starts");
  join_FE_thread();
}

}  // namespace tavo::fuzz
