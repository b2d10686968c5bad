// What the layouts say twice must agree, and no field may reach past its record.
#include "platform/fault_engine.h"
#include "platform/fru.h"
#include "platform/inventory.h"
#include "platform/storage_client.h"
#include "platform/storage_snapshot.h"

_Static_assert(FAULT_AFFECTED_OBJECT + FAULT_AFFECTED_OBJECT_SIZE == FAULT_DN, "fault");
_Static_assert(FAULT_DN + FAULT_DN_SIZE == FAULT_RN, "fault");
_Static_assert(FAULT_RN + FAULT_RN_SIZE == FAULT_AFFECTED_OID, "fault");
_Static_assert(FAULT_AFFECTED_OID + 4 * FAULT_AFFECTED_OID_CAPACITY == FAULT_AFFECTED_OID_COUNT, "fault");
_Static_assert(FAULT_DESCRIPTION + FAULT_DESCRIPTION_SIZE == FAULT_FIRST_TIME, "fault");
_Static_assert(FAULT_FIRST_TIME + 4 == FAULT_LAST_TIME && FAULT_LAST_TIME + 4 == FAULT_PREVIOUS_SEVERITY, "fault");
_Static_assert(FAULT_CODE + 4 <= FAULT_RECORD_SIZE, "fault");

_Static_assert(PROCESSOR_ARCHITECTURE + PROCESSOR_ARCHITECTURE_SIZE == PROCESSOR_THREADS, "processor");
_Static_assert(PROCESSOR_SERIAL + PROCESSOR_TEXT_SIZE == PROCESSOR_MODEL, "processor");
_Static_assert(PROCESSOR_MODEL + PROCESSOR_TEXT_SIZE == PROCESSOR_SPEED, "processor");
_Static_assert(PROCESSOR_STATUS + PROCESSOR_TEXT_SIZE <= PROCESSOR_RECORD_SIZE, "processor");

_Static_assert(MEMORY_CLOCK + MEMORY_SHORT_TEXT_SIZE == MEMORY_RECORD_SIZE, "memory");
_Static_assert(MEMORY_SPEED == MEMORY_CAPACITY + MEMORY_CAPACITY_SIZE, "memory");
_Static_assert(SENSOR_NAME + SENSOR_NAME_SIZE == SENSOR_RECORD_SIZE, "sensor");

_Static_assert(FRU_BOARD_PRODUCT_NAME == FRU_BOARD_MANUFACTURER + FRU_TEXT_SIZE, "FRU");
_Static_assert(FRU_BOARD_SERIAL + FRU_TEXT_SIZE <= FRU_BOARD_AREA_SIZE, "FRU");
_Static_assert(FRU_PRODUCT_SERIAL + FRU_TEXT_SIZE <= FRU_PRODUCT_AREA_SIZE, "FRU");

_Static_assert(VELT_CARD_COUNT *VELT_CARD_SIZE == VELT_CARDS_SIZE, "SD cards");
_Static_assert(VELT_PARTITION_COUNT *VELT_PARTITION_SIZE == VELT_PARTITIONS_SIZE, "SD cards");
_Static_assert(VELT_CONTROLLER_COLUMN_30 + 4 == VELT_CONTROLLER_SIZE, "SD cards");
_Static_assert(VELT_CARD_COLUMN_25 + 4 == VELT_CARD_SIZE, "SD cards");
_Static_assert(VELT_PARTITION_COLUMN_24 + 4 == VELT_PARTITION_SIZE, "SD cards");

_Static_assert(STOR_CONTROLLER_DRIVES + STOR_DRIVE_CAPACITY * STOR_DRIVE_SIZE == STOR_CONTROLLER_VOLUMES, "snapshot");
_Static_assert(STOR_CONTROLLER_VOLUMES + STOR_VOLUME_CAPACITY * STOR_VOLUME_SIZE + 4 == STOR_BATTERY_TYPE, "snapshot");
_Static_assert(STOR_BATTERY_STATE + 4 == STOR_CONTROLLER_SIZE, "snapshot");
_Static_assert(STOR_DRIVE_COLUMN_12 + STOR_TEXT_SIZE == STOR_DRIVE_SIZE, "snapshot");
_Static_assert(STOR_VOLUME_COLUMN_8 + 8 == STOR_VOLUME_SIZE, "snapshot");

int stands_alone;
