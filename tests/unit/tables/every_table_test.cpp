// What holds for every table: the machine that they share, and the rules that their builders follow.
#include <gmock/gmock.h>

#include <cerrno>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "sources/stor_info.h"
#include "sources/velt_info.h"
#include "tests/fakes/allocation.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fakes/storage_client.h"
#include "tests/fixtures/every_table.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/fixtures/module_locks.h"
#include "tests/fixtures/whole_server.h"
#include "tests/harness/manager.h"

namespace tavo {
namespace {

using fakes::TableCase;
using fakes::TableRow;
using testing::Each;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

class EveryTableTest : public fakes::ModuleTest, public testing::WithParamInterface<TableCase> {
 protected:
  // Some builders print.
  EveryTableTest() { testing::internal::CaptureStdout(); }
  ~EveryTableTest() override { testing::internal::GetCapturedStdout(); }

  static int start() { return GetParam().table->entry_points().init(); }
  static std::span<const oid> root() { return GetParam().table->description().root; }
  static oid last_column() { return first_column + GetParam().table->description().columns.size() - 1; }
  static std::vector<TableRow> rows() { return GetParam().rows(); }
  // Throws when there is none, which fails the test and ends it.
  static std::vector<TableRow> some_rows() {
    if (rows().empty()) {
      throw std::runtime_error("no row: does WholeServer have what the table is built from?");
    }
    return rows();
  }
  static void remove_all_rows() {
    const ListGuard guard(GetParam().table->lock());
    GetParam().table->remove_all();
  }

  // Starts the table with at least one row.
  static void serve() {
    EXPECT_EQ(start(), GetParam().built);
    if (rows().empty()) {  // the fault table
      GetParam().build(1);
    }
    some_rows();
  }

  static fakes::Value read(oid column, oid index) {
    return fakes::get({fakes::cell(root(), column, index)}).answers.at(0).value;
  }

