// The fixture of the tables that the storage snapshot feeds.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "storage/stor_info.h"
#include "tables/stor_rebuild.h"
#include "tests/unit/fakes/files.h"
#include "tests/unit/fakes/module_test.h"
#include "tests/unit/fakes/shell.h"
#include "tests/unit/fakes/storage_snapshot.h"

namespace fakes {

// The length of a table's list.
template <class Row>
std::size_t rows(const Row *head) {
  std::size_t count = 0;
  for (; head != nullptr; head = head->next) {
    ++count;
  }
  return count;
}

class StorageTableTest : public ModuleTest {
 protected:
  // Four drive slots at first.
  StorageTableTest() { set_slot_count("4"); }
  ~StorageTableTest() override {
    files_.write("/var/stor_info_data", "");
    reinit_stor_table(1);
  }

  // The platform's query tool, asked for the number of drive slots, and what it says.
  static constexpr char slot_count_query[] =
      "/usr/local/bin/datactl get=platformSkuType | /usr/local/bin/flatkv > /var/getNumOfHDD";
  void set_slot_count(const std::string &count) {
    shell_.prints(slot_count_query, " name: rack\n hdd: " + count + "\n psu: 2\n");
  }

  void write_snapshot(const std::vector<StorRecord> &controllers) const {
    files_.write("/var/stor_info_data", snapshot(controllers));
  }

  // Writes the snapshot and rebuilds the tables from it.
  void rebuild(const std::vector<StorRecord> &controllers) const {
    write_snapshot(controllers);
    EXPECT_EQ(reinit_stor_table(1), 1);
  }

  // Loads the snapshot for a test that calls a builder itself.
  void load(const std::vector<StorRecord> &controllers) const {
    write_snapshot(controllers);
    ASSERT_EQ(get_stor_info(&head_stor_ptr), 1);
  }

  FakeFiles files_;
  FakeShell shell_;
};

}  // namespace fakes
