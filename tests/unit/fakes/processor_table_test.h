// The fixture of the processor table's tests: an empty table, and no processor.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <array>
#include <cstdint>
#include <vector>

#include "core/access_lock.h"
#include "platform/inventory.h"
#include "tables/tavoProcessorUnitTable.h"
#include "tests/unit/fakes/inventory.h"
#include "tests/unit/fakes/manager.h"
#include "tests/unit/fakes/module_test.h"
#include "tests/unit/fakes/sample_table.h"

namespace fakes {

class ProcessorUnitTableTest : public ModuleTest {
 protected:
  static constexpr std::array<oid, 12> table = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 41, 9};

  ~ProcessorUnitTableTest() override {
    tavoProcessorUnitTable_removeAllEntries();
    de_register_Processor_table_handler();
  }

  // The rows' indexes in list order.
  static std::vector<std::uint32_t> listed_indexes() {
    std::vector<std::uint32_t> indexes;
    for (const auto *row = tavoProcessorUnitTable_head; row != nullptr; row = row->next) {
      indexes.push_back(row->index);
    }
    return indexes;
  }

  static Value get(oid column, oid index) { return fakes::get({cell(table, column, index)}).answers.at(0).value; }

  static bool is_locked() {
    bool locked = false;
    on_another_thread([&] {
      locked = get_ev_try_lock(41) != 0;
      if (!locked) {
        release_ev_lock(41);
      }
    });
    return locked;
  }
};

inline ProcessorRecord xeon() {
  return ProcessorRecord()
      .text(PROCESSOR_SOCKET, "CPU1")
      .text(PROCESSOR_VENDOR, "Tavo Semiconductor")
      .text(PROCESSOR_ARCHITECTURE, "Xeon")
      .number(PROCESSOR_THREADS, 16)
      .text(PROCESSOR_SERIAL, "T0001")
      .text(PROCESSOR_MODEL, "Model 8")
      .number(PROCESSOR_SPEED, 2600)
      .number(PROCESSOR_CORES, 8)
      .text(PROCESSOR_STATUS, "Enabled");
}

}  // namespace fakes
