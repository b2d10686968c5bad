// What a processor's row takes from the fields of its record.
#include "tables/processors/tavoProcessorUnitTable.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/inventory.h"
#include "tests/fakes/inventory.h"
#include "tests/fixtures/processor_table_fixture.h"

namespace tavo {
namespace {

using fakes::ProcessorUnitTableTest;
using fakes::xeon;
using testing::ElementsAre;

const ProcessorUnitRow &built_from(const fakes::ProcessorRecord &record) {
  fakes::set_processors({record});
  EXPECT_EQ(initialize_processor_table(1), 0);
  return *tavoProcessorUnitTable_head;
}

TEST_F(ProcessorUnitTableTest, TheArchitectureIsComparedExactly) {
  const std::vector<std::pair<std::string_view, int>> architectures = {
      {"Xeon", 179},   {"Pentium_4", 178}, {"", 0},        {"Xeon ", 0},
      {" Xeon", 0},    {"xeon", 0},        {"Xeo", 0},     {"Xeonx", 0},
      {"Pentium_", 0}, {"Pentium_4 ", 0},  {"Pentium", 0}, {std::string_view("Xeon\0x", 6), 179},
      {"Opteron", 0}};
  for (const auto &[architecture, arch] : architectures) {
    EXPECT_EQ(built_from(fakes::ProcessorRecord().text(PROCESSOR_ARCHITECTURE, architecture)).arch, arch)
        << architecture;
  }
}

TEST_F(ProcessorUnitTableTest, TheStatusIsComparedExactly) {
  for (const std::string_view status : {"", "Enabled ", "enabled", "Enable", "Enabledx", "Disabled"}) {
    const auto &row = built_from(fakes::ProcessorRecord().text(PROCESSOR_STATUS, status));
    EXPECT_THAT(std::to_array({row.oper_state, row.operability, row.power, row.perf, row.presence}),
                ElementsAre(2, 2, 0, 0, 11))
        << status;
  }
  const auto &row = built_from(fakes::ProcessorRecord().text(PROCESSOR_STATUS, "Enabled"));
  EXPECT_THAT(std::to_array({row.oper_state, row.operability, row.power, row.perf, row.presence}),
              ElementsAre(1, 1, 1, 0, 10));
}

TEST_F(ProcessorUnitTableTest, IntegersStandAtTheirOffsetsInLittleEndianOrder) {
  const auto &row = built_from(
      fakes::ProcessorRecord().number(172, 0x01020304).number(304, -5).number(308, static_cast<int>(0x80000001)));
  EXPECT_EQ(row.threads, 0x01020304U);
  EXPECT_EQ(row.speed, -5);
  EXPECT_EQ(row.cores, 0x80000001U);
  EXPECT_EQ(row.cores_enabled, 0x80000001U);
}

TEST_F(ProcessorUnitTableTest, TextsWithoutANulEndWithTheirFields) {
  fakes::ProcessorRecord record;
  record.octets.fill(std::byte{'x'});
  const auto &row = built_from(record);
  const std::string longest(63, 'x');
  EXPECT_EQ(row.socket, longest);
  EXPECT_EQ(row.vendor, longest);
  EXPECT_EQ(row.serial, longest);
  EXPECT_EQ(row.model, longest);
  EXPECT_EQ(row.arch, 0);
  EXPECT_EQ(row.presence, 11);
}

TEST_F(ProcessorUnitTableTest, EachTextStandsAtItsOffsetAndInItsFieldAlone) {
  const std::string whole(64, 'w');
  struct TextField {
    std::size_t offset;
    char (ProcessorUnitRow::*field)[64];
  };
  for (const auto &[offset, field] :
       {TextField{0, &ProcessorUnitRow::socket}, TextField{64, &ProcessorUnitRow::vendor},
        TextField{176, &ProcessorUnitRow::serial}, TextField{240, &ProcessorUnitRow::model}}) {
    const auto &row = built_from(fakes::ProcessorRecord().text(offset, whole));
    for (auto other :
         {&ProcessorUnitRow::socket, &ProcessorUnitRow::vendor, &ProcessorUnitRow::serial, &ProcessorUnitRow::model}) {
      EXPECT_EQ(row.*other, other == field ? whole.substr(1) : "") << offset;
    }
  }
}

TEST_F(ProcessorUnitTableTest, ATextThatFillsItsFieldIsNotReadBeyondIt) {
  // The architecture's field ends where the thread count begins; the status is the record's last field.
  fakes::ProcessorRecord record;
  std::ranges::fill(record.octets.begin() + 128, record.octets.begin() + 176, std::byte{'a'});
  std::ranges::fill(record.octets.begin() + 316, record.octets.end(), std::byte{'s'});
  fakes::set_processors({record, xeon()});
  EXPECT_EQ(initialize_processor_table(1), 0);
  EXPECT_EQ(tavoProcessorUnitTable_head->next->arch, 0);
  EXPECT_EQ(tavoProcessorUnitTable_head->next->presence, 11);
  EXPECT_EQ(tavoProcessorUnitTable_head->arch, 179);
}

}  // namespace
}  // namespace tavo
