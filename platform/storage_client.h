/* The storage client library: the stream of storage events, and the SD-card controller's inventory.
 *
 * Integers are in the machine's byte order, 32 bits unless another width is given; texts end with a NUL or with their
 * field. Read and write fields with memcpy at the offsets below, never through a cast. */
#pragma once

#include <stdint.h>

/* Offsets within a storage event. What follows the type belongs to the library. */
enum {
  STORAGE_EVENT_TYPE = 4, /* uint32: one of the types below, or another */
  STORAGE_EVENT_SIZE = 8  /* octets that every event has */
};

enum {
  STORAGE_EVENT_NONE = 0,                 /* nothing happened; tells that the storage service is away */
  STORAGE_EVENT_CONFIGURATION_CHANGED = 7 /* drives, volumes or controllers changed: read the snapshot again */
};

/* What veltutil_mgnt can be asked for, and the buffer that it fills. */
enum {
  VELT_REQUEST_CONTROLLER = 1, /* VELT_CONTROLLER_SIZE octets: one controller */
  VELT_REQUEST_CARDS = 2,      /* VELT_CARD_COUNT cards back to back */
  VELT_REQUEST_PARTITIONS = 3, /* VELT_PARTITION_COUNT partitions back to back */
  VELT_CONTROLLER_SIZE = 216,
  VELT_CARD_SIZE = 504,
  VELT_CARD_COUNT = 2,
  VELT_CARDS_SIZE = 1008,
  VELT_PARTITION_SIZE = 188,
  VELT_PARTITION_COUNT = 5,
  VELT_PARTITIONS_SIZE = 940
};

/* Offsets within the SD-card controller's buffer: a number is the column of tavoStorageVeltroControllerTable that shows
 * the field. Texts have 32 octets unless the next field leaves less or more room. */
enum {
  VELT_CONTROLLER_COLUMN_4 = 4,
  VELT_CONTROLLER_COLUMN_5 = 8,
  VELT_CONTROLLER_COLUMN_6 = 12,
  VELT_CONTROLLER_COLUMN_8 = 20, /* text */
  VELT_CONTROLLER_COLUMN_15 = 52,
  VELT_CONTROLLER_COLUMN_18 = 56,
  VELT_CONTROLLER_COLUMN_19 = 60,
  VELT_CONTROLLER_COLUMN_20 = 64,
  VELT_CONTROLLER_COLUMN_21 = 68,  /* text */
  VELT_CONTROLLER_COLUMN_22 = 100, /* text */
  VELT_CONTROLLER_COLUMN_25 = 132, /* text */
  VELT_CONTROLLER_COLUMN_26 = 164,
  VELT_CONTROLLER_COLUMN_28 = 168,
  VELT_CONTROLLER_COLUMN_31 = 172, /* text */
  VELT_CONTROLLER_COLUMN_43 = 204,
  VELT_CONTROLLER_MODE = 208, /* column 45; partitions are classified by it too */
  VELT_CONTROLLER_COLUMN_30 = 212
};

/* Offsets within a card: a number is the column of tavoStorageVeltroCardTable. */
enum {
  VELT_CARD_SLOT = 0, /* int32: 1 or 2; 0 when no card is there */
  VELT_CARD_COLUMN_4 = 4,
  VELT_CARD_COLUMN_9 = 8,
  VELT_CARD_COLUMN_27 = 12,
  VELT_CARD_COLUMN_10 = 20,
  VELT_CARD_COLUMN_13 = 24,  /* text, 72 octets */
  VELT_CARD_COLUMN_20 = 96,  /* text */
  VELT_CARD_COLUMN_21 = 128, /* text */
  VELT_CARD_COLUMN_22 = 160, /* uint64 */
  VELT_CARD_COLUMN_23 = 168,
  VELT_CARD_COLUMN_24 = 172, /* text, 40 octets */
  VELT_CARD_COLUMN_28 = 212,
  VELT_CARD_COLUMN_5 = 216,
  VELT_CARD_COLUMN_6 = 220,
  VELT_CARD_COLUMN_31 = 224,
  VELT_CARD_COLUMN_33 = 228,
  VELT_CARD_COLUMN_30 = 264,
  VELT_CARD_COLUMN_29 = 268, /* text */
  VELT_CARD_COLUMN_32 = 300, /* text, 64 octets */
  VELT_CARD_COLUMN_11 = 364, /* text */
  VELT_CARD_COLUMN_12 = 396, /* text */
  VELT_CARD_COLUMN_15 = 428, /* text */
  VELT_CARD_COLUMN_19 = 460,
  VELT_CARD_COLUMN_26 = 464,
  VELT_CARD_COLUMN_7 = 468, /* text */
  VELT_CARD_COLUMN_25 = 500
};

/* Offsets within a partition: a number is the column of tavoStorageVeltroDriveTable. */
enum {
  VELT_PARTITION_NUMBER = 0, /* int32: 1 to 5; 0 when the entry is empty */
  VELT_PARTITION_COLUMN_4 = 4,
  VELT_PARTITION_NAME = 12,       /* text */
  VELT_PARTITION_COLUMN_12 = 44,  /* uint64 */
  VELT_PARTITION_COLUMN_16 = 60,  /* text */
  VELT_PARTITION_COLUMN_17 = 92,  /* text */
  VELT_PARTITION_COLUMN_18 = 124, /* uint64 */
  VELT_PARTITION_COLUMN_7 = 132,
  VELT_PARTITION_COLUMN_20 = 136, /* text */
  VELT_PARTITION_COLUMN_22 = 168,
  VELT_PARTITION_COLUMN_23 = 172,
  VELT_PARTITION_COLUMN_21 = 176,
  VELT_PARTITION_COLUMN_25 = 180,
  VELT_PARTITION_COLUMN_24 = 184
};

/* One question to the SD-card service. */
struct velt_request {
  uint32_t kind;        /* VELT_REQUEST_... */
  uint32_t count;       /* controllers asked for: 1 */
  uint32_t words[4];    /* zero */
  char controller[32];  /* "Veltro-0" */
  void *buffer;         /* filled on success */
  uint32_t buffer_size; /* octets: the size that belongs to the kind */
};

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Opens the event stream. The two arguments are 0. Null only when memory is short: a storage service that is away is
 * waited for in se_get_next_storage_event. */
void *se_open_storage_events(int, int);

/* Waits for the next event and returns its record, STORAGE_EVENT_SIZE octets or more. Never null. The record belongs to
 * the stream and stands until the next call. While the storage service is away, an event of type STORAGE_EVENT_NONE
 * comes about once a second. */
void *se_get_next_storage_event(void *handle);

/* Closes the stream; null does nothing. */
void se_close_storage_events(void *handle);

/* Asks the SD-card service. 0 on success, and the buffer is filled; otherwise nonzero (unknown kind or controller, a
 * buffer of the wrong size, no controller fitted, or the service cannot be reached) and the buffer is untouched. */
int veltutil_mgnt(struct velt_request *request);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
