// A platform library in front of the simulator's. It logs two calls that show rebuilds which the module itself does not
// log: once per rebuild, the fan table reads the last sensor, and the board table the board area.
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <dlfcn.h>

#include <cstdint>

#include "platform/fru.h"
#include "platform/inventory.h"

namespace tavo {

namespace {

constexpr int last_sensor = 255;

// The simulator's function of this name. libbmcsim.so is loaded, because this library is linked with it.
template <class Function>
Function *simulated(const char *name) {
  static void *const library = dlopen("libbmcsim.so", RTLD_NOLOAD | RTLD_LAZY);
  return reinterpret_cast<Function *>(dlsym(library, name));
}

}  // namespace

extern "C" int IPMI_SensorGetSensorData(int sensor, std::uint32_t *output, void *record) {
  static auto *const next = simulated<decltype(IPMI_SensorGetSensorData)>(__func__);
  if (sensor == last_sensor) {
    snmp_log(LOG_DEBUG, "witness: the last sensor is read\n");
  }
  return next(sensor, output, record);
}

extern "C" int get_fru_board_area_from_id(int fru_id, void *area) {
  static auto *const next = simulated<decltype(get_fru_board_area_from_id)>(__func__);
  snmp_log(LOG_DEBUG, "witness: the board area is read\n");
  return next(fru_id, area);
}

}  // namespace tavo
