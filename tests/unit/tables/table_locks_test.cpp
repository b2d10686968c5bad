// Which lock guards which table: the one that a walk holds, and no other.
#include <gmock/gmock.h>

#include <array>
#include <ostream>
#include <string>
#include <type_traits>
#include <vector>

#include "core/access_lock.h"
#include "tables/adaptors/tavoAdaptorUnitTable.h"
#include "tables/compute/tavoComputeBoardTable.h"
#include "tables/compute/tavoComputeMbPowerStatsTable.h"
#include "tables/compute/tavoComputeRackUnitMbTempStatsTable.h"
#include "tables/compute/tavoComputeRackUnitTable.h"
#include "tables/equipment/tavoEquipmentFanTable.h"
#include "tables/equipment/tavoEquipmentHealthLedTable.h"
#include "tables/equipment/tavoEquipmentPsuTable.h"
#include "tables/faults/tavoFaultTable.h"
#include "tables/memory/tavoMemoryUnitEnvStatsTable.h"
#include "tables/memory/tavoMemoryUnitTable.h"
#include "tables/processors/tavoProcessorEnvStatsTable.h"
#include "tables/processors/tavoProcessorUnitTable.h"
#include "tables/sd_cards/tavoStorageVeltroCardTable.h"
#include "tables/sd_cards/tavoStorageVeltroControllerTable.h"
#include "tables/sd_cards/tavoStorageVeltroDriveTable.h"
#include "tables/storage/tavoStorageControllerTable.h"
#include "tables/storage/tavoStorageLocalDiskTable.h"
#include "tables/storage/tavoStorageLocalLunTable.h"
#include "tables/storage/tavoStorageRaidBatteryTable.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/fixtures/sample_table.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// The locks that somebody holds, "ev 41" or "subagent 1", found out by a thread that holds none.
std::vector<std::string> busy_locks() {
  std::vector<std::string> busy;
  fakes::on_another_thread([&] {
    for (const int which : {1, 2}) {
      if (try_sa_lock(which) == 0) {
        release_sa_lock(which);
      } else {
        busy.push_back("subagent " + std::to_string(which));
      }
    }
    for (const int class_number : {1, 2, 3, 4, 5, 6, 9, 12, 30, 41, 56, 105}) {
      if (get_ev_try_lock(class_number) == 0) {
        release_ev_lock(class_number);
      } else {
        busy.push_back("ev " + std::to_string(class_number));
      }
    }
  });
  return busy;
}

struct ServedTable {
  const char *name;
  const char *lock;
  Netsnmp_First_Data_Point *first_row;
  Netsnmp_Next_Data_Point *next_row;
  void (*list_two_rows)();
  void (*list_none)();
};

void PrintTo(const ServedTable &table, std::ostream *out) {
  *out << table.name;
}

// `head`: the table's list head. The rows are not the table's to free.
template <auto &head>
void list_two_rows() {
  static std::remove_pointer_t<std::remove_reference_t<decltype(head)>> rows[2] = {};
  rows[0].index = 2;
  rows[0].next = &rows[1];
  rows[1].index = 1;
  head = &rows[0];
}

template <auto &head>
void list_none() {
  head = nullptr;
}

template <auto &head>
constexpr ServedTable served(const char *name, const char *lock, Netsnmp_First_Data_Point *first_row,
                             Netsnmp_Next_Data_Point *next_row) {
  return {name, lock, first_row, next_row, list_two_rows<head>, list_none<head>};
}

