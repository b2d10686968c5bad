#include "core/module.h"

#include <pthread.h>
#include <signal.h>

#include <atomic>

#include "core/access_lock.h"
#include "core/background_thread.h"
#include "core/trace.h"
#include "platform/test_trap.h"
#include "storage/stor_info.h"
#include "tables/tavoAdaptorUnitTable.h"
#include "tables/tavoComputeBoardTable.h"
#include "tables/tavoComputeMbPowerStatsTable.h"
#include "tables/tavoComputeRackUnitMbTempStatsTable.h"
#include "tables/tavoComputeRackUnitTable.h"
#include "tables/tavoEquipmentFanTable.h"
#include "tables/tavoEquipmentHealthLedTable.h"
#include "tables/tavoEquipmentPsuTable.h"
#include "tables/tavoFaultTable.h"
#include "tables/tavoFaultTable_traps.h"
#include "tables/tavoMemoryUnitEnvStatsTable.h"
#include "tables/tavoMemoryUnitTable.h"
#include "tables/tavoProcessorEnvStatsTable.h"
#include "tables/tavoProcessorUnitTable.h"
#include "tables/tavoStorageControllerTable.h"
#include "tables/tavoStorageLocalDiskTable.h"
#include "tables/tavoStorageLocalLunTable.h"
#include "tables/tavoStorageRaidBatteryTable.h"
#include "tables/tavoStorageVeltroCardTable.h"
#include "tables/tavoStorageVeltroControllerTable.h"
#include "tables/tavoStorageVeltroDriveTable.h"
#include "tables/velt_info.h"
#include "threads/event_thread.h"
#include "threads/inventory_refresh.h"
#include "threads/stor_event_thread.h"
#include "threads/velt_event_thread.h"

// A daemon without the thread does not define the handle, and the module must load all the same.
#pragma weak test_trap_thread

namespace {

constexpr int storage_lock = 2;

struct StartUpStep {
  int (*call)();     // its result counts for nothing
  const char *done;  // logged afterwards; null: nothing is
};

int populate_sd_cards() {
  populate_velt();
  return 0;
}

int free_snapshot() {
  tavo::free_stor_info(head_stor_ptr);
  return 0;
}

constexpr StartUpStep start_up[] = {
    {.call = init_tavoFaultTable, .done = "Fault Init done\n"},
    {.call = init_tavoMemoryUnitTable, .done = "Memory Init done\n"},
    {.call = init_tavoMemoryUnitEnvStatsTable, .done = "MemoryEnv Init done\n"},
    {.call = init_tavoProcessorUnitTable, .done = "Processor Init done\n"},
    {.call = init_tavoProcessorEnvStatsTable, .done = "ProcessorEnv Init done\n"},
    {.call = init_tavoEquipmentFanTable, .done = "Fan Init done\n"},
    {.call = init_tavoEquipmentPsuTable, .done = "PSU Init done\n"},
    {.call = init_tavoComputeRackUnitTable, .done = "RackUnit Init done\n"},
    {.call = init_tavoComputeBoardTable, .done = "Board Init done\n"},
    {.call = init_tavoAdaptorUnitTable, .done = "Adaptor Init done\n"},
    {.call = init_tavoComputeMbPowerStatsTable, .done = "RackUnitMBPower Init done\n"},
    {.call = init_tavoComputeRackUnitMbTempStatsTable, .done = "RackUnitMBTemp Init done\n"},
    // The daemon is still on its own thread, but the threads that rebuild these lists will lock them as well.
    {.call = [] { return acquire_sa_lock(storage_lock); }, .done = nullptr},
    {.call = [] { return get_stor_info(&head_stor_ptr); }, .done = "GetStorInfo done\n"},
    {.call = init_tavoStorageControllerTable, .done = "StorageController Init done\n"},
    {.call = init_tavoStorageLocalDiskTable, .done = "StorageLocalDisk Init done\n"},
    {.call = init_tavoStorageLocalLunTable, .done = "StorageLocalLun Init done\n"},
    {.call = init_tavoStorageRaidBatteryTable, .done = "StorageRaidBattery Init done\n"},
    {.call = populate_sd_cards, .done = nullptr},
    {.call = init_tavoStorageVeltroControllerTable, .done = nullptr},
    {.call = init_tavoStorageVeltroCardTable, .done = nullptr},
    {.call = init_tavoStorageVeltroDriveTable, .done = nullptr},
    {.call = [] { return release_sa_lock(storage_lock); }, .done = nullptr},
    {.call = free_snapshot, .done = "Stor Init done\n"},
    {.call = init_tavoEquipmentHealthLedTable, .done = nullptr},
    {.call = create_inventory_thread, .done = "InventoryThread Init done\n"},
    {.call = create_stor_thread, .done = "StorageThread Init done\n"},
    {.call = create_velt_thread, .done = "VeltThread Init done\n"},
    // Last, when every table is registered: this thread fills the fault table and sends notifications.
    {.call = create_FE_thread, .done = "EventThread Init done\n"},
};

constexpr int (*shut_down[])() = {
    join_test_trap_thread, join_FE_thread, join_inventory_thread, join_stor_thread, join_velt_thread,
};

// Set when the module is loaded, since the daemon starts the thread when it likes.
constinit std::atomic<int> test_trap_run_flag = 1;

bool test_trap_runs() {
  return test_trap_run_flag.load(std::memory_order_relaxed) != 0;
}

void send_test_traps() {
  snmp_log(LOG_DEBUG, "TestTrap thread init done\n");
  tavo::FaultRow test_fault = {};
  create_dummy_trap_entry(&test_fault);
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGUSR1);
  while (test_trap_runs()) {
    int signal = 0;
    sigwait(&signals, &signal);
    if (signal == SIGUSR1) {
      snmp_log(LOG_DEBUG, "Called Test Trap\n");
      send_fault_trap(1, &test_fault);
    }
  }
}

}  // namespace

int init_subagent_modules(void) {
  for (const StartUpStep &step : start_up) {
    step.call();
    if (step.done != nullptr) {
      snmp_log(LOG_DEBUG, "%s", step.done);
    }
  }
  return 0;
}

int close_subagent_modules(void) {
  for (const auto join : shut_down) {
    join();
  }
  return 0;
}

void *SendTestTrap(void *) {
  tavo::run_thread(__func__, send_test_traps);
}

void stop_test_trap_thread(void) {
  snmp_log(LOG_DEBUG, "Stopping TestTrapThread\n");
  test_trap_run_flag.store(0, std::memory_order_relaxed);
}

int join_test_trap_thread(void) {
  // A handle that the daemon has left empty is no thread, and pthread_join would follow it all the same.
  const bool offered = &test_trap_thread != nullptr;
  if (offered && (test_trap_thread == 0 || pthread_join(test_trap_thread, nullptr) != 0)) {
    snmp_log(LOG_DEBUG, "!!! Unable to join test trap thread !!!!\n");
  }
  snmp_log(LOG_DEBUG, "TestThread exited\n");
  return 1;
}
