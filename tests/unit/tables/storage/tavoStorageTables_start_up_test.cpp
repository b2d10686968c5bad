// How the seven storage tables start: registration, first rows, result.
#include <gmock/gmock.h>

#include <array>
#include <ostream>
#include <string>
#include <vector>

#include "sources/velt_info.h"
#include "tables/sd_cards/tavoStorageVeltroCardTable.h"
#include "tables/sd_cards/tavoStorageVeltroControllerTable.h"
#include "tables/sd_cards/tavoStorageVeltroDriveTable.h"
#include "tables/storage/tavoStorageControllerTable.h"
#include "tables/storage/tavoStorageLocalDiskTable.h"
#include "tables/storage/tavoStorageLocalLunTable.h"
#include "tables/storage/tavoStorageRaidBatteryTable.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fakes/storage_client.h"
#include "tests/fixtures/storage_tables_fixture.h"
#include "threads/velt_event_thread.h"

namespace tavo {
namespace {

using testing::ElementsAre;

struct StorageTable {
  std::string name;
  int (*start)();
  int without_a_source;  // what `start` gives when there is no snapshot, or no SD card
};

void PrintTo(const StorageTable &table, std::ostream *out) {
  *out << table.name;
}

const auto storage_tables = std::to_array<StorageTable>({
    {.name = "tavoStorageControllerTable", .start = init_tavoStorageControllerTable, .without_a_source = -1},
    {.name = "tavoStorageLocalDiskTable", .start = init_tavoStorageLocalDiskTable, .without_a_source = -1},
    {.name = "tavoStorageLocalLunTable", .start = init_tavoStorageLocalLunTable, .without_a_source = -1},
    {.name = "tavoStorageRaidBatteryTable", .start = init_tavoStorageRaidBatteryTable, .without_a_source = -1},
    {.name = "tavoStorageVeltroCardTable", .start = init_tavoStorageVeltroCardTable, .without_a_source = 1},
    {.name = "tavoStorageVeltroControllerTable", .start = init_tavoStorageVeltroControllerTable, .without_a_source = 1},
    {.name = "tavoStorageVeltroDriveTable", .start = init_tavoStorageVeltroDriveTable, .without_a_source = 1},
});

class StorageTablesStartUpTest : public fakes::StorageTableTest, public testing::WithParamInterface<StorageTable> {
 protected:
  ~StorageTablesStartUpTest() override {
    free_stor_info(head_stor_ptr);
    fakes::reset_storage_client();
    reinit_velt_table(1);
    testing::internal::GetCapturedStdout();
  }

  // One row for each of the tables.
  void load_one_of_each() {
    set_slot_count("1");
    load({fakes::controller("A", {fakes::drive_in(1)}, {fakes::StorVolume().number(STOR_VOLUME_STATE, 4)})
              .number(STOR_BATTERY_PRESENT, 1)});
    fakes::set_velt_cards({fakes::VeltCard().number(VELT_CARD_SLOT, 1)});
    fakes::set_velt_partitions({fakes::VeltPartition().number(VELT_PARTITION_NUMBER, 1)});
    populate_velt();
  }

  // What the SD-card tables' builders print stays off the test's output.
  StorageTablesStartUpTest() { testing::internal::CaptureStdout(); }
};

TEST_P(StorageTablesStartUpTest, RegistrationAndEveryNewRowAreTracedUnderTheTablesName) {
  load_one_of_each();
  fakes::set_debugging(true);
  EXPECT_EQ(GetParam().start(), 1);
  std::vector<std::string> functions;
  for (const fakes::Trace &trace : fakes::traces()) {
    functions.push_back(trace.function);
    EXPECT_EQ(trace.source, GetParam().name);
    EXPECT_EQ(trace.text, trace.function + "\n");
  }
  EXPECT_THAT(functions, ElementsAre("initialize_table_" + GetParam().name, GetParam().name + "_createEntry"));
}

TEST_P(StorageTablesStartUpTest, OnlyATableOfTheSnapshotMissesItsSource) {
  populate_velt();
  EXPECT_EQ(GetParam().start(), GetParam().without_a_source);
}

INSTANTIATE_TEST_SUITE_P(Tables, StorageTablesStartUpTest, testing::ValuesIn(storage_tables),
                         [](const auto &table) { return table.param.name; });

}  // namespace
}  // namespace tavo
