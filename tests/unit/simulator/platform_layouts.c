// What the layouts say twice must agree, no field may reach past its record, and every number is the format's.
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
_Static_assert(STOR_DRIVE_REVISION + STOR_TEXT_SIZE == STOR_DRIVE_SIZE, "snapshot");
_Static_assert(STOR_VOLUME_CAPACITY_WORD + 8 == STOR_VOLUME_SIZE, "snapshot");

/* The formats, number by number: both sides of each take their offsets from the headers, so that none of them would
 * notice a wrong one. */
// clang-format off

/* A fault record. */
_Static_assert(FAULT_CLASS_CODE            ==     0, "fault");
_Static_assert(FAULT_UNIT_POSITION         ==     8, "fault");
_Static_assert(FAULT_SEVERITY              ==    12, "fault");
_Static_assert(FAULT_TAG                   ==    20, "fault");
_Static_assert(FAULT_INDEX                 ==    52, "fault");
_Static_assert(FAULT_AFFECTED_OBJECT       ==    96, "fault");
_Static_assert(FAULT_AFFECTED_OBJECT_SIZE  ==    80, "fault");
_Static_assert(FAULT_DN                    ==   176, "fault");
_Static_assert(FAULT_DN_SIZE               ==   112, "fault");
_Static_assert(FAULT_RN                    ==   288, "fault");
_Static_assert(FAULT_RN_SIZE               ==    32, "fault");
_Static_assert(FAULT_AFFECTED_OID          ==   320, "fault");
_Static_assert(FAULT_AFFECTED_OID_CAPACITY ==    32, "fault");
_Static_assert(FAULT_AFFECTED_OID_COUNT    ==   448, "fault");
_Static_assert(FAULT_DESCRIPTION           ==   452, "fault");
_Static_assert(FAULT_DESCRIPTION_SIZE      ==   288, "fault");
_Static_assert(FAULT_FIRST_TIME            ==   740, "fault");
_Static_assert(FAULT_LAST_TIME             ==   744, "fault");
_Static_assert(FAULT_PREVIOUS_SEVERITY     ==   748, "fault");
_Static_assert(FAULT_OCCURRENCES           ==   749, "fault");
_Static_assert(FAULT_CAUSE                 ==   752, "fault");
_Static_assert(FAULT_CODE                  ==   824, "fault");
_Static_assert(FAULT_RECORD_SIZE           ==   960, "fault");

/* A processor. */
_Static_assert(PROCESSOR_SOCKET            ==     0, "processor");
_Static_assert(PROCESSOR_VENDOR            ==    64, "processor");
_Static_assert(PROCESSOR_ARCHITECTURE      ==   128, "processor");
_Static_assert(PROCESSOR_ARCHITECTURE_SIZE ==    44, "processor");
_Static_assert(PROCESSOR_THREADS           ==   172, "processor");
_Static_assert(PROCESSOR_SERIAL            ==   176, "processor");
_Static_assert(PROCESSOR_MODEL             ==   240, "processor");
_Static_assert(PROCESSOR_SPEED             ==   304, "processor");
_Static_assert(PROCESSOR_CORES             ==   308, "processor");
_Static_assert(PROCESSOR_STATUS            ==   316, "processor");
_Static_assert(PROCESSOR_TEXT_SIZE         ==    64, "processor");
_Static_assert(PROCESSOR_RECORD_SIZE       ==   424, "processor");

/* A memory module, and what its requests are. */
_Static_assert(MEMORY_NAME            ==     0, "memory");
_Static_assert(MEMORY_NAME_SIZE       ==    64, "memory");
_Static_assert(MEMORY_CAPACITY        ==    64, "memory");
_Static_assert(MEMORY_CAPACITY_SIZE   ==    64, "memory");
_Static_assert(MEMORY_SPEED           ==   128, "memory");
_Static_assert(MEMORY_SPEED_SIZE      ==    16, "memory");
_Static_assert(MEMORY_LOCATION        ==   288, "memory");
_Static_assert(MEMORY_LOCATION_SIZE   ==    64, "memory");
_Static_assert(MEMORY_SERIAL          ==   416, "memory");
_Static_assert(MEMORY_SERIAL_SIZE     ==    64, "memory");
_Static_assert(MEMORY_VISIBLE         ==   608, "memory");
_Static_assert(MEMORY_STATUS          ==   624, "memory");
_Static_assert(MEMORY_WIDTH           ==   640, "memory");
_Static_assert(MEMORY_CLOCK           ==   656, "memory");
_Static_assert(MEMORY_SHORT_TEXT_SIZE ==    16, "memory");
_Static_assert(MEMORY_RECORD_SIZE     ==   672, "memory");
_Static_assert(MEMORY_SUMMARY_SIZE    ==   280, "memory");
_Static_assert(MEMORY_REQUEST_SUMMARY ==     0, "memory");
_Static_assert(MEMORY_REQUEST_DETAIL  ==     8, "memory");

