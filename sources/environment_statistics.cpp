#include "sources/environment_statistics.h"

#include <optional>

#include "core/shell.h"
#include "sources/retries.h"

namespace tavo {
namespace {

// Has the tool write the dump and opens it, trying again while it cannot be read. False when it never can.
bool fetch(const EnvironmentStatistics &statistics, std::optional<Dump> &dump) {
  return try_repeatedly([&] {
    run_in_shell(ShellCommand("%s", statistics.command));
    return dump.emplace(statistics.dump).opened();
  });
}

}  // namespace

int build(const EnvironmentStatistics &statistics, int reload) {
  const ListGuard guard(statistics.table.lock());
  if (guard.error() != 0) {
    return 0;
  }
  if (reload == 1) {
    statistics.table.remove_all();
  }
  std::optional<Dump> dump;
  if (!fetch(statistics, dump)) {
    return -1;
  }

  Dump::Search ids(*dump, Needle("id", ": "));
  Dump::Search temperatures(*dump, Needle("temperature", ": "));
  char value[dump_value_size];
  EnvironmentSample sample{};
  // Every row carries the time stamp of the dump's first record.
  if (dump->value(Needle("timeCollected", ": "), 1, value)) {
    take_collection_time(value, sample.collected);
  }
  const int count = dump->count(Needle("id", ":"));
  for (int n = 1; n <= count; ++n) {
    sample.row = static_cast<std::uint32_t>(n);
    sample.has_id = ids.value(n, sample.id);
    sample.temperature = temperatures.value(n, value) ? whole_reading(value) : 0;
    if (!statistics.insert(sample)) {
      return -1;
    }
  }
  return 0;
}

}  // namespace tavo
