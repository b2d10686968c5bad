// What a fan's row takes from the name and the instance of its sensor.
#include <gmock/gmock.h>

#include <cstdint>
#include <string>
#include <vector>

#include "sources/fan_state.h"
#include "tests/fixtures/fan_table_fixture.h"

namespace tavo {
namespace {

using fakes::EquipmentFanTableTest;

TEST_F(EquipmentFanTableTest, EachNamingSchemeTellsFanAndModule) {
  struct Expected {
    const char *name;
    std::uint32_t fan, module;
    const char *dn, *rn;
  };
  const std::vector<Expected> schemes = {
      {"Q410_FAN3_TACH2", 3, 2, "sys/rack-unit-1/fan-module-1-3/fan-2", "fan-2"},
      {"Q410_FAN3_SPEED", 3, 0, "sys/rack-unit-1/fan-module-1-0/fan-3", "fan-3"},
      {"FAN_TRAY3_SPEED", 1, 3, "sys/rack-unit-1/fan-module-1-3/fan-1", "fan-1"},
      {"FANA_MOD4_SPEED", 1, 4, "sys/rack-unit-1/fan-module-1-4/fan-1", "fan-1"},
      {"FANB_MOD4_SPEED", 2, 4, "sys/rack-unit-1/fan-module-1-4/fan-2", "fan-2"},
      {"FAN6_SPEED", 1, 6, "sys/rack-unit-1/fan-module-1-6/fan-1", "fan-1"},
      {"FAN6", 1, 6, "sys/rack-unit-1/fan-module-1-6/fan-1", "fan-1"},
      {"FAN6_RPM", 1, 6, "sys/rack-unit-1/fan-module-1-6/fan-1", "fan-1"},
      {"FAN2_TACH1", 1, 2, "sys/rack-unit-1/fan-module-1-2/fan-1", "fan-1"},
      {"FAN2_TACH2", 1, 2, "sys/rack-unit-1/fan-module-1-2/fan-2", "fan-2"},
      {"FAN2_TACH", 1, 2, "sys/rack-unit-1/fan-module-1-2/fan-0", "fan-0"},
      {"CHASSIS", 1, 0, "sys/rack-unit-1/fan-module-1-0/fan-1", "fan-1"},
      {"", 1, 0, "sys/rack-unit-1/fan-module-1-0/fan-1", "fan-1"},
      {"MY_TRAY5", 1, 0, "sys/rack-unit-1/fan-module-1-0/fan-1", "fan-1"},
      {"fan6_speed", 1, 0, "sys/rack-unit-1/fan-module-1-0/fan-1", "fan-1"},
  };
  for (const Expected &expected : schemes) {
    const Row row = system_fan(expected.name);
    EXPECT_EQ(row.id, expected.fan) << expected.name;
    EXPECT_EQ(row.module, expected.module) << expected.name;
    EXPECT_STREQ(row.dn, expected.dn) << expected.name;
    EXPECT_STREQ(row.rn, expected.rn) << expected.name;
    EXPECT_STREQ(row.sensor, expected.name);
  }
}

TEST_F(EquipmentFanTableTest, TheFirstSchemeInOrderWins) {
  EXPECT_EQ(system_fan("FAN_TRAY2_FANA").module, 2U);  // TRAY before FANA
  EXPECT_EQ(system_fan("FAN_TRAY2_FANB").id, 1U);      // TRAY before FANB
  EXPECT_EQ(system_fan("FANB_MOD2_Q410").module, 0U);
  EXPECT_EQ(system_fan("FANA_MOD3_FANB").module, 3U);
}

TEST_F(EquipmentFanTableTest, ATachometersSeverityStandsAtItsModuleAndNumber) {
  for (std::uint32_t module = 1; module <= 7; ++module) {
    for (std::uint32_t tachometer = 1; tachometer <= 2; ++tachometer) {
      const std::uint32_t index = (module - 1) * 2 + tachometer - 1;
      const std::string number = std::to_string(module) + "_TACH" + std::to_string(tachometer);
      for (const std::string &name : {"FAN" + number, "Q410_FAN" + number}) {
        EXPECT_EQ(system_fan(name, 0).oper_state, 1) << name;
        store_fan(sys_fan_sev, index, 3);
        EXPECT_EQ(system_fan(name, 0).oper_state, 3) << name;
        EXPECT_EQ(system_fan(name, 0).operability, 3) << name;
        store_fan(sys_fan_sev, index, 0);
      }
    }
  }
}

TEST_F(EquipmentFanTableTest, WithoutATachometerTheSeverityStandsAtTheInstance) {
  for (std::uint32_t instance = 0; instance < 14; ++instance) {
    store_fan(sys_fan_sev, instance, 1);
    EXPECT_EQ(system_fan("FAN1_SPEED", instance).oper_state, 3);
    store_fan(sys_fan_sev, instance, 0);
    EXPECT_EQ(system_fan("FAN1_SPEED", instance).oper_state, 1);
  }
  for (std::uint32_t instance = 0; instance < 4; ++instance) {
    store_fan(ps_fan_sev, instance, 1);
    EXPECT_EQ(supply_fan("PSU1_FAN_SPEED", instance).oper_state, 3);
    store_fan(ps_fan_sev, instance, 0);
    EXPECT_EQ(supply_fan("PSU1_FAN_SPEED", instance).oper_state, 1);
  }
}

TEST_F(EquipmentFanTableTest, ASupplyFansNumbersStandInItsName) {
  struct Expected {
    const char *name, *dn, *rn;
    std::uint32_t supply, fan;
  };
  const std::vector<Expected> names = {
      {"PSU2_FAN_SPEED", "sys/rack-unit-1/psu-2/fan-1", "psu-2/fan-1", 2, 1},
      {"PSU_SPEED", "sys/rack-unit-1/psu-0/fan-1", "psu-0/fan-1", 0, 1},
      {"X_SPEED", "sys/rack-unit-1/psu-0/fan-1", "psu-0/fan-1", 0, 1},
      {"PSU2_FAN", "sys/rack-unit-1/psu-0/fan-0", "psu-0/fan-0", 0, 0},
      {"PSU12_FAN_SPEED", "sys/rack-unit-1/psu-12/fan-", "psu-12/fan-1", 12, 1},
  };
  for (const Expected &expected : names) {
    const Row row = supply_fan(expected.name);
    EXPECT_STREQ(row.dn, expected.dn);
    EXPECT_STREQ(row.rn, expected.rn);
    EXPECT_EQ(row.id, expected.supply) << expected.name;
    EXPECT_EQ(row.module, expected.fan) << expected.name;
    EXPECT_EQ(row.presence, 10) << expected.name;
  }
}

TEST_F(EquipmentFanTableTest, ADnKeepsThirtySixCharacters) {
  EXPECT_STREQ(system_fan("FAN12_TACH3").dn, "sys/rack-unit-1/fan-module-1-12/fan-");
  EXPECT_STREQ(system_fan("FAN1_TACH23").dn, "sys/rack-unit-1/fan-module-1-1/fan-2");
  EXPECT_STREQ(system_fan("FAN1_TACH23").rn, "fan-23");
}

TEST_F(EquipmentFanTableTest, InstancesAndNumbersBeyondTheArraysTouchNothing) {
  for (const std::uint32_t instance : {14U, 255U, 256U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
    const bool markable = instance < 256;
    EXPECT_EQ(system_fan("FAN1_SPEED", instance).oper_state, markable ? 1 : 6) << instance;
    EXPECT_EQ(system_fan("FAN1_SPEED", instance).presence, 10) << instance;
  }
  EXPECT_EQ(supply_fan("PSU1_FAN_SPEED", 4).oper_state, 1);
  EXPECT_EQ(supply_fan("PSU1_FAN_SPEED", 255).oper_state, 1);
  for (std::uint32_t fan = 0; fan < 14; ++fan) {
    EXPECT_EQ(load_fan(sys_fan_prs, fan), 0);
    store_fan(sys_fan_sev, fan, 1);
  }
  for (const char *name : {"FAN0_TACH1", "FAN8_TACH1", "FAN1_TACH-1", "FAN-1_TACH1", "FAN9999999999_TACH1",
                           "FAN2147483647_TACH2", "FAN-2147483647_TACH1"}) {
    EXPECT_EQ(system_fan(name).oper_state, 1) << name;
  }
}

TEST_F(EquipmentFanTableTest, ASensorNameWithoutANulEndsWithItsField) {
  EXPECT_STREQ(system_fan("FAN12345678901234567").sensor, "FAN12345678901234567");
  EXPECT_STREQ(system_fan("FAN1_SPEED_0123456789").sensor, "FAN1_SPEED_012345678");
}

TEST_F(EquipmentFanTableTest, EveryDamagedOctetOfASensorRecordIsSafe) {
  for (const char octet : {'\0', '\xFF', '%', '9', '-', 'T'}) {
    for (std::size_t at = 0; at < 15; ++at) {
      std::string name = "Q410_FAN3_TACH2";
      name[at] = octet;
      system_fan(name);
      system_fan(name.substr(at));
    }
  }
}

}  // namespace
}  // namespace tavo
