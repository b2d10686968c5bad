#include "tables/adaptors/tavoAdaptorUnitTable.h"

#include <gmock/gmock.h>

#include <array>
#include <climits>
#include <string>
#include <vector>

#include "core/access_lock.h"
#include "tests/fakes/allocation.h"
#include "tests/fakes/clock.h"
#include "tests/fakes/files.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fakes/shell.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/fixtures/rubbish.h"
#include "tests/harness/golden.h"
#include "tests/harness/own_process.h"

namespace tavo {
namespace {

using fakes::Cell;
using fakes::counter64;
using fakes::gauge;
using fakes::integer;
using fakes::text;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Row = AdaptorUnitRow;

constexpr std::array<oid, 12> table = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 3, 85};
constexpr char count_command[] = "slotutil -L  | grep \"slot-number\" | wc -l";
constexpr char dump_command[] = "datactl get=adapter | flatkv > /var/adapterInventory";

std::string firmware_command(int slot) {
  return "datactl get=adapterFW[" + std::to_string(slot) +
         "] | flatkv | grep -B 1 \"STARTUP, RUNNING\" | grep \"image-version\" | awk -F\": \" ' { print $2 } ' ";
}

std::string card(const std::string &slot, const std::string &overtemperature) {
  return " slot-number: " + slot + "\n product-id: CARD-" + slot + "\n i2cLogicalBus: bus-" + slot +
         "\n serial-number: SN" + slot + "\n overtemp-condition: " + overtemperature + "\n hw-part-no: PART-" + slot +
         "\n";
}

class AdaptorUnitTableTest : public fakes::ModuleTest {
 protected:
  void cards(int count, const std::string &dump) {
    shell.prints(count_command, std::to_string(count) + "\n");
    shell.prints(dump_command, dump);
  }

