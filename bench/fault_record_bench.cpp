// fault_record_bench raise|update|clear: applies a record of that kind for each of 1,000 faults of one class, and
// prints how many. instructions.py counts what is executed in apply_counted(), which is the module's part: what the
// record is made into, and the notification up to its hand-over.
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/fault_engine.h"
#include "tables/faults/fault_database.h"
#include "tables/faults/tavoFaultTable.h"
#include "tables/faults/tavoFaultTable_traps.h"

namespace {

constexpr std::uint32_t faults = 1000;

using FaultRecord = std::array<std::byte, FAULT_RECORD_SIZE>;

void put(FaultRecord &record, std::size_t offset, std::uint32_t word) {
  std::memcpy(record.data() + offset, &word, sizeof word);
}

void put(FaultRecord &record, std::size_t offset, std::string_view text) {
  std::memcpy(record.data() + offset, text.data(), text.size());
}

FaultRecord record_of(std::uint32_t index, std::uint32_t severity) {
  constexpr std::uint32_t processor = 3;
  FaultRecord record = {};
  put(record, FAULT_CLASS_CODE, processor);
  put(record, FAULT_SEVERITY, severity);
  put(record, FAULT_INDEX, index);
  put(record, FAULT_AFFECTED_OBJECT, "sys/rack-unit-1/board/cpu-1");
  put(record, FAULT_DN, "sys/rack-unit-1/board/cpu-1/fault");
  put(record, FAULT_RN, "fault");
  put(record, FAULT_DESCRIPTION, "The processor is too hot");
  put(record, FAULT_FIRST_TIME, 1'700'000'000);
  put(record, FAULT_LAST_TIME, 1'700'000'000);
  return record;
}

}  // namespace

extern "C" {

// In place of net-snmp's: what becomes of a notification is not the module's part.
void send_v3trap(netsnmp_variable_list *, const char *) {}

[[gnu::noinline]] void apply_counted(const void *record) {
  tavo::populate_fault_table_from_fe(record);
}
}

int main(int argc, char **argv) {
  const std::string_view kind = argc == 2 ? argv[1] : "";
  if (kind != "raise" && kind != "update" && kind != "clear") {
    std::fputs("usage: fault_record_bench raise|update|clear\n", stderr);
    return EXIT_FAILURE;
  }
  netsnmp_register_loghandler(NETSNMP_LOGHANDLER_NONE, LOG_DEBUG);  // lines are made, as ever, and nobody prints them
  tavo::fault_database = static_cast<tavo::EntityNode **>(std::calloc(1, sizeof(tavo::FaultBuckets)));
  tavo::needToSendTrapFlag = 1;
  for (std::uint32_t index = 1; index <= faults && kind != "raise"; ++index) {
    tavo::populate_fault_table_from_fe(record_of(index, 4).data());
  }
  for (std::uint32_t index = 1; index <= faults; ++index) {
    apply_counted(record_of(index, kind == "clear" ? 0 : 5).data());
  }
  std::printf("%u\n", faults);
  return EXIT_SUCCESS;
}
