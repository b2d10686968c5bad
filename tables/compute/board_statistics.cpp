#include "tables/compute/board_statistics.h"

#include <cstddef>

#include "core/shell.h"
#include "sources/dump.h"
#include "sources/retries.h"

namespace tavo {
namespace {

// The board's dump, written anew by the tool when a value is asked for after forget().
class BoardDump {
 public:
  void forget() { loaded_ = false; }

  // The first value of the key. False when there is none.
  bool value(const char *key, char (&out)[dump_value_size]) {
    if (!loaded_) {
      run_in_shell(ShellCommand("datactl get=motherboardStats | flatkv > /var/motherboardStatsInventory"));
      loaded_ = true;
    }
    return Dump("/var/motherboardStatsInventory").value(Needle(key, ": "), 1, out);
  }

 private:
  bool loaded_ = false;
};

// Tries until the key turns up. The dump is written anew after each failed try, the last one too.
bool await_value(BoardDump &dump, const char *key, char (&out)[dump_value_size]) {
  return try_repeatedly([&] {
    const bool found = dump.value(key, out);
    if (!found) {
      dump.forget();
    }
    return found;
  });
}

}  // namespace

int build(const BoardStatistics &statistics, int reload) {
  const ListGuard guard(statistics.table.lock());
  if (guard.error() != 0) {
    return 0;
  }
  if (reload == 1) {
    statistics.table.remove_all();
  }
  BoardDump dump;
  BoardSample sample{};
  char value[dump_value_size];
  for (std::size_t i = 0; i < statistics.keys.size(); ++i) {
    const char *key = statistics.keys[i];
    if (i == 0 ? await_value(dump, key, value) : dump.value(key, value)) {
      sample.readings[i] = whole_reading(value);
    } else if (i != 0) {
      snmp_log(LOG_DEBUG, "SNMP:Failed %s\n", key);
    }
  }
  if (dump.value("timeCollected", value)) {
    take_collection_time(value, sample.collected);
  }
  return statistics.insert(sample) ? 0 : -1;
}

}  // namespace tavo