/* A sensor, and the IPMI numbers in it. */
_Static_assert(SENSOR_ENTITY_ID            ==    20, "sensor");
_Static_assert(SENSOR_ENTITY_INSTANCE      ==    24, "sensor");
_Static_assert(SENSOR_TYPE                 ==    28, "sensor");
_Static_assert(SENSOR_NAME                 ==   120, "sensor");
_Static_assert(SENSOR_NAME_SIZE            ==    20, "sensor");
_Static_assert(SENSOR_RECORD_SIZE          ==   140, "sensor");
_Static_assert(ENTITY_POWER_SUPPLY         ==  0x0A, "sensor");
_Static_assert(ENTITY_FAN                  ==  0x1D, "sensor");
_Static_assert(SENSOR_TYPE_FAN             ==  0x04, "sensor");
_Static_assert(SENSOR_TYPE_ENTITY_PRESENCE ==  0x25, "sensor");

/* The FRU areas. */
_Static_assert(FRU_BOARD_MANUFACTURER ==     7, "FRU");
_Static_assert(FRU_BOARD_PRODUCT_NAME ==    39, "FRU");
_Static_assert(FRU_BOARD_SERIAL       ==    71, "FRU");
_Static_assert(FRU_BOARD_AREA_SIZE    ==   168, "FRU");
_Static_assert(FRU_PRODUCT_SERIAL     ==   132, "FRU");
_Static_assert(FRU_TEXT_SIZE          ==    32, "FRU");
_Static_assert(FRU_ID_BOARD           ==     0, "FRU");
_Static_assert(FRU_TYPE_POWER_SUPPLY  ==    10, "FRU");

/* A storage event. */
_Static_assert(STORAGE_EVENT_TYPE                  ==     4, "event");
_Static_assert(STORAGE_EVENT_CONFIGURATION_CHANGED ==     7, "event");

/* What the SD-card service is asked for, and how much it answers. */
_Static_assert(VELT_REQUEST_CONTROLLER ==     1, "SD cards");
_Static_assert(VELT_REQUEST_CARDS      ==     2, "SD cards");
_Static_assert(VELT_REQUEST_PARTITIONS ==     3, "SD cards");
_Static_assert(VELT_CONTROLLER_SIZE    ==   216, "SD cards");
_Static_assert(VELT_CARD_SIZE          ==   504, "SD cards");
_Static_assert(VELT_CARD_COUNT         ==     2, "SD cards");
_Static_assert(VELT_CARDS_SIZE         ==  1008, "SD cards");
_Static_assert(VELT_PARTITION_SIZE     ==   188, "SD cards");
_Static_assert(VELT_PARTITION_COUNT    ==     5, "SD cards");
_Static_assert(VELT_PARTITIONS_SIZE    ==   940, "SD cards");

