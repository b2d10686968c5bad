// Holds the locks of two tables of the real module, as long rebuilds do. The order "hold 41 SECONDS" holds that of the
// processor table, "hold 2 SECONDS" that of the storage controller table, which has four rows. Logs "holding NUMBER"
// and "releasing NUMBER". Without a lock it serves BASE.5.0, always 43.
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

}  // namespace

extern "C" int init_subagent_modules() {
  const RealModule module;
  module.function<int()>("init_tavoProcessorUnitTable")();
  module.function<int()>("init_tavoStorageControllerTable")();
  add_controllers(module);
  oid name[test_base_length + 1];
  std::copy(std::begin(test_base), std::end(test_base), name);
  name[test_base_length] = 5;
  netsnmp_register_read_only_int_scalar("constant", name, std::size(name), &constant, nullptr);
  obey_control_lines([module](const std::string &line) {
    std::string verb;
    int number = 0;
    double seconds = 0;
    std::istringstream(line) >> verb >> number >> seconds;
    const bool is_subagent_lock = number == 2;
    const auto acquire = module.function<int(int)>(is_subagent_lock ? "acquire_sa_lock" : "get_ev_lock");
    const auto release = module.function<int(int)>(is_subagent_lock ? "release_sa_lock" : "release_ev_lock");
    std::thread([=] {
      acquire(number);
      snmp_log(LOG_INFO, "holding %d\n", number);
      std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
      snmp_log(LOG_INFO, "releasing %d\n", number);  // before: an answer is never earlier than this line
      release(number);
    }).detach();
  });
  return 0;
}

}  // namespace tavo
