#include "sources/environment_statistics.h"

#include "sources/tool_dump.h"

namespace tavo {

int build(const EnvironmentStatistics &statistics, int refresh) {
  const Rebuild rebuild(statistics.table, refresh);
  if (rebuild.error() != 0) {
    return 0;
  }
  ToolDump tool_dump(statistics.path);
  Dump dump;
  const bool fetched = tool_dump.await([&] {
    dump = tool_dump.read(statistics.source);
    return dump.opened();
  });
  if (!fetched) {
    return -1;
  }

  char value[dump_value_size];
  EnvironmentSample sample{};
  // Every row carries the time stamp of the dump's first record.
  if (dump.value(Needle("timeCollected", ": "), 1, value)) {
    take_collection_time(value, sample.collected);
  }
  Dump::Search ids(dump, "id", ": ");
  Dump::Search temperatures(dump, "temperature", ": ");
  const int count = dump.count_units(Needle("id", ":"));
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
