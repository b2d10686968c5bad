#include "threads/inventory_refresh.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <unistd.h>

#include <ctime>

#include "core/access_lock.h"
#include "core/background_thread.h"
#include "tables/stor_rebuild.h"
#include "tables/tavoAdaptorUnitTable.h"
#include "tables/tavoComputeMbPowerStatsTable.h"
#include "tables/tavoComputeRackUnitMbTempStatsTable.h"
#include "tables/tavoComputeRackUnitTable.h"
#include "tables/tavoEquipmentFanTable.h"
#include "tables/tavoEquipmentHealthLedTable.h"
#include "tables/tavoEquipmentPsuTable.h"
#include "tables/tavoMemoryUnitEnvStatsTable.h"
#include "tables/tavoMemoryUnitTable.h"
#include "tables/tavoProcessorEnvStatsTable.h"
#include "tables/tavoProcessorUnitTable.h"

namespace tavo {

void RefreshPass::serve(const RefreshRequests &requests) {
  if (requests.fans) {
    sleep(10);
    snmp_log(LOG_DEBUG, "FAN refresh requested\n");
    once(Inventory::fans);
    once(Inventory::board_statistics);
  }
  if (requests.supplies) {
    snmp_log(LOG_DEBUG, "PSU refresh requested\n");
    sleep(10);
    once(Inventory::supplies);
    once(Inventory::board_statistics);
    once(Inventory::fans);
  }
  if (requests.memory) {
    snmp_log(LOG_DEBUG, "MEM refresh requested\n");
    once(Inventory::memory);
    once(Inventory::rack_unit);
    once(Inventory::board_statistics);
  }
  if (requests.processors) {
    snmp_log(LOG_DEBUG, "CPU refresh requested\n");
    once(Inventory::processors);
    once(Inventory::rack_unit);
    once(Inventory::board_statistics);
  }
  if (requests.storage) {
    sleep(60);
    once(Inventory::storage);
  }
  if (requests.adaptors) {
    snmp_log(LOG_DEBUG, "ADAPTOR refresh requested\n");
    sleep(10);
    once(Inventory::adaptors);
  }
}

void RefreshPass::refresh_periodically(int &supply_refreshes_left) {
  for (const Inventory kind : {Inventory::memory, Inventory::processors, Inventory::rack_unit,
                               Inventory::board_statistics, Inventory::adaptors}) {
    once(kind);
  }
  if (supply_refreshes_left > 0) {
    once(Inventory::supplies);
    --supply_refreshes_left;
  }
  once(Inventory::leds);
}

void RefreshPass::once(Inventory kind) {
  const auto bit = static_cast<std::size_t>(kind);
  if (!rebuilt_.test(bit)) {
    rebuilt_.set(bit);
    rebuild_(kind);
  }
}

namespace {

constexpr ThreadDescription description = {
    .start_routine = inventory_thread,
    .source = "inventory_refresh.c",
    .creating = "%s: Creating Inventory thread\n",
    .create_failed = "Unable to create inventory thread\n",
    .stopping = "Stopping InventoryThread\n",
    .join_failed = "Unable to join inventory thread\n",
    .exited = "InventoryThread exited\n",
    .release_before_attributes = [] { destroy_inventory_resource(); },
};

constinit BackgroundThread thread(description);

// Each rebuild takes its table's own lock; none is held between two of them. A rebuild that fails leaves its table as
// it is until the next one.
void rebuild(Inventory kind) {
  switch (kind) {
    case Inventory::fans:
      initialize_fan_table(1);
      break;
    case Inventory::supplies:
      initialize_psu_table(1);
      break;
    case Inventory::board_statistics:
      initialize_computemb_powerstats(1);
      initialize_computerackunitmb_tempstats(1);
      break;
    case Inventory::memory:
      initialize_memory_table(1);
      initialize_memoryunit_envstats(1);
      break;
    case Inventory::processors:
      initialize_processor_table(1);
      initialize_processor_envstats(1);
      break;
    case Inventory::rack_unit:
      initialize_rackunit_table(1);
      break;
    case Inventory::storage:
      reinit_stor_table(1);
      break;
    case Inventory::adaptors:
      initialize_adaptorunit_table(1);
      break;
    case Inventory::leds:
      initialize_health_led_table(1);
      break;
  }
}

// Reads the requests and takes them away. Any code of a kind stands for all of its codes.
RefreshRequests take_requests() {
  acquire_inventory_lock();
  RefreshRequests requests;
  requests.fans = check_inventory_status(29) != 0;
  requests.supplies = check_inventory_status(10) != 0;
  requests.memory = check_inventory_status(8) != 0;
  requests.processors = check_inventory_status(3) != 0;
  requests.storage = check_inventory_status(208) != 0;
  requests.adaptors = check_inventory_status(11) != 0;
  release_inventory_lock();
  return requests;
}

void keep_fresh() {
  snmp_log(LOG_DEBUG, "InventoryThread initiated\n");
  std::time_t last_check = std::time(nullptr);
  std::time_t last_periodic = last_check;
  int supply_refreshes_left = 3;
  sleep(60);
  while (thread.is_running()) {
    if (std::time(nullptr) - last_check > 10) {
      RefreshPass pass(rebuild);
      pass.serve(take_requests());
      if (std::time(nullptr) - last_periodic > 100) {
        pass.refresh_periodically(supply_refreshes_left);
        last_periodic = std::time(nullptr);
      }
      last_check = std::time(nullptr);
    }
    sleep(10);
  }
}

}  // namespace
}  // namespace tavo

int create_inventory_thread(void) {
  return tavo::thread.create(__func__, __LINE__);
}

void stop_inventory_thread(void) {
  tavo::thread.stop();
}

int join_inventory_thread(void) {
  tavo::thread.join();
  return 0;
}

void *inventory_thread(void *) {
  tavo::run_thread(__func__, tavo::keep_fresh);
}