/* The SD-card controller. */
_Static_assert(VELT_CONTROLLER_COLUMN_4  ==     4, "SD controller");
_Static_assert(VELT_CONTROLLER_COLUMN_5  ==     8, "SD controller");
_Static_assert(VELT_CONTROLLER_COLUMN_6  ==    12, "SD controller");
_Static_assert(VELT_CONTROLLER_COLUMN_8  ==    20, "SD controller");
_Static_assert(VELT_CONTROLLER_COLUMN_15 ==    52, "SD controller");
_Static_assert(VELT_CONTROLLER_COLUMN_18 ==    56, "SD controller");
_Static_assert(VELT_CONTROLLER_COLUMN_19 ==    60, "SD controller");
_Static_assert(VELT_CONTROLLER_COLUMN_20 ==    64, "SD controller");
_Static_assert(VELT_CONTROLLER_COLUMN_21 ==    68, "SD controller");
_Static_assert(VELT_CONTROLLER_COLUMN_22 ==   100, "SD controller");
_Static_assert(VELT_CONTROLLER_COLUMN_25 ==   132, "SD controller");
_Static_assert(VELT_CONTROLLER_COLUMN_26 ==   164, "SD controller");
_Static_assert(VELT_CONTROLLER_COLUMN_28 ==   168, "SD controller");
_Static_assert(VELT_CONTROLLER_COLUMN_31 ==   172, "SD controller");
_Static_assert(VELT_CONTROLLER_COLUMN_43 ==   204, "SD controller");
_Static_assert(VELT_CONTROLLER_MODE      ==   208, "SD controller");
_Static_assert(VELT_CONTROLLER_COLUMN_30 ==   212, "SD controller");

/* An SD card. */
_Static_assert(VELT_CARD_SLOT      ==     0, "SD card");
_Static_assert(VELT_CARD_COLUMN_4  ==     4, "SD card");
_Static_assert(VELT_CARD_COLUMN_9  ==     8, "SD card");
_Static_assert(VELT_CARD_COLUMN_27 ==    12, "SD card");
_Static_assert(VELT_CARD_COLUMN_10 ==    20, "SD card");
_Static_assert(VELT_CARD_COLUMN_13 ==    24, "SD card");
_Static_assert(VELT_CARD_COLUMN_20 ==    96, "SD card");
_Static_assert(VELT_CARD_COLUMN_21 ==   128, "SD card");
_Static_assert(VELT_CARD_COLUMN_22 ==   160, "SD card");
_Static_assert(VELT_CARD_COLUMN_23 ==   168, "SD card");
_Static_assert(VELT_CARD_COLUMN_24 ==   172, "SD card");
_Static_assert(VELT_CARD_COLUMN_28 ==   212, "SD card");
_Static_assert(VELT_CARD_COLUMN_5  ==   216, "SD card");
_Static_assert(VELT_CARD_COLUMN_6  ==   220, "SD card");
_Static_assert(VELT_CARD_COLUMN_31 ==   224, "SD card");
_Static_assert(VELT_CARD_COLUMN_33 ==   228, "SD card");
_Static_assert(VELT_CARD_COLUMN_30 ==   264, "SD card");
_Static_assert(VELT_CARD_COLUMN_29 ==   268, "SD card");
_Static_assert(VELT_CARD_COLUMN_32 ==   300, "SD card");
_Static_assert(VELT_CARD_COLUMN_11 ==   364, "SD card");
_Static_assert(VELT_CARD_COLUMN_12 ==   396, "SD card");
_Static_assert(VELT_CARD_COLUMN_15 ==   428, "SD card");
_Static_assert(VELT_CARD_COLUMN_19 ==   460, "SD card");
_Static_assert(VELT_CARD_COLUMN_26 ==   464, "SD card");
_Static_assert(VELT_CARD_COLUMN_7  ==   468, "SD card");
_Static_assert(VELT_CARD_COLUMN_25 ==   500, "SD card");

/* A partition. */
_Static_assert(VELT_PARTITION_NUMBER    ==     0, "partition");
_Static_assert(VELT_PARTITION_COLUMN_4  ==     4, "partition");
_Static_assert(VELT_PARTITION_NAME      ==    12, "partition");
_Static_assert(VELT_PARTITION_COLUMN_12 ==    44, "partition");
_Static_assert(VELT_PARTITION_COLUMN_16 ==    60, "partition");
_Static_assert(VELT_PARTITION_COLUMN_17 ==    92, "partition");
_Static_assert(VELT_PARTITION_COLUMN_18 ==   124, "partition");
_Static_assert(VELT_PARTITION_COLUMN_7  ==   132, "partition");
_Static_assert(VELT_PARTITION_COLUMN_20 ==   136, "partition");
_Static_assert(VELT_PARTITION_COLUMN_22 ==   168, "partition");
_Static_assert(VELT_PARTITION_COLUMN_23 ==   172, "partition");
_Static_assert(VELT_PARTITION_COLUMN_21 ==   176, "partition");
_Static_assert(VELT_PARTITION_COLUMN_25 ==   180, "partition");
_Static_assert(VELT_PARTITION_COLUMN_24 ==   184, "partition");

