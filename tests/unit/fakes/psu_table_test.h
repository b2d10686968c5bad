// The fixture of the power supply table's tests: an empty table, and no supply.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "tables/tavoEquipmentPsuTable.h"
#include "tests/unit/fakes/clock.h"
#include "tests/unit/fakes/files.h"
#include "tests/unit/fakes/fru.h"
#include "tests/unit/fakes/module_test.h"
#include "tests/unit/fakes/shell.h"

namespace fakes {

class EquipmentPsuTableTest : public ModuleTest {
 protected:
  using Row = tavo::EquipmentPsuRow;

  static constexpr char count_path[] = "/var/pmbus/num_psu";
  static constexpr int psu_type = 10;
  static inline const std::string good = std::string(2, '\0');  // a status

  ~EquipmentPsuTableTest() override { tavoEquipmentPsuTable_removeAllEntries(); }

  static std::string word(std::int32_t number) {
    std::string octets(sizeof number, '\0');
    std::memcpy(octets.data(), &number, sizeof number);
    return octets;
  }

  static std::string padded(std::string text, std::size_t size) {
    text.resize(size, '\0');
    return text;
  }

  // The rows that stand, in the order in which they were made.
  static std::vector<Row> rows() {
    std::vector<Row> found;
    for (const Row *row = tavoEquipmentPsuTable_head; row != nullptr; row = row->next) {
      found.insert(found.begin(), *row);
    }
    return found;
  }

  void count(std::int32_t supplies) { files.write(count_path, word(supplies)); }

  // A file of the supply that the daemon counts from 0.
  void file(int number, const std::string &name, std::string_view content) {
    files.write("/var/pmbus/ps" + std::to_string(number) + "/" + name, content);
  }

  void supply(int number, std::string_view status = good) {
    file(number, "status", status);
    file(number, "pin", "\x12\x34");
    file(number, "poutmax", "\x56\x78");
    file(number, "rev", "01.02.03");
    file(number, "model", padded("TPS-770W", 32));
    set_product_serial(psu_type, number + 1, "S000" + std::to_string(number + 1));
  }

  // A rebuild, and what it wrote to standard output.
  std::string rebuild(int expected) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(initialize_psu_table(1), expected);
    return testing::internal::GetCapturedStdout();
  }

  std::vector<Row> rebuilt(int expected = 1) {
    rebuild(expected);
    return rows();
  }

  // What is kept of the supply that the daemon counts from 0.
  static std::string kept(int number, std::size_t offset, std::size_t size) {
    return {reinterpret_cast<const char *>(m_pwrsupply[number]) + offset, size};
  }

  FakeClock clock;
  FakeFiles files;
  FakeShell shell;
};

}  // namespace fakes
