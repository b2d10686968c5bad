#include "tests/unit/fakes/fault_table_test.h"

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cstdlib>
#include <ctime>
#include <stdexcept>

#include "tables/fan_state.h"
#include "tables/fault_database.h"
#include "tables/tavoFaultTable_traps.h"

namespace {

void forget_fans() {
  for (std::uint32_t fan = 0; fan < 14; ++fan) {
    tavo::store_fan(sys_fan_prs, fan, 0);
    tavo::store_fan(sys_fan_sev, fan, 0);
    tavo::store_fan(ps_fan_sev, fan, 0);
  }
}

}  // namespace

FaultTableTest::FaultTableTest() {
  setenv("TZ", "UTC", 1);
  tzset();
  fault_database = static_cast<tavo::EntityNode **>(std::calloc(1, sizeof(tavo::FaultBuckets)));
  forget_fans();
}

FaultTableTest::~FaultTableTest() {
  needToSendTrapFlag = 0;
  tavo::free_entity_nodes();
  std::free(fault_database);
  fault_database = nullptr;
  clear_fault_table_entries();
  files_.remove("/var/snmpSerialNoEnabled");
  init_tavoFaultTable();  // forgets the serial number
  auto root = fault_table;
  unregister_mib(root.data(), root.size());
}

void FaultTableTest::start_up() {
  ASSERT_EQ(init_tavoFaultTable(), 0);
  fakes::reset_net_snmp();
}

void FaultTableTest::start_up_with_serial_number(const std::string &serial_number) {
  files_.write("/var/snmpSerialNoEnabled", "");
  shell_.prints(serial_number_query, serial_number + "\n");
  start_up();
}

void FaultTableTest::apply(const fakes::FaultRecord &record) {
  EXPECT_EQ(populate_fault_table_from_fe(record.data()), 0);
}

fakes::Value FaultTableTest::read(int column, oid index) {
  return fakes::get({fakes::cell(fault_table, static_cast<oid>(column), index)}).answers.at(0).value;
}

std::string FaultTableTest::notified_affected_object() {
  return varbinds_of(fakes::notifications().back()).at(4).value.content;
}

std::size_t FaultTableTest::row_count() {
  return listed_indexes().size();
}

std::vector<std::uint32_t> FaultTableTest::listed_indexes() {
  std::vector<std::uint32_t> indexes;
  for (const tavo::FaultRow *row = tavoFaultTable_head; row != nullptr; row = row->next) {
    indexes.push_back(row->index);
  }
  return indexes;
}

const tavo::FaultRow &FaultTableTest::only_row() {
  if (row_count() != 1) {
    throw std::runtime_error("there are " + std::to_string(row_count()) + " rows");
  }
  return *tavoFaultTable_head;
}

std::vector<fakes::Answer> varbinds_of(const fakes::Notification &notification) {
  std::vector<fakes::Answer> varbinds;
  for (const fakes::Varbind &varbind : notification.varbinds) {
    varbinds.push_back({.name = varbind.name, .value = fakes::value_of(varbind)});
  }
  return varbinds;
}
