// The fixture of the fault table's tests: an empty table, an empty fault database, no file in /var, UTC.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "tables/tavoFaultTable.h"
#include "tests/unit/fakes/fault_engine.h"
#include "tests/unit/fakes/files.h"
#include "tests/unit/fakes/golden.h"
#include "tests/unit/fakes/manager.h"
#include "tests/unit/fakes/module_test.h"
#include "tests/unit/fakes/net_snmp.h"
#include "tests/unit/fakes/shell.h"

// The table's OID, without the entry.
inline constexpr std::array<oid, 12> fault_table = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 1, 1};

// What the controller runs for its serial number.
inline constexpr const char *serial_number_query =
    "ipmitool -I bmc fru 2> /dev/null | grep \"Product Serial\" | awk -F\": \" ' NR<2 { print $2 } '";

class FaultTableTest : public fakes::ModuleTest {
 protected:
  FaultTableTest();
  ~FaultTableTest() override;

  // Registers the table; with a serial number the controller asks for it and has one.
  void start_up();
  void start_up_with_serial_number(const std::string &serial_number);

  // Applies the record and expects it to be applied.
  static void apply(const fakes::FaultRecord &record);

  // What a manager reads in a cell.
  static fakes::Value read(int column, oid index);
  // Column 5, the affected object's text, of the notification sent last.
  static std::string notified_affected_object();

  static std::size_t row_count();
  static std::vector<std::uint32_t> listed_indexes();
  static const tavo::FaultRow &only_row();

  fakes::FakeFiles files_;
  fakes::FakeShell shell_;
};

// Sub-identifier and value of each of the thirteen varbinds of a fault's notification.
std::vector<fakes::Answer> varbinds_of(const fakes::Notification &notification);
