// Loaded as a platform library in front of the simulator's: logs the calls that tell of rebuilds which the module
// itself says nothing about. The fan table asks for the last sensor number once a rebuild, the board table for the
// board area.
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <dlfcn.h>

#include <cstdint>

#include "platform/fru.h"
#include "platform/inventory.h"

namespace {

constexpr int last_sensor = 255;

// The simulator's function of this name; this library was linked with libbmcsim.so, so it is there.
template <class Function>
Function *simulated(const char *name) {
  static void *const library = dlopen("libbmcsim.so", RTLD_NOLOAD | RTLD_LAZY);
  return reinterpret_cast<Function *>(dlsym(library, name));
}

}  // namespace

int IPMI_SensorGetSensorData(int sensor, std::uint32_t *output, void *record) {
  static auto *const next = simulated<decltype(IPMI_SensorGetSensorData)>(__func__);
  if (sensor == last_sensor) {
    snmp_log(LOG_DEBUG, "witness: the last sensor is read\n");
  }
  return next(sensor, output, record);
}

int get_fru_board_area_from_id(int fru_id, void *area) {
  static auto *const next = simulated<decltype(get_fru_board_area_from_id)>(__func__);
  snmp_log(LOG_DEBUG, "witness: the board area is read\n");
  return next(fru_id, area);
}
