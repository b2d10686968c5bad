#include "tables/tavoProcessorUnitTable.h"

#include <gmock/gmock.h>

#include <array>

#include "tests/unit/fakes/golden.h"
#include "tests/unit/fakes/inventory.h"
#include "tests/unit/fakes/module_test.h"

namespace {

using fakes::gauge;
using fakes::integer;
using fakes::text;

constexpr std::array<oid, 12> table = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 41, 9};

class ProcessorUnitTableTest : public fakes::ModuleTest {
 protected:
  ~ProcessorUnitTableTest() override {
    tavoProcessorUnitTable_removeAllEntries();
    de_register_Processor_table_handler();
  }
};

fakes::ProcessorRecord xeon() {
  return fakes::ProcessorRecord()
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

TEST_F(ProcessorUnitTableTest, ServesEveryColumnOfEveryProcessor) {
  fakes::set_processors({xeon(), fakes::ProcessorRecord().text(PROCESSOR_ARCHITECTURE, "Pentium_4")});
  ASSERT_EQ(init_tavoProcessorUnitTable(), 0);

  fakes::expect_table(table, {
                                 {2, 1, text("sys/rack-unit-1/board/cpu-1")},
                                 {3, 1, text("cpu-1")},
                                 {4, 1, integer(179)},
                                 {5, 1, gauge(8)},
                                 {6, 1, gauge(8)},
                                 {7, 1, gauge(0)},
                                 {8, 1, text("Model 8")},
                                 {9, 1, integer(1)},
                                 {10, 1, integer(1)},
                                 {11, 1, integer(1)},
                                 {12, 1, integer(0)},
                                 {13, 1, integer(10)},
                                 {14, 1, text("unknown")},
                                 {15, 1, text("T0001")},
                                 {16, 1, text("CPU1")},
                                 {17, 1, integer(2600)},
                                 {18, 1, gauge(0)},
                                 {19, 1, integer(0)},
                                 {20, 1, gauge(16)},
                                 {21, 1, text("Tavo Semiconductor")},
                                 {22, 1, integer(0)},
                                 {2, 2, text("sys/rack-unit-1/board/cpu-2")},
                                 {3, 2, text("cpu-2")},
                                 {4, 2, integer(178)},
                                 {5, 2, gauge(0)},
                                 {6, 2, gauge(0)},
                                 {7, 2, gauge(1)},
                                 {8, 2, text("")},
                                 {9, 2, integer(2)},
                                 {10, 2, integer(2)},
                                 {11, 2, integer(0)},
                                 {12, 2, integer(0)},
                                 {13, 2, integer(11)},
                                 {14, 2, text("unknown")},
                                 {15, 2, text("")},
                                 {16, 2, text("")},
                                 {17, 2, integer(0)},
                                 {18, 2, gauge(0)},
                                 {19, 2, integer(0)},
                                 {20, 2, gauge(0)},
                                 {21, 2, text("")},
                                 {22, 2, integer(0)},
                             });
}

}  // namespace
