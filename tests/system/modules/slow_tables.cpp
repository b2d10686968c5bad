// Holds the locks of the real module's tables, as long rebuilds do. The order "hold FAMILY NUMBER SECONDS" holds the
// lock that tables.json calls "FAMILY NUMBER", such as "ev 41"; the log says "holding ev 41" and "releasing ev 41".
//
// With WHOLE_MODULE in the environment it starts all of the real module, which needs a platform library, but the
// thread that rebuilds tables at its own times. Otherwise it serves three tables without a platform: the processor
// table, the storage controller table with four rows and the fault table with three; and BASE.5.0, always 43, which
// has no lock.
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <sstream>

#include "control.h"
#include "real_module.h"
#include "tables/faults/tavoFaultTable.h"
#include "tables/storage/tavoStorageControllerTable.h"

namespace tavo {

namespace {

int constant = 43;

void add_controllers(const RealModule &module) {
  const auto acquire = module.function<int(int)>("acquire_sa_lock");
  const auto release = module.function<int(int)>("release_sa_lock");
  const auto create = module.function<StorageControllerRow *(std::uint32_t, const StorageControllerRow *)>(
      "tavoStorageControllerTable_createEntry");
  acquire(2);
  for (std::uint32_t index = 1; index <= 4; ++index) {
    const StorageControllerRow row = {};
    create(index, &row);
  }
  release(2);
}

void add_faults(const RealModule &module) {
  const auto create =
      module.function<FaultRow *(std::uint32_t, FaultRow *, int, int, const char *)>("tavoFaultTable_createEntry");
  for (std::uint32_t index = 1; index <= 3; ++index) {
    auto *row = static_cast<FaultRow *>(std::calloc(1, sizeof(FaultRow)));
    row->index = index;
    create(index, row, 0, 0, "sys/rack-unit-1");
  }
}

void serve_some_tables(const RealModule &module) {
  module.function<int()>("init_tavoFaultTable")();
  module.function<int()>("init_tavoProcessorUnitTable")();
  module.function<int()>("init_tavoStorageControllerTable")();
  add_faults(module);
  add_controllers(module);
  oid name[test_base_length + 1];
  std::copy(std::begin(test_base), std::end(test_base), name);
  name[test_base_length] = 5;
  netsnmp_register_read_only_int_scalar("constant", name, std::size(name), &constant, nullptr);
}

}  // namespace

extern "C" int init_subagent_modules() {
  const RealModule module;
  if (std::getenv("WHOLE_MODULE") != nullptr) {
    module.function<int()>("init_subagent_modules")();
    module.function<void()>("stop_inventory_thread")();
  } else {
    serve_some_tables(module);
  }
  obey_control_lines([module](const std::string &line) {
    std::string verb;
    std::string family;
    int number = 0;
    double seconds = 0;
    std::istringstream(line) >> verb >> family >> number >> seconds;
    const bool is_ev = family == "ev";
    const auto acquire = module.function<int(int)>(is_ev ? "get_ev_lock" : "acquire_sa_lock");
    const auto release = module.function<int(int)>(is_ev ? "release_ev_lock" : "release_sa_lock");
    std::thread([=] {
      acquire(number);
      snmp_log(LOG_INFO, "holding %s %d\n", family.c_str(), number);
      std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
      // Before: an answer is never earlier than this line.
      snmp_log(LOG_INFO, "releasing %s %d\n", family.c_str(), number);
      release(number);
    }).detach();
  });
  return 0;
}

}  // namespace tavo