// clang-format off
const auto tables = std::to_array<ServedTable>({
    served<tavoMemoryUnitEnvStatsTable_head>(
        "tavoMemoryUnitEnvStatsTable", "ev 1",
        tavoMemoryUnitEnvStatsTable_get_first_data_point, tavoMemoryUnitEnvStatsTable_get_next_data_point),
    served<tavoProcessorEnvStatsTable_head>(
        "tavoProcessorEnvStatsTable", "ev 2",
        tavoProcessorEnvStatsTable_get_first_data_point, tavoProcessorEnvStatsTable_get_next_data_point),
    served<tavoAdaptorUnitTable_head>(
        "tavoAdaptorUnitTable", "ev 3",
        tavoAdaptorUnitTable_get_first_data_point, tavoAdaptorUnitTable_get_next_data_point),
    served<tavoComputeMbPowerStatsTable_head>(
        "tavoComputeMbPowerStatsTable", "ev 4",
        tavoComputeMbPowerStatsTable_get_first_data_point, tavoComputeMbPowerStatsTable_get_next_data_point),
    served<tavoComputeRackUnitMbTempStatsTable_head>(
        "tavoComputeRackUnitMbTempStatsTable", "ev 5",
        tavoComputeRackUnitMbTempStatsTable_get_first_data_point, tavoComputeRackUnitMbTempStatsTable_get_next_data_point),
    served<tavoComputeBoardTable_head>(
        "tavoComputeBoardTable", "ev 6",
        tavoComputeBoardTable_get_first_data_point, tavoComputeBoardTable_get_next_data_point),
    served<tavoComputeRackUnitTable_head>(
        "tavoComputeRackUnitTable", "ev 9",
        tavoComputeRackUnitTable_get_first_data_point, tavoComputeRackUnitTable_get_next_data_point),
    served<tavoEquipmentFanTable_head>(
        "tavoEquipmentFanTable", "ev 12",
        tavoEquipmentFanTable_get_first_data_point, tavoEquipmentFanTable_get_next_data_point),
    served<tavoMemoryUnitTable_head>(
        "tavoMemoryUnitTable", "ev 30",
        tavoMemoryUnitTable_get_first_data_point, tavoMemoryUnitTable_get_next_data_point),
    served<tavoProcessorUnitTable_head>(
        "tavoProcessorUnitTable", "ev 41",
        tavoProcessorUnitTable_get_first_data_point, tavoProcessorUnitTable_get_next_data_point),
    served<tavoEquipmentPsuTable_head>(
        "tavoEquipmentPsuTable", "ev 56",
        tavoEquipmentPsuTable_get_first_data_point, tavoEquipmentPsuTable_get_next_data_point),
    served<tavoEquipmentHealthLedTable_head>(
        "tavoEquipmentHealthLedTable", "ev 105",
        tavoEquipmentHealthLedTable_get_first_data_point, tavoEquipmentHealthLedTable_get_next_data_point),
    served<tavoFaultTable_head>(
        "tavoFaultTable", "subagent 1",
        tavoFaultTable_get_first_data_point, tavoFaultTable_get_next_data_point),
    served<tavoStorageControllerTable_head>(
        "tavoStorageControllerTable", "subagent 2",
        tavoStorageControllerTable_get_first_data_point, tavoStorageControllerTable_get_next_data_point),
    served<tavoStorageLocalDiskTable_head>(
        "tavoStorageLocalDiskTable", "subagent 2",
        tavoStorageLocalDiskTable_get_first_data_point, tavoStorageLocalDiskTable_get_next_data_point),
    served<tavoStorageLocalLunTable_head>(
        "tavoStorageLocalLunTable", "subagent 2",
        tavoStorageLocalLunTable_get_first_data_point, tavoStorageLocalLunTable_get_next_data_point),
    served<tavoStorageRaidBatteryTable_head>(
        "tavoStorageRaidBatteryTable", "subagent 2",
        tavoStorageRaidBatteryTable_get_first_data_point, tavoStorageRaidBatteryTable_get_next_data_point),
    served<tavoStorageVeltroControllerTable_head>(
        "tavoStorageVeltroControllerTable", "subagent 2",
        tavoStorageVeltroControllerTable_get_first_data_point, tavoStorageVeltroControllerTable_get_next_data_point),
    served<tavoStorageVeltroCardTable_head>(
        "tavoStorageVeltroCardTable", "subagent 2",
        tavoStorageVeltroCardTable_get_first_data_point, tavoStorageVeltroCardTable_get_next_data_point),
    served<tavoStorageVeltroDriveTable_head>(
        "tavoStorageVeltroDriveTable", "subagent 2",
        tavoStorageVeltroDriveTable_get_first_data_point, tavoStorageVeltroDriveTable_get_next_data_point),
});
// clang-format on

class TableLocksTest : public fakes::ModuleTest, public testing::WithParamInterface<ServedTable> {
 protected:
  TableLocksTest() { index_.type = ASN_UNSIGNED; }
  ~TableLocksTest() override {
    GetParam().list_none();
    snmp_free_var_internals(&index_);
  }

  netsnmp_variable_list *first_row() { return GetParam().first_row(&loop_, &row_, &index_, nullptr); }
  netsnmp_variable_list *next_row() { return GetParam().next_row(&loop_, &row_, &index_, nullptr); }

 private:
  void *loop_ = nullptr;
  void *row_ = nullptr;
  netsnmp_variable_list index_ = {};
};

INSTANTIATE_TEST_SUITE_P(EveryTable, TableLocksTest, testing::ValuesIn(tables),
                         [](const auto &test) { return std::string(test.param.name); });

TEST_P(TableLocksTest, AWalkHoldsTheTablesOwnLockAndNoOther) {
  GetParam().list_two_rows();
  EXPECT_THAT(busy_locks(), IsEmpty());
  EXPECT_NE(first_row(), nullptr);
  EXPECT_THAT(busy_locks(), ElementsAre(GetParam().lock));
  EXPECT_NE(next_row(), nullptr);
  EXPECT_THAT(busy_locks(), ElementsAre(GetParam().lock));
  EXPECT_EQ(next_row(), nullptr);
  EXPECT_THAT(busy_locks(), IsEmpty());
}

}  // namespace
}  // namespace tavo
