#include "tables/equipment/tavoEquipmentHealthLedTable.h"

#include <gmock/gmock.h>

#include <array>
#include <climits>
#include <string>
#include <vector>

#include "core/access_lock.h"
#include "tests/fakes/allocation.h"
#include "tests/fakes/files.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fakes/shell.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/harness/golden.h"

namespace tavo {
namespace {

using fakes::gauge;
using fakes::integer;
using fakes::text;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::array<oid, 12> table = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 15, 114};
constexpr char command[] = "/usr/local/bin/datactl get=externalLEDs | /usr/local/bin/flatkv > /var/LedInv";

std::string led(const std::string &name, const std::string &rest) {
  return " id: 1\n ledName: " + name + "\n" + rest;
}

const std::string power_led = led("LED_POWER", " ledState: ON\n ledColor: GREEN\n");

class HealthLedTableTest : public fakes::ModuleTest {
 protected:
  // A build from a dump whose second record is the health LED's.
  const HealthLedRow *build(const std::string &rest) {
    shell.prints(command, power_led + led("LED_HLTH_STATUS", rest));
    EXPECT_EQ(initialize_health_led_table(1), 0);
    return tavoEquipmentHealthLedTable_head;
  }

  fakes::FakeFiles files;
  fakes::FakeShell shell;
};

TEST_F(HealthLedTableTest, ServesEveryColumn) {
  shell.prints(command, power_led + led("LED_HLTH_STATUS", " ledState: ON\n ledColor: AMBER\n"));
  EXPECT_EQ(init_tavoEquipmentHealthLedTable(), 0);
  fakes::expect_table(table, {{2, 1, text("sys/rack-unit-1/board/led-1")},
                              {3, 1, text("led-1")},
                              {4, 1, integer(2)},
                              {5, 1, integer(1)},
                              {6, 1, text("")},
                              {7, 1, gauge(1)},
                              {8, 1, text("LED_HLTH_STATUS")},
                              {9, 1, integer(1)}});
}

TEST_F(HealthLedTableTest, ASingleRecordGivesNoRow) {
  shell.prints(command, led("LED_HLTH_STATUS", " ledState: ON\n ledColor: AMBER\n"));
  EXPECT_EQ(initialize_health_led_table(0), 0);
  EXPECT_EQ(tavoEquipmentHealthLedTable_head, nullptr);
}

struct Mapping {
  const char *state_text;
  const char *color_text;  // null: missing
  std::int32_t state;
  std::int32_t color;
  std::int32_t code;
};

TEST_F(HealthLedTableTest, StatesAndColorsAreMappedWhateverTheirCase) {
  for (const Mapping &mapping : std::to_array<Mapping>({
           {"ON", "GREEN", 1, 1, 0},
           {"on", "amber", 1, 2, 1},
           {"On", "Red", 1, 3, 2},
           {"ON", "BLUE", 1, 0, 0},
           {"ON", nullptr, 1, 0, 0},
           {"SLOW BLINK", "AMBER", 3, 2, 2},
           {"FAST BLINK", "RED", 3, 3, 2},
           {"fast blink", "red", 3, 3, 2},
           {"FAST BLINK", "GREEN", 3, 0, 0},
           {"SLOW BLINK", nullptr, 3, 0, 0},
           {"OFF", "GREEN", 2, 0, 0},
           {"ON ", "GREEN", 2, 0, 0},
       })) {
    std::string rest = std::string(" ledState: ") + mapping.state_text + "\n";
    if (mapping.color_text != nullptr) {
      rest += std::string(" ledColor: ") + mapping.color_text + "\n";
    }
    const HealthLedRow *row = build(rest);
    ASSERT_NE(row, nullptr) << rest;
    EXPECT_EQ(row->state, mapping.state) << rest;
    EXPECT_EQ(row->color, mapping.color_text == nullptr ? 0 : mapping.color) << rest;
    EXPECT_EQ(row->color_code, mapping.color_text == nullptr ? 0 : mapping.code) << rest;
  }
}

TEST_F(HealthLedTableTest, AMissingStateLeavesTheColorsUnread) {
  shell.prints(command, " id: 1\n ledName: LED_POWER\n ledColor: GREEN\n" + led("LED_HLTH_STATUS", " ledColor: RED\n"));
  initialize_health_led_table(0);
  ASSERT_NE(tavoEquipmentHealthLedTable_head, nullptr);
  EXPECT_EQ(tavoEquipmentHealthLedTable_head->state, 0);
  EXPECT_EQ(tavoEquipmentHealthLedTable_head->color, 0);
}

TEST_F(HealthLedTableTest, RowsAreNumberedByThemselvesAndLedsByTheirPlace) {
  const std::string health = led("led_hlth_status", " ledState: OFF\n ledColor: RED\n");
  shell.prints(command, power_led + power_led + health + health);
  initialize_health_led_table(0);
  const HealthLedRow *last = tavoEquipmentHealthLedTable_head;
  ASSERT_NE(last, nullptr);
  EXPECT_EQ(last->index, 2U);
  EXPECT_EQ(last->id, 3U);
  ASSERT_NE(last->next, nullptr);
  EXPECT_EQ(last->next->index, 1U);
  EXPECT_EQ(last->next->id, 2U);
  EXPECT_STREQ(last->next->dn, "sys/rack-unit-1/board/led-2");
}

TEST_F(HealthLedTableTest, LedsAreCountedByTheirIdsAndNotByTheirNames) {
  shell.prints(command, " id: 1\n ledName: LED_POWER\n ledName: LED_FANS\n ledName: LED_HLTH_STATUS\n");
  initialize_health_led_table(0);
  EXPECT_EQ(tavoEquipmentHealthLedTable_head, nullptr) << "the third name is the second LED's, and there is one";
  shell.prints(command, " id: 1\n id: 2\n ledName: LED_POWER\n ledName: LED_FANS\n ledName: LED_HLTH_STATUS\n");
  initialize_health_led_table(0);
  ASSERT_NE(tavoEquipmentHealthLedTable_head, nullptr);
  EXPECT_EQ(tavoEquipmentHealthLedTable_head->id, 2U);
  EXPECT_EQ(tavoEquipmentHealthLedTable_head->next, nullptr);
}

TEST_F(HealthLedTableTest, ADumpFullOfLedsShowsTheFirstThousandOrSo) {
  std::string leds;
  for (int i = 0; i < 3000; ++i) {
    leds += led("LED_HLTH_STATUS", "");
  }
  shell.prints(command, leds);
  EXPECT_EQ(initialize_health_led_table(0), 0);
  ASSERT_NE(tavoEquipmentHealthLedTable_head, nullptr);
  EXPECT_EQ(tavoEquipmentHealthLedTable_head->index, 1024U);
}

TEST_F(HealthLedTableTest, AnIdWithoutANameGivesNoRow) {
  shell.prints(command, power_led + led("LED_HLTH_STATUS", "") + " id: 3\n id: 4\n");
  EXPECT_EQ(initialize_health_led_table(0), 0);
  ASSERT_NE(tavoEquipmentHealthLedTable_head, nullptr);
  EXPECT_EQ(tavoEquipmentHealthLedTable_head->id, 1U);
  EXPECT_EQ(tavoEquipmentHealthLedTable_head->next, nullptr);
}

TEST_F(HealthLedTableTest, TheLockIsHeldFromTheToolsRunToTheLastRow) {
  ListLock &lock = ev_lock<105>;
  std::vector<int> held;
  shell.answers(command, [&](int) {
    held.push_back(lock.hold_count());
    return power_led + led("LED_HLTH_STATUS", "");
  });
  fakes::set_debugging(true);
  fakes::on_debug_message([&] { held.push_back(lock.hold_count()); });  // a row's two messages
  EXPECT_EQ(initialize_health_led_table(1), 0);
  EXPECT_THAT(held, ElementsAre(1, 1, 1));
  EXPECT_EQ(lock.hold_count(), 0);
}

TEST_F(HealthLedTableTest, ADumpThatCannotBeReadIsAnEmptyTable) {
  build(" ledState: ON\n");
  shell.prints(command, "");
  EXPECT_EQ(initialize_health_led_table(1), 0);
  EXPECT_EQ(tavoEquipmentHealthLedTable_head, nullptr);
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

TEST_F(HealthLedTableTest, WithoutMemoryTheBuildFails) {
  shell.prints(command, power_led + led("LED_HLTH_STATUS", ""));
  fakes::fail_allocations(1);  // the dump's text, then the row
  EXPECT_EQ(initialize_health_led_table(0), -1);
}

TEST_F(HealthLedTableTest, CountingRunsTheToolAtEveryCall) {
  shell.prints(command, power_led + power_led);
  char out[128] = {};
  EXPECT_EQ(getValueFromGDSforHLED("id", ": ", out), 1);
  EXPECT_STREQ(out, "2");
  EXPECT_EQ(getValueFromGDSforHLED("ledName", ": ", out), 1);
  EXPECT_THAT(shell.system_commands(), ElementsAre(command, command));
  files.remove("/var/LedInv");
  shell.answers(command, [](int) { return std::nullopt; });
  EXPECT_EQ(getValueFromGDSforHLED("id", ": ", out), 0);
}

TEST_F(HealthLedTableTest, TheSecondLookupIsOneFurtherThanAskedFor) {
  files.write("/var/LedInv", " ledName: A\n ledName: B\n");
  char out[128] = {};
  EXPECT_EQ(getValueFromGDSforHLEDVal("ledName", ": ", out, 0), 1);
  EXPECT_STREQ(out, "A");
  EXPECT_EQ(getValueFromGDSforHLEDVal("ledName", ": ", out, 1), 1);
  EXPECT_STREQ(out, "B");
  EXPECT_EQ(getValueFromGDSforHLEDVal("ledName", ": ", out, 2), 0);
  EXPECT_EQ(getValueFromGDSforHLEDVal("ledName", ": ", out, INT_MAX), 0);
  EXPECT_THAT(shell.commands(), IsEmpty());
}

TEST_F(HealthLedTableTest, RegistrationIsTracedUnderItsOwnToken) {
  fakes::set_debugging(true);
  init_tavoEquipmentHealthLedTable();
  const auto messages = fakes::debug_messages();
  ASSERT_GE(messages.size(), 2U);
  EXPECT_EQ(messages[0].token, "trace");
  EXPECT_TRUE(
      messages[0].text.starts_with("initialize_table_tavoEquipmentHealthLedTable(): tavoEquipmentHealthLedTable"));
  EXPECT_EQ(messages[1], (fakes::DebugMessage{"tavoEquipmentHealthLedTable:init",
                                              "initializing table tavoEquipmentHealthLedTable\n"}));
}

}  // namespace
}  // namespace tavo
