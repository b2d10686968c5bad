#include "tests/unit/fakes/module_test.h"

#include "tests/unit/fakes/allocation.h"
#include "tests/unit/fakes/fault_engine.h"
#include "tests/unit/fakes/fru.h"
#include "tests/unit/fakes/inventory.h"
#include "tests/unit/fakes/memory.h"
#include "tests/unit/fakes/mutexes.h"
#include "tests/unit/fakes/net_snmp.h"
#include "tests/unit/fakes/sensors.h"
#include "tests/unit/fakes/signals.h"
#include "tests/unit/fakes/sockets.h"
#include "tests/unit/fakes/storage_client.h"
#include "tests/unit/fakes/threads.h"

namespace fakes {
namespace {

void reset_all() {
  fail_next_mutex_call(0);
  reset_allocations();
  reset_fault_engine();
  reset_fru();
  reset_inventory();
  reset_memory();
  reset_net_snmp();
  reset_sensors();
  reset_signals();
  reset_sockets();
  reset_storage_client();
  reset_threads();
}

}  // namespace

ModuleTest::ModuleTest() {
  reset_all();
}

ModuleTest::~ModuleTest() {
  reset_all();
}

}  // namespace fakes
