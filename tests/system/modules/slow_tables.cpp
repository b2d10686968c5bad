// Holds the locks of the real module's tables, as long rebuilds do. The order "hold FAMILY NUMBER SECONDS" holds the
// lock that tables.json calls "FAMILY NUMBER", such as "ev 41"; the log says "holding ev 41" and "releasing ev 41".
// After "start" the locks of the three tables below are held at random, for up to 10 ms each time, until "stop"; the
// log says "holding at random" and "holding no more".
//
// With WHOLE_MODULE in the environment it starts all of the real module, which needs a platform library, but the
// thread that rebuilds tables at its own times. Otherwise it serves three tables without a platform: the processor
// table, the storage controller table with four rows and the fault table with three; and BASE.5.0, always 43, which
// has no lock.
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <random>
#include <sstream>
#include <thread>
#include <vector>

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

struct Lock {
  Lock(const RealModule &module, const std::string &family, int lock_number)
      : acquire(module.function<int(int)>(family == "ev" ? "get_ev_lock" : "acquire_sa_lock")),
        release(module.function<int(int)>(family == "ev" ? "release_ev_lock" : "release_sa_lock")),
        number(lock_number) {}

  int (*acquire)(int);
  int (*release)(int);
  int number;
};

void sleep_for(double seconds) {
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

class RandomHolds {
 public:
  explicit RandomHolds(const RealModule &module)
      : locks_{Lock(module, "subagent", 1), Lock(module, "subagent", 2), Lock(module, "ev", 41)} {}

  void start() {
    stopped_ = false;
    unsigned seed = 0;
    for (const Lock &lock : locks_) {
      threads_.emplace_back([this, &lock, seed = ++seed] {
        std::mt19937 random(seed);
        std::uniform_real_distribution seconds(0.0, 0.01);
        while (!stopped_) {
          lock.acquire(lock.number);
          sleep_for(seconds(random));
          lock.release(lock.number);
          sleep_for(seconds(random));
        }
      });
    }
  }
  void stop() {
    stopped_ = true;
    for (std::thread &thread : threads_) {
      thread.join();
    }
    threads_.clear();
  }

 private:
  const std::vector<Lock> locks_;
  std::atomic<bool> stopped_ = true;
  std::vector<std::thread> threads_;
};

void hold(const RealModule &module, std::istringstream &order) {
  std::string family;
  int number = 0;
  double seconds = 0;
  order >> family >> number >> seconds;
  std::thread([=, lock = Lock(module, family, number)] {
    lock.acquire(number);
    snmp_log(LOG_INFO, "holding %s %d\n", family.c_str(), number);
    sleep_for(seconds);
    // Before: an answer is never earlier than this line.
    snmp_log(LOG_INFO, "releasing %s %d\n", family.c_str(), number);
    lock.release(number);
  }).detach();
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
  static RandomHolds random_holds(module);
  obey_control_lines([module](const std::string &line) {
    std::istringstream order(line);
    std::string verb;
    order >> verb;
    if (verb == "start") {
      random_holds.start();
      snmp_log(LOG_INFO, "holding at random\n");
    } else if (verb == "stop") {
      random_holds.stop();
      snmp_log(LOG_INFO, "holding no more\n");
    } else {
      hold(module, order);
    }
  });
  return 0;
}

}  // namespace tavo
