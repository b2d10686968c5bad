/* What a platform answers that has none of it: every function that the module needs. All are weak, so a function that
 * you define in another source of your library takes its place. */
#include <stddef.h>
#include <unistd.h>

#include "platform/fault_engine.h"
#include "platform/fru.h"
#include "platform/inventory.h"
#include "platform/storage_client.h"

#define ABSENT __attribute__((weak))

enum { FAILED = -1 };

/* For functions that wait for an event. If they returned, the module would call them again at once. */
static void wait_for_ever(void) {
  for (;;) {
    pause();
  }
}

/* The fault engine: no faults, and never a change. */

ABSENT int get_fe_table_count(void) {
  return 0;
}

ABSENT int get_fe_table(void *records, int start, int count) {
  (void)records;
  return start + count > 0 ? FAILED : 0;
}

ABSENT int connect_to_fe_broadcaster(int *connection) {
  (void)connection;
  wait_for_ever();
  return FAILED;
}

ABSENT int listen_to_fe_broadcaster(int *connection, void *record) {
  (void)connection, (void)record;
  wait_for_ever();
  return FAILED;
}

/* The inventory: no processors, memory modules or sensors. */

ABSENT int GetCPUItems(void *status, int size, const struct inventory_range *range, int *count) {
  (void)status, (void)size, (void)range, (void)count;
  return FAILED;
}

ABSENT int GetCPUInfo(void *status, int size, const struct inventory_range *range, void *records) {
  (void)status, (void)size, (void)range, (void)records;
  return FAILED;
}

ABSENT int GetMemoryItems(void *request, int size, const struct inventory_range *range, int *count) {
  (void)request, (void)size, (void)range, (void)count;
  return FAILED;
}

ABSENT int GetMemoryDetail(void *request, int size, const struct inventory_range *range, void *records) {
  (void)request, (void)size, (void)range, (void)records;
  return FAILED;
}

ABSENT int GetMemorySummary(void *request, int size, const struct inventory_range *range, void *summary) {
  (void)request, (void)size, (void)range, (void)summary;
  return FAILED;
}

ABSENT int getSensorName(const void *detail_record, int *number) {
  (void)detail_record, (void)number;
  return 0; /* no number is known */
}

ABSENT int IPMI_SensorGetSensorData(int sensor, uint32_t *output, void *record) {
  (void)sensor, (void)output, (void)record;
  return FAILED;
}

ABSENT int IPMI_Discrete_CheckPresence(const uint32_t sensor_entity_instance[3]) {
  (void)sensor_entity_instance;
  return FAILED;
}

ABSENT int IPMI_Thresh_Sensor_CheckPresence(const uint32_t sensor_entity_instance[3]) {
  (void)sensor_entity_instance;
  return 0xFF; /* the sensor service cannot be reached */
}

/* FRUs: none. */

ABSENT int get_fru_board_area_from_id(int fru_id, void *area) {
  (void)fru_id, (void)area;
  return FAILED;
}

ABSENT int get_fru_product_area_from_type_instance(int type, int instance, void *area) {
  (void)type, (void)instance, (void)area;
  return FAILED;
}

/* Storage: a stream without events, and no SD cards. */

static int stream;

ABSENT void *se_open_storage_events(int first, int second) {
  (void)first, (void)second;
  return &stream;
}

ABSENT void *se_get_next_storage_event(void *handle) {
  wait_for_ever();
  return handle;
}

ABSENT void se_close_storage_events(void *handle) {
  (void)handle;
}

ABSENT int veltutil_mgnt(struct velt_request *request) {
  (void)request;
  return FAILED;
}
