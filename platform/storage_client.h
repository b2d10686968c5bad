/* The storage client library: the stream of storage events, and the SD-card controller's inventory. Also where the
 * SD-card service tells the module that this inventory has changed.
 *
 * Integers are in the machine's byte order and have 32 bits unless a comment says otherwise. A text ends with a NUL or
 * with its field. Read and write fields with memcpy at the offsets below, never through a cast. */
#pragma once

#include <stdint.h>

/* Offsets within a storage event. What follows the type is the library's own. */
enum {
  STORAGE_EVENT_TYPE = 4, /* uint32: one of the types below, or another */
  STORAGE_EVENT_SIZE = 8  /* the smallest size of an event, in octets */
};

enum {
  STORAGE_EVENT_NONE = 0,                 /* no event: the storage service is away */
  STORAGE_EVENT_CONFIGURATION_CHANGED = 7 /* drives, volumes or controllers changed; the snapshot must be read again */
};

/* What veltutil_mgnt can be asked for, and the sizes of the buffers that it fills, in octets. */
enum {
  VELT_REQUEST_CONTROLLER = 1, /* one controller */
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

/* Offsets within the SD-card controller's record. The number in a name is the column of
 * tavoStorageVeltroControllerTable that shows the field. Here and below, a text has 32 octets unless a comment says
 * otherwise. */
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
  VELT_CONTROLLER_MODE = 208, /* column 45; also decides the kind of some partitions */
  VELT_CONTROLLER_COLUMN_30 = 212
};

/* Offsets within a card's record. The number in a name is a column of tavoStorageVeltroCardTable. */
enum {
  VELT_CARD_SLOT = 0, /* int32: 1 or 2; 0 if no card is there */
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

/* Offsets within a partition's record. The number in a name is a column of tavoStorageVeltroDriveTable. */
enum {
  VELT_PARTITION_NUMBER = 0, /* int32: 1 to 5; 0 if the entry is empty */
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

/* The Unix stream socket on which the module listens for changes of the SD cards. The service connects to it after each
 * change; what it sends has no meaning. */
static const char VELT_SOCKET_PATH[] = "/tmp/snmp_velt_sock";

/* A request to the SD-card service. */
struct velt_request {
  uint32_t kind;        /* VELT_REQUEST_... */
  uint32_t count;       /* how many controllers: 1 */
  uint32_t words[4];    /* zero */
  char controller[32];  /* "Veltro-0" */
  void *buffer;         /* filled on success */
  uint32_t buffer_size; /* octets: the size for this kind */
};

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Opens the event stream. Both arguments are 0. Returns null only if memory runs out: if the storage service is away,
 * the stream opens all the same. */
void *se_open_storage_events(int, int);

/* Waits for the next event and returns its record, STORAGE_EVENT_SIZE octets or more, and never null. The record
 * belongs to the stream and is valid until the next call. While the storage service is away, an event of type
 * STORAGE_EVENT_NONE arrives about once a second. */
void *se_get_next_storage_event(void *handle);

/* Closes the stream. Does nothing if `handle` is null. */
void se_close_storage_events(void *handle);

/* Sends a request to the SD-card service. Returns 0 and fills the buffer, or returns nonzero and leaves it alone: if
 * the kind or the controller is unknown, the buffer has the wrong size, no controller is fitted, or the service cannot
 * be reached. */
int veltutil_mgnt(struct velt_request *request);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
