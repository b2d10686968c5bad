// Which lock guards which table: the one that a walk holds, and no other.
#include <gmock/gmock.h>

#include <map>
#include <string>
#include <string_view>

#include "tests/fixtures/every_table.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/fixtures/module_locks.h"
#include "tests/fixtures/whole_server.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

using fakes::busy_locks;
using fakes::TableCase;
using testing::ElementsAre;
using testing::IsEmpty;

// Of the tables whose lock C callers take by its number.
const std::map<std::string_view, std::string> known_locks = {
    {"tavoMemoryUnitEnvStatsTable", "ev lock 1"},
    {"tavoProcessorEnvStatsTable", "ev lock 2"},
    {"tavoAdaptorUnitTable", "ev lock 3"},
    {"tavoComputeMbPowerStatsTable", "ev lock 4"},
    {"tavoComputeRackUnitMbTempStatsTable", "ev lock 5"},
    {"tavoComputeBoardTable", "ev lock 6"},
    {"tavoComputeRackUnitTable", "ev lock 9"},
    {"tavoEquipmentFanTable", "ev lock 12"},
    {"tavoMemoryUnitTable", "ev lock 30"},
    {"tavoProcessorUnitTable", "ev lock 41"},
    {"tavoEquipmentPsuTable", "ev lock 56"},
    {"tavoEquipmentHealthLedTable", "ev lock 105"},
    {"tavoFaultTable", "subagent lock 1"},
    {"tavoStorageControllerTable", "subagent lock 2"},
    {"tavoStorageLocalDiskTable", "subagent lock 2"},
    {"tavoStorageLocalLunTable", "subagent lock 2"},
    {"tavoStorageRaidBatteryTable", "subagent lock 2"},
    {"tavoStorageVeltroControllerTable", "subagent lock 2"},
    {"tavoStorageVeltroCardTable", "subagent lock 2"},
    {"tavoStorageVeltroDriveTable", "subagent lock 2"},
};

class TableLocksTest : public fakes::ModuleTest, public testing::WithParamInterface<TableCase> {
 protected:
  TableLocksTest() {
    index_.type = ASN_UNSIGNED;
    testing::internal::CaptureStdout();  // some builders print
  }
  ~TableLocksTest() override {
    testing::internal::GetCapturedStdout();
    snmp_free_var_internals(&index_);
  }

  netsnmp_variable_list *first_row() { return entry_points_.first_row(&loop_, &row_, &index_, nullptr); }
  netsnmp_variable_list *next_row() { return entry_points_.next_row(&loop_, &row_, &index_, nullptr); }

  fakes::WholeServer server_;

 private:
  const TableEntryPoints &entry_points_ = GetParam().table->entry_points();
  void *loop_ = nullptr;
  void *row_ = nullptr;
  netsnmp_variable_list index_ = {};
};

INSTANTIATE_TEST_SUITE_P(EveryTable, TableLocksTest, testing::ValuesIn(fakes::every_table()),
                         fakes::table_name<testing::TestParamInfo<TableCase>>);

TEST_P(TableLocksTest, AWalkHoldsTheTablesOwnLockAndNoOther) {
  GetParam().build(0);
  GetParam().build(0);
  const auto known = known_locks.find(GetParam().name);
  const std::string own = known == known_locks.end() ? fakes::lock_name(GetParam().table->lock()) : known->second;
  ASSERT_FALSE(GetParam().rows().empty()) << "does WholeServer have what the table is built from?";
  std::size_t following = GetParam().rows().size() - 1;
  EXPECT_THAT(busy_locks(), IsEmpty());
  EXPECT_NE(first_row(), nullptr);
  EXPECT_THAT(busy_locks(), ElementsAre(own));
  for (; following > 0; --following) {
    EXPECT_NE(next_row(), nullptr);
    EXPECT_THAT(busy_locks(), ElementsAre(own));
  }
  EXPECT_EQ(next_row(), nullptr);
  EXPECT_THAT(busy_locks(), IsEmpty());
}

}  // namespace
}  // namespace tavo
