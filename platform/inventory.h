/* The platform inventory library: processors, memory modules and IPMI sensors.
 *
 * Records have the same layout on every machine: integers are little-endian, and a text ends with a NUL or with its
 * field. Read and write fields with memcpy at the offsets below, never through a cast. All the functions are thread
 * safe. */
#pragma once

#include <stdint.h>

/* Offsets within a processor record. */
enum {
  PROCESSOR_SOCKET = 0,         /* text: the socket's designation */
  PROCESSOR_VENDOR = 64,        /* text */
  PROCESSOR_ARCHITECTURE = 128, /* text: "Xeon", "Pentium_4" or another word */
  PROCESSOR_ARCHITECTURE_SIZE = 44,
  PROCESSOR_THREADS = 172,  /* int32 */
  PROCESSOR_SERIAL = 176,   /* text: the serial number */
  PROCESSOR_MODEL = 240,    /* text */
  PROCESSOR_SPEED = 304,    /* int32: MHz */
  PROCESSOR_CORES = 308,    /* int32 */
  PROCESSOR_STATUS = 316,   /* text: "Enabled" or another word */
  PROCESSOR_TEXT_SIZE = 64, /* of every text above but the architecture */
  PROCESSOR_RECORD_SIZE = 424
};

/* Offsets within a memory module's detail record. Every field is a text. */
enum {
  MEMORY_NAME = 0, /* the slot's name */
  MEMORY_NAME_SIZE = 64,
  MEMORY_CAPACITY = 64, /* "%d GB" or "%d MB" */
  MEMORY_CAPACITY_SIZE = 64,
  MEMORY_SPEED = 128, /* "%d MHz" */
  MEMORY_SPEED_SIZE = 16,
  MEMORY_LOCATION = 288, /* the slot's place: "NODE 0 CHANNEL 1 DIMM 0", "BANK0", ... */
  MEMORY_LOCATION_SIZE = 64,
  MEMORY_SERIAL = 416, /* the serial number */
  MEMORY_SERIAL_SIZE = 64,
  MEMORY_VISIBLE = 608,        /* "Yes" or "No" */
  MEMORY_STATUS = 624,         /* "Operable" or another word */
  MEMORY_WIDTH = 640,          /* "%d bits" */
  MEMORY_CLOCK = 656,          /* "%d" */
  MEMORY_SHORT_TEXT_SIZE = 16, /* of the last four texts */
  MEMORY_RECORD_SIZE = 672,
  MEMORY_SUMMARY_SIZE = 280 /* the contents are the library's own */
};

/* The first word of a memory request, which says what is wanted. */
enum { MEMORY_REQUEST_SUMMARY = 0, MEMORY_REQUEST_DETAIL = 8 };

/* Offsets within a sensor's data record. */
enum {
  SENSOR_ENTITY_ID = 20,       /* uint32: one of the entities below */
  SENSOR_ENTITY_INSTANCE = 24, /* uint32 */
  SENSOR_TYPE = 28,            /* uint32: one of the types below */
  SENSOR_NAME = 120,           /* text */
  SENSOR_NAME_SIZE = 20,
  SENSOR_RECORD_SIZE = 140
};

/* IPMI numbers. */
enum { ENTITY_POWER_SUPPLY = 0x0A, ENTITY_FAN = 0x1D, SENSOR_TYPE_FAN = 0x04, SENSOR_TYPE_ENTITY_PRESENCE = 0x25 };

/* A range of a list: `count` records from number `first` (0-based) on. */
struct inventory_range {
  int32_t first;
  int32_t count;
};

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Every Get function returns 0, or nonzero if it failed: -1 if the inventory cannot be reached, a positive number for
 * the inventory's own errors. The output is then undefined. `status` and `request` point to at least 4 octets, a word
 * in the machine's byte order, and are only read. `size` is the output's size in octets; no more is ever written. A
 * null `range` stands for the whole list. If the list is shorter than the output, the rest of the output stays as it
 * was. */

/* The number of processors that are present, enabled or not. `size` is 4. */
int GetCPUItems(void *status, int size, const struct inventory_range *range, int *count);

/* Processor records back to back, in socket order. `size` is a multiple of PROCESSOR_RECORD_SIZE. */
int GetCPUInfo(void *status, int size, const struct inventory_range *range, void *records);

/* The number of memory modules; the request is MEMORY_REQUEST_SUMMARY, `size` is 4. */
int GetMemoryItems(void *request, int size, const struct inventory_range *range, int *count);

/* Detail records back to back; the request is MEMORY_REQUEST_DETAIL, `size` a multiple of MEMORY_RECORD_SIZE. */
int GetMemoryDetail(void *request, int size, const struct inventory_range *range, void *records);

/* The summary of all modules; the request is MEMORY_REQUEST_SUMMARY, `size` is MEMORY_SUMMARY_SIZE. */
int GetMemorySummary(void *request, int size, const struct inventory_range *range, void *summary);

/* Sets *number to the number of the memory module that a detail record (MEMORY_RECORD_SIZE octets) describes and
 * returns nonzero; returns 0 if the library knows no number for it. */
int getSensorName(const void *detail_record, int *number);

/* Fills `record`, SENSOR_RECORD_SIZE octets, which the caller has zeroed, with the data of sensor number `sensor` (0 to
 * 255), and sets the word *output. Returns 0, or nonzero if there is no such sensor or it cannot be read. */
int IPMI_SensorGetSensorData(int sensor, uint32_t *output, void *record);

/* The argument of both presence calls is {sensor number, entity ID, entity instance}. */

/* 0: the entity is present. Nonzero: it is absent, or the sensor cannot tell. */
int IPMI_Discrete_CheckPresence(const uint32_t sensor_entity_instance[3]);

/* An IPMI completion code. 0 or 0xCB: the entity is present. 2 or 0xE0: it is absent. Any other: the sensor cannot
 * tell; 0xFF if the sensor service cannot be reached. */
int IPMI_Thresh_Sensor_CheckPresence(const uint32_t sensor_entity_instance[3]);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