  fakes::FakeClock clock;
  fakes::FakeFiles files;
  fakes::FakeShell shell;
};

// Every cell of a card's row.
std::vector<Cell> cells(oid slot, const std::string &firmware, bool hot) {
  const std::string number = std::to_string(slot);
  return {{2, slot, text("sys/rack-unit-1/adaptor-" + number)},
          {3, slot, text("adaptor-" + number)},
          {4, slot, gauge(0)},
          {5, slot, gauge(0)},
          {6, slot, text("")},
          {7, slot, text("")},
          {8, slot, counter64(0)},
          {9, slot, gauge(static_cast<std::uint32_t>(slot))},
          {10, slot, integer(0)},
          {11, slot, text("CARD-" + number)},
          {12, slot, integer(hot ? 8 : 1)},
          {13, slot, integer(hot ? 8 : 1)},
          {14, slot, text("bus-" + number)},
          {15, slot, text(number)},
          {16, slot, integer(100)},
          {17, slot, integer(1)},
          {18, slot, integer(10)},
          {19, slot, text("")},
          {20, slot, text(firmware)},
          {21, slot, text("SN" + number)},
          {22, slot, integer(hot ? 3 : 0)},
          {23, slot, text("Tavolo Systems Inc")},
          {24, slot, integer(0)},
          {25, slot, integer(0)},
          {26, slot, text("PART-" + number)}};
}

TEST_F(AdaptorUnitTableTest, ServesEveryColumnOfEveryCard) {
  cards(2, card("2", "no") + card("5", "yes"));
  shell.prints(firmware_command(2), "2.0.1\n");
  shell.prints(firmware_command(5), "1.9.0\n");
  EXPECT_EQ(init_tavoAdaptorUnitTable(), 0);
  std::vector<Cell> expected = cells(2, "2.0.1", false);
  const std::vector<Cell> hot = cells(5, "1.9.0", true);
  expected.insert(expected.end(), hot.begin(), hot.end());
  fakes::expect_table(table, expected);
  EXPECT_EQ(tavoAdaptorUnitTable_head->index, 5U) << "the last card found comes first";
  EXPECT_THAT(clock.sleeps(), IsEmpty());
  EXPECT_THAT(shell.system_commands(), ElementsAre(dump_command)) << "one dump for the whole build";
  EXPECT_EQ(fakes::opens_of("/var/adapterInventory"), 1) << "and read once";
  EXPECT_EQ(de_register_adaptor_table_handler(), 0);
}

TEST_F(AdaptorUnitTableTest, AnOlderNetSnmpIsServedTheSame) {
  const ProcessResult result =
      run_in_a_process_of_its_own("AdaptorUnitTableTest.ServesEveryColumnOfEveryCard", fakes::older_net_snmp);
  EXPECT_TRUE(result.passed) << result.output;
}

TEST_F(AdaptorUnitTableTest, WithoutCardsTheTableIsEmpty) {
  EXPECT_EQ(GetNumOfAdaptors(), 0) << "the utility prints nothing";
  EXPECT_EQ(initialize_adaptorunit_table(0), 0);
  EXPECT_EQ(tavoAdaptorUnitTable_head, nullptr);
  EXPECT_THAT(shell.system_commands(), IsEmpty());
}

TEST_F(AdaptorUnitTableTest, TheCountIsTheUtilitysOwn) {
  shell.prints(count_command, "12\n");
  EXPECT_EQ(GetNumOfAdaptors(), 12);
  shell.prints(count_command, "none\n");
  EXPECT_EQ(GetNumOfAdaptors(), 0);
}

TEST_F(AdaptorUnitTableTest, MissingKeysLeaveTheirColumnsEmpty) {
  cards(1, " slot-number: 2\n");
  shell.prints(firmware_command(2), "4.1\n");
  initialize_adaptorunit_table(0);
  const Row &row = *tavoAdaptorUnitTable_head;
  EXPECT_STREQ(row.product_id, "");
  EXPECT_STREQ(row.serial, "");
  EXPECT_EQ(row.overtemperature, 0);
  EXPECT_EQ(row.oper_state, 1);
}

TEST_F(AdaptorUnitTableTest, ACardInheritsNothingFromTheOneBefore) {
  cards(2, card("2", "yes") + " slot-number: 5\n");
  shell.prints(firmware_command(2), "4.1\n");
  initialize_adaptorunit_table(0);
  const Row &bare = *tavoAdaptorUnitTable_head;
  ASSERT_EQ(bare.index, 5U);
  EXPECT_STREQ(bare.product_id, "");
  EXPECT_STREQ(bare.bus, "");
  EXPECT_STREQ(bare.serial, "");
  EXPECT_STREQ(bare.firmware_version, "");
  EXPECT_STREQ(bare.part_number, "");
  EXPECT_EQ(bare.overtemperature, 0);
  EXPECT_EQ(bare.oper_state, 1);
  EXPECT_EQ(bare.operability, 1);

  cards(2, card("2", "yes") + card("5", "no"));
  initialize_adaptorunit_table(1);
  EXPECT_EQ(tavoAdaptorUnitTable_head->overtemperature, 0);
  EXPECT_EQ(tavoAdaptorUnitTable_head->oper_state, 1);
  EXPECT_EQ(tavoAdaptorUnitTable_head->next->overtemperature, 3);
}

TEST_F(AdaptorUnitTableTest, WhatBeginsWithNoIsNoOvertemperature) {
  for (const char *cool : {"no", "none", "normal", "not known"}) {
    cards(1, card("2", cool));
    initialize_adaptorunit_table(1);
    EXPECT_EQ(tavoAdaptorUnitTable_head->overtemperature, 0) << cool;
    EXPECT_EQ(tavoAdaptorUnitTable_head->oper_state, 1) << cool;
    EXPECT_EQ(tavoAdaptorUnitTable_head->operability, 1) << cool;
  }
  for (const char *hot : {"NO", "No", " no", "n", "yes", ""}) {
    cards(1, card("2", hot));
    initialize_adaptorunit_table(1);
    EXPECT_EQ(tavoAdaptorUnitTable_head->overtemperature, 3) << hot;
    EXPECT_EQ(tavoAdaptorUnitTable_head->oper_state, 8) << hot;
    EXPECT_EQ(tavoAdaptorUnitTable_head->operability, 8) << hot;
  }
}

TEST_F(AdaptorUnitTableTest, ACardWithoutASlotIsLeftOutAfterFiveTries) {
  cards(2, card("2", "no"));
  shell.prints(firmware_command(2), "4.1\n");
  EXPECT_EQ(initialize_adaptorunit_table(0), 0);
  ASSERT_NE(tavoAdaptorUnitTable_head, nullptr);
  EXPECT_EQ(tavoAdaptorUnitTable_head->next, nullptr);
  EXPECT_THAT(clock.sleeps(), ElementsAre(5, 5, 5, 5, 5));
  EXPECT_THAT(shell.system_commands(), SizeIs(5)) << "one for the first card, one for each further try of the second";
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

TEST_F(AdaptorUnitTableTest, ACountThatNoServerHasIsNotWaitedFor) {
  cards(INT32_MAX, "");
  EXPECT_EQ(initialize_adaptorunit_table(0), 0);
  EXPECT_THAT(clock.sleeps(), SizeIs(64 * 5));
}

TEST_F(AdaptorUnitTableTest, ADumpThatComesLateEndsTheTries) {
  cards(1, "");
  shell.answers(dump_command, [](int call) { return call < 3 ? "" : card("2", "no"); });
  shell.prints(firmware_command(2), "4.1\n");
  initialize_adaptorunit_table(0);
  EXPECT_EQ(tavoAdaptorUnitTable_head->index, 2U);
  EXPECT_THAT(clock.sleeps(), ElementsAre(5, 5));
}

TEST_F(AdaptorUnitTableTest, ASlotThatIsNoNumberKeepsTheOneOfTheCardBefore) {
  cards(2, card("4", "no") + card("MLOM", "no"));
  shell.prints(firmware_command(4), "4.1\n");
  initialize_adaptorunit_table(0);
  const Row &row = *tavoAdaptorUnitTable_head;
  EXPECT_EQ(row.index, 4U);
  EXPECT_EQ(row.slot, 4U);
  EXPECT_STREQ(row.slot_text, "MLOM");
  EXPECT_STREQ(row.dn, "sys/rack-unit-1/adaptor-MLOM");
}

TEST_F(AdaptorUnitTableTest, FirmwareIsTriedTenTimesWithAPauseAfterEach) {
  char out[128] = {};
  EXPECT_EQ(GetAdaptorFirmwareRevision(3, out), 0);
  EXPECT_THAT(clock.sleeps(), testing::AllOf(SizeIs(10), Each(5U)));
  EXPECT_THAT(shell.popen_commands(), testing::AllOf(SizeIs(10), Each(firmware_command(3))));

  cards(1, card("3", "no"));
  initialize_adaptorunit_table(0);
  EXPECT_STREQ(tavoAdaptorUnitTable_head->firmware_version, "") << "the card is listed all the same";
}

TEST_F(AdaptorUnitTableTest, TheCacheIsLoadedOnceUntilABuildWantsItAnew) {
  cards(1, card("2", "no"));
  shell.prints(firmware_command(2), "4.1\n");
  initialize_adaptorunit_table(0);
  char out[128] = {};
  EXPECT_EQ(GetValuefromCache("product-id", ": ", 1, out), 1);
  EXPECT_STREQ(out, "CARD-2");
  EXPECT_EQ(GetValuefromCache("product-id", ": ", 2, out), 0);
  EXPECT_THAT(shell.system_commands(), SizeIs(1));
  initialize_adaptorunit_table(1);
  EXPECT_THAT(shell.system_commands(), SizeIs(2));
}

TEST_F(AdaptorUnitTableTest, WithoutMemoryNothingIsBuilt) {
  cards(1, card("2", "no"));
  fakes::fail_allocations(0, 1);
  EXPECT_EQ(initialize_adaptorunit_table(1), -1);
  EXPECT_THAT(shell.commands(), IsEmpty());
}

TEST_F(AdaptorUnitTableTest, TheLockIsHeldWhileTheToolsRunAndBetweenTheTries) {
  ListLock &lock = ev_lock<3>;
  std::vector<int> held;
  const auto printing = [&](const std::string &late) {
    return [&, late](int call) {
      held.push_back(lock.hold_count());
      return call == 1 ? "" : late;
    };
  };
  shell.answers(count_command, [&](int) {
    held.push_back(lock.hold_count());
    return "1\n";
  });
  shell.answers(dump_command, printing(card("2", "no")));
  shell.answers(firmware_command(2), printing("4.1\n"));
  clock.on_sleep([&](unsigned) { held.push_back(lock.hold_count()); });
  EXPECT_EQ(initialize_adaptorunit_table(1), 0);
  EXPECT_THAT(held, testing::AllOf(SizeIs(7), Each(1))) << "five commands and two pauses";
  EXPECT_EQ(lock.hold_count(), 0);
}

class AdaptorsFromRubbishTest : public AdaptorUnitTableTest, public testing::WithParamInterface<fakes::Rubbish> {
 protected:
  // The rows' slots, as texts.
  std::vector<std::string> slots_of(const std::string &dump) {
    cards(1, dump);
    EXPECT_EQ(initialize_adaptorunit_table(1), 0);
    std::vector<std::string> slots;
    for (const Row *row = tavoAdaptorUnitTable_head; row != nullptr; row = row->next) {
      slots.emplace_back(row->slot_text);
    }
    return slots;
  }
};

INSTANTIATE_TEST_SUITE_P(Tools, AdaptorsFromRubbishTest, testing::ValuesIn(fakes::every_rubbish()),
                         fakes::rubbish_name<testing::TestParamInfo<fakes::Rubbish>>);

TEST_P(AdaptorsFromRubbishTest, TheCountIsTheNumberThatTheFirstLineBeginsWith) {
  shell.prints(count_command, GetParam().output());
  const int number = GetParam().output().ends_with('\n') ? INT_MAX : 7;  // the last character is taken for a newline
  EXPECT_EQ(GetNumOfAdaptors(), GetParam().output().starts_with('7') ? number : 0);
}

TEST_P(AdaptorsFromRubbishTest, ADumpWithoutASlotIsNoCard) {
  EXPECT_THAT(slots_of(GetParam().output()), IsEmpty());
}

TEST_P(AdaptorsFromRubbishTest, ASlotIsWhatItsLineHolds) {
  const std::vector<std::string> slots = slots_of(" slot-number: " + GetParam().output());
  if (!GetParam().output().ends_with('\n')) {
    EXPECT_THAT(slots, IsEmpty());
  } else if (GetParam().output().starts_with('7')) {
    EXPECT_THAT(slots, ElementsAre(std::string(63, '7')));
    EXPECT_EQ(tavoAdaptorUnitTable_head->index, static_cast<std::uint32_t>(INT_MAX));
    EXPECT_EQ(tavoAdaptorUnitTable_head->dn, ("sys/rack-unit-1/adaptor-" + std::string(63, '7')).substr(0, 63));
  } else {
    EXPECT_THAT(slots, ElementsAre(""));
    EXPECT_EQ(tavoAdaptorUnitTable_head->index, 0U);
  }
}

TEST_P(AdaptorsFromRubbishTest, AFirmwareVersionIsTheBeginningOfItsLine) {
  shell.prints(firmware_command(2), GetParam().output());
  EXPECT_THAT(slots_of(card("2", "no")), ElementsAre("2"));
  const std::string version(GetParam().output().ends_with('\n') ? 63 : 1, '7');
  EXPECT_EQ(tavoAdaptorUnitTable_head->firmware_version, GetParam().output().starts_with('7') ? version : "");
}

}  // namespace
}  // namespace tavo