/* The snapshot's file. */
_Static_assert(STOR_CONTROLLER_COUNT   ==     0, "snapshot");
_Static_assert(STOR_CONTROLLER_RECORDS ==     4, "snapshot");
_Static_assert(STOR_CONTROLLER_SIZE    == 56272, "snapshot");

/* A RAID controller. */
_Static_assert(STOR_CONTROLLER_ID               ==     0, "controller");
_Static_assert(STOR_CONTROLLER_MODE             ==     4, "controller");
_Static_assert(STOR_CONTROLLER_LOCATION         ==     8, "controller");
_Static_assert(STOR_CONTROLLER_LOCATION_SIZE    ==    64, "controller");
_Static_assert(STOR_CONTROLLER_FAULTY           ==    92, "controller");
_Static_assert(STOR_CONTROLLER_VENDOR        ==   104, "controller");
_Static_assert(STOR_CONTROLLER_DESCRIPTION      ==   136, "controller");
_Static_assert(STOR_CONTROLLER_DESCRIPTION_SIZE ==   128, "controller");
_Static_assert(STOR_CONTROLLER_WORD_232         ==   232, "controller");
_Static_assert(STOR_CONTROLLER_SERIAL        ==   264, "controller");
_Static_assert(STOR_CONTROLLER_TYPE        ==   296, "controller");
_Static_assert(STOR_CONTROLLER_REVISION        ==   360, "controller");
_Static_assert(STOR_CONTROLLER_VOLUME_COUNT     ==   416, "controller");
_Static_assert(STOR_CONTROLLER_DRIVE_COUNT      ==   428, "controller");
_Static_assert(STOR_CONTROLLER_DRIVES           ==   440, "controller");
_Static_assert(STOR_DRIVE_SIZE                  ==   212, "controller");
_Static_assert(STOR_DRIVE_CAPACITY              ==   256, "controller");
_Static_assert(STOR_CONTROLLER_VOLUMES          == 54712, "controller");
_Static_assert(STOR_VOLUME_SIZE                 ==    24, "controller");
_Static_assert(STOR_VOLUME_CAPACITY             ==    64, "controller");
_Static_assert(STOR_BATTERY_TYPE                == 56252, "controller");
_Static_assert(STOR_BATTERY_PRESENT             == 56264, "controller");
_Static_assert(STOR_BATTERY_STATE               == 56268, "controller");

/* A drive. */
_Static_assert(STOR_DRIVE_STATE         ==     0, "drive");
_Static_assert(STOR_DRIVE_SLOT          ==     4, "drive");
_Static_assert(STOR_DRIVE_CONNECTION      ==    24, "drive");
_Static_assert(STOR_DRIVE_MEDIA         ==    28, "drive");
_Static_assert(STOR_DRIVE_LINK     ==    32, "drive");
_Static_assert(STOR_DRIVE_CAPACITY_WORD ==    36, "drive");
_Static_assert(STOR_DRIVE_BLOCKS     ==    44, "drive");
_Static_assert(STOR_DRIVE_NAME          ==    84, "drive");
_Static_assert(STOR_DRIVE_MODEL     ==   148, "drive");
_Static_assert(STOR_DRIVE_REVISION     ==   180, "drive");

/* A volume. */
_Static_assert(STOR_VOLUME_TYPE      ==     0, "volume");
_Static_assert(STOR_VOLUME_BLOCKS ==     4, "volume");
_Static_assert(STOR_VOLUME_STATE     ==    12, "volume");
_Static_assert(STOR_VOLUME_CAPACITY_WORD  ==    16, "volume");

/* Texts of drives and controllers. */
_Static_assert(STOR_TEXT_SIZE      ==    32, "text");
_Static_assert(STOR_LONG_TEXT_SIZE ==    64, "text");
// clang-format on

int stands_alone;
