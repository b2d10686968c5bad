#include "tables/compute/board_statistics.h"

namespace tavo {

std::int32_t BoardDump::reading(const char *key) {
  char text[dump_value_size];
  if (!value(key, text)) {
    snmp_log(LOG_DEBUG, "SNMP:Failed %s\n", key);
    return 0;
  }
  return whole_reading(text);
}

std::int32_t BoardDump::awaited_reading(const char *key) {
  char text[dump_value_size];
  return dump_.await([&] { return value(key, text); }) ? whole_reading(text) : 0;
}

void BoardDump::read_collection_time(CollectionTime &collected) {
  char text[dump_value_size];
  if (value("timeCollected", text)) {
    take_collection_time(text, collected);
  }
}

bool BoardDump::value(const char *key, char (&out)[dump_value_size]) {
  return dump_.value("motherboardStats", key, ": ", 1, out);
}

}  // namespace tavo