  fakes::WholeServer server_;
};

INSTANTIATE_TEST_SUITE_P(Tables, EveryTableTest, testing::ValuesIn(fakes::every_table()),
                         fakes::table_name<testing::TestParamInfo<TableCase>>);

TEST_P(EveryTableTest, ColumnsOutOfItsRangeAreNoSuchObject) {
  serve();
  const oid index = rows().front().index;
  EXPECT_EQ(read(1, index), fakes::no_such_object);
  EXPECT_EQ(read(last_column() + 1, index), fakes::no_such_object);
  EXPECT_NE(read(2, index), fakes::no_such_object);
  EXPECT_NE(read(last_column(), index), fakes::no_such_object);
}

TEST_P(EveryTableTest, AMissingRowIsNoSuchInstance) {
  serve();
  EXPECT_EQ(read(2, 4'000'000), fakes::no_such_instance);
}

TEST_P(EveryTableTest, AnEmptyTableIsServed) {
  serve();
  remove_all_rows();
  EXPECT_THAT(rows(), IsEmpty());
  EXPECT_THAT(fakes::walk(root()), IsEmpty());
  EXPECT_EQ(read(2, 1), fakes::no_such_instance);
}

TEST_P(EveryTableTest, ARowIsRemovedByItsAddress) {
  for (int build = 0; build < 3; ++build) {
    GetParam().build(0);
  }
  std::vector<TableRow> remaining = some_rows();
  const auto middle = remaining.begin() + std::ssize(remaining) / 2;
  EXPECT_EQ(GetParam().remove(middle->address), 0);
  remaining.erase(middle);
  EXPECT_EQ(rows(), remaining);
  EXPECT_EQ(GetParam().table->lock().hold_count(), 0);
}

TEST_P(EveryTableTest, NoRowAndAnUnlistedRowAreLeftAlone) {
  GetParam().build(0);
  const std::vector<TableRow> standing = some_rows();
  std::uint32_t stranger = standing.front().index;
  EXPECT_EQ(GetParam().remove(nullptr), 0);
  EXPECT_EQ(GetParam().remove(&stranger), 0);
  EXPECT_EQ(rows(), standing);
}

TEST_P(EveryTableTest, RemovingGivesTheLocksError) {
  GetParam().build(0);
  const std::vector<TableRow> standing = some_rows();
  fakes::fail_next_call_with(GetParam().table->lock(), EINVAL);
  EXPECT_EQ(GetParam().remove(standing.front().address), EINVAL);
  EXPECT_EQ(rows(), standing);
}

TEST_P(EveryTableTest, EntryPointsAreTracedByTablesThatTrace) {
  const std::string name(GetParam().name);
  fakes::set_debugging(true);
  start();
  const std::size_t created = rows().size();
  GetParam().remove(nullptr);
  remove_all_rows();
  fakes::set_debugging(false);
  std::vector<std::string> functions;
  for (const fakes::Trace &trace : fakes::traces()) {
    if (trace.source != "access_lock") {
      EXPECT_EQ(trace.source, name);
      functions.push_back(trace.function);
    }
  }
  std::vector<std::string> expected;
  if (GetParam().traces) {
    expected.push_back("initialize_table_" + name);
    expected.insert(expected.end(), created, name + "_createEntry");
    if (GetParam().remove_row != nullptr) {
      expected.push_back(name + "_removeEntry");
    }
  }
  EXPECT_EQ(functions, expected);
}

TEST_P(EveryTableTest, TracesGiveTheFunctionsName) {
  fakes::set_debugging(true);
  start();
  GetParam().build(0);
  GetParam().remove(nullptr);
  fakes::set_debugging(false);
  for (const fakes::Trace &trace : fakes::traces()) {
    // The health LEDs' registration has a text and a token of its own.
    if (trace.source == GetParam().name && trace.function != "initialize_table_tavoEquipmentHealthLedTable") {
      EXPECT_EQ(trace.text, trace.function + "\n");
    }
  }
}

TEST_P(EveryTableTest, ABuildLeavesItsLockFree) {
  ListLock &lock = GetParam().table->lock();
  EXPECT_EQ(GetParam().build(1), GetParam().built);
  EXPECT_EQ(lock.hold_count(), 0);
  fakes::fail_allocations(0);
  GetParam().build(1);
  EXPECT_EQ(lock.hold_count(), 0);
}

TEST_P(EveryTableTest, StartAndBuildLogNothing) {
  if (GetParam().table->description().build == nullptr) {  // each fault is logged
    start();
  } else {
    serve();
    GetParam().build(1);
  }
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

class ReloadedTableTest : public EveryTableTest {};

INSTANTIATE_TEST_SUITE_P(Tables, ReloadedTableTest,
                         testing::ValuesIn(fakes::tables_that([](const TableCase &table) { return table.reloads; })),
                         fakes::table_name<testing::TestParamInfo<TableCase>>);

TEST_P(ReloadedTableTest, OnlyModeOneRemovesTheRowsThatStand) {
  EXPECT_EQ(GetParam().build(0), GetParam().built);
  const std::size_t once = rows().size();
  ASSERT_GT(once, 0U);
  for (const int mode : {0, 2, -1}) {
    const std::vector<TableRow> standing = some_rows();
    EXPECT_EQ(GetParam().build(mode), GetParam().built) << mode;
    if (GetParam().one_row) {
      EXPECT_THAT(rows(), SizeIs(1)) << mode;
    } else {
      std::vector<TableRow> now = rows();
      ASSERT_EQ(now.size(), once + standing.size()) << mode;
      now.erase(now.begin(), now.begin() + static_cast<std::ptrdiff_t>(once));
      EXPECT_EQ(now, standing) << "new rows stand in front, in mode " << mode;
    }
  }
  EXPECT_EQ(GetParam().build(1), GetParam().built);
  EXPECT_THAT(rows(), SizeIs(once));
}

TEST_P(ReloadedTableTest, WithoutMemoryOnlyModeOneRemovesTheRows) {
  GetParam().build(0);
  const std::vector<TableRow> standing = some_rows();
  for (const int mode : {0, 2}) {
    fakes::fail_allocations(0);
    EXPECT_EQ(GetParam().build(mode), GetParam().without_memory) << mode;
    EXPECT_GT(fakes::failed_allocations(), 0);
    EXPECT_EQ(rows(), standing) << mode;
  }
  EXPECT_EQ(GetParam().build(1), GetParam().without_memory);
  EXPECT_THAT(rows(), IsEmpty());
  EXPECT_THAT(fakes::log_texts(), Each(StartsWith("SNMP:Failed "))) << "only values that could not be read";
  fakes::reset_allocations();
  EXPECT_EQ(GetParam().build(1), GetParam().built);
  EXPECT_THAT(rows(), Not(IsEmpty()));
}

class TableWithItsOwnLockTest : public EveryTableTest {};

INSTANTIATE_TEST_SUITE_P(Tables, TableWithItsOwnLockTest,
                         testing::ValuesIn(fakes::tables_that([](const TableCase &table) {
                           return table.without_lock.has_value();
                         })),
                         fakes::table_name<testing::TestParamInfo<TableCase>>);

TEST_P(TableWithItsOwnLockTest, WithoutItsLockNothingIsDone) {
  GetParam().build(0);
  const std::vector<TableRow> standing = some_rows();
  const std::size_t asked = server_.questions();
  for (const int mode : {0, 1}) {
    fakes::fail_next_call_with(GetParam().table->lock(), EINVAL);
    EXPECT_EQ(GetParam().build(mode), GetParam().without_lock) << mode;
    EXPECT_EQ(rows(), standing) << mode;
  }
  EXPECT_EQ(server_.questions() - asked, GetParam().asks_unlocked ? 2U : 0U);
}

class DeRegisteredTableTest : public EveryTableTest {};

INSTANTIATE_TEST_SUITE_P(Tables, DeRegisteredTableTest,
                         testing::ValuesIn(fakes::tables_that([](const TableCase &table) {
                           return table.de_register != nullptr;
                         })),
                         fakes::table_name<testing::TestParamInfo<TableCase>>);

TEST_P(DeRegisteredTableTest, IsNoLongerServed) {
  serve();
  EXPECT_THAT(fakes::walk(root()), SizeIs((last_column() - 1) * rows().size()));
  EXPECT_EQ(GetParam().de_register(), 0);
  EXPECT_THAT(fakes::walk(root()), IsEmpty());
  EXPECT_EQ(read(2, rows().front().index), fakes::no_such_object);
  EXPECT_EQ(GetParam().de_register(), 0);
}

TEST_P(DeRegisteredTableTest, GivesTheErrorsOfItsLock) {
  serve();
  const oid index = rows().front().index;
  fakes::fail_next_call_with(GetParam().table->lock(), EINVAL);
  EXPECT_EQ(GetParam().de_register(), EINVAL);
  EXPECT_NE(read(2, index), fakes::no_such_object);
  fakes::fail_next_call_with(GetParam().table->lock(), EPERM, 1);
  EXPECT_EQ(GetParam().de_register(), EPERM);
  EXPECT_EQ(GetParam().table->lock().release(), 0) << "it has not been released";
  EXPECT_EQ(read(2, index), fakes::no_such_object);
}

class SharedSourceTest : public EveryTableTest {
 protected:
  // A build's result without the source: only the snapshot is missed.
  static int without_source() {
    return GetParam().table->description().source == TableSource::StorageSnapshot ? -1 : GetParam().built;
  }

  static void take_sources_away() {
    free_stor_info(head_stor_ptr);
    fakes::reset_storage_client();
    populate_velt();
  }
};

INSTANTIATE_TEST_SUITE_P(Tables, SharedSourceTest, testing::ValuesIn(fakes::tables_that([](const TableCase &table) {
                           return table.table->description().source != TableSource::Own;
                         })),
                         fakes::table_name<testing::TestParamInfo<TableCase>>);

TEST_P(SharedSourceTest, ATableThatStartsWithoutItMissesTheSnapshotOnly) {
  take_sources_away();
  EXPECT_EQ(start(), without_source());
}

TEST_P(SharedSourceTest, ARebuildWithoutTheSnapshotOnlyRemoves) {
  GetParam().build(0);
  const std::vector<TableRow> standing = some_rows();
  free_stor_info(head_stor_ptr);
  EXPECT_EQ(GetParam().build(0), without_source());
  if (without_source() == -1) {
    EXPECT_EQ(rows(), standing);
  }
  EXPECT_EQ(GetParam().build(1), without_source());
  EXPECT_EQ(rows().empty(), without_source() == -1);
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

}  // namespace
}  // namespace tavo
