/* The controller's fault engine: a table of the active faults, and a broadcaster of every change to it.
 *
 * A record describes one fault. Its layout is the same on every machine: integers are little-endian, both times are 4
 * octets of signed seconds since 1970 (UTC), and a text ends with a NUL or with its field. Read and write fields with
 * memcpy at the offsets below, never through a cast. */
#pragma once

#include <stdint.h>

/* Offsets within a fault record. A size belongs to the text before it and is in octets. */
enum {
  FAULT_CLASS_CODE = 0,       /* uint32: the affected object's class */
  FAULT_UNIT_POSITION = 8,    /* uint32: the affected unit's position; for the fan classes, the fan's number */
  FAULT_SEVERITY = 12,        /* uint32: 0 if the fault is cleared */
  FAULT_TAG = 20,             /* uint32: the table shows only its first octet */
  FAULT_INDEX = 52,           /* uint32: the fault's number, which stays the same from raise to clear */
  FAULT_AFFECTED_OBJECT = 96, /* text: the affected object */
  FAULT_AFFECTED_OBJECT_SIZE = 80,
  FAULT_DN = 176, /* text: distinguished name of the fault */
  FAULT_DN_SIZE = 112,
  FAULT_RN = 288, /* text: the last element of the distinguished name */
  FAULT_RN_SIZE = 32,
  FAULT_AFFECTED_OID = 320,         /* 32 x uint32: sub-identifiers of the affected object */
  FAULT_AFFECTED_OID_CAPACITY = 32, /* sub-identifiers, not octets */
  FAULT_AFFECTED_OID_COUNT = 448,   /* uint32: how many of them are used; may be wrong and exceed the capacity */
  FAULT_DESCRIPTION = 452,          /* text */
  FAULT_DESCRIPTION_SIZE = 288,
  FAULT_FIRST_TIME = 740,        /* int32: when the fault was first raised, in seconds since 1970 */
  FAULT_LAST_TIME = 744,         /* int32: when it last changed, in seconds since 1970 */
  FAULT_PREVIOUS_SEVERITY = 748, /* uint8 */
  FAULT_OCCURRENCES = 749,       /* uint8 */
  FAULT_CAUSE = 752,             /* uint32: for fans, 238 means that the fan is missing */
  FAULT_CODE = 824,              /* uint32 */
  FAULT_RECORD_SIZE = 960
};

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* The number of active faults; 0 if the engine cannot be reached. */
int get_fe_table_count(void);

/* Fills `records`, count * FAULT_RECORD_SIZE octets, with the active faults from number `start` (0-based) on. Returns
 * 0, or -1 if the table ends before start + count or the engine cannot be reached; `records` is then undefined. */
int get_fe_table(void *records, int start, int count);

/* Connects to the broadcaster. Returns 0 and sets *connection to a close-on-exec descriptor, which the caller closes;
 * or returns an error number from errno.h and leaves *connection alone. The connection carries the record of every
 * change made after a successful return. */
int connect_to_fe_broadcaster(int *connection);

/* Waits for the next change and fills `record`, FAULT_RECORD_SIZE octets. A positive result: one record was received.
 * 0: the broadcaster has closed the connection, which the caller must close, too. Negative: errno says why, EINTR if a
 * signal arrived before a record did. `record` is undefined unless the result is positive. */
int listen_to_fe_broadcaster(int *connection, void *record);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
