/* The controller's fault engine: a table of the active faults and a broadcaster of every change to it.
 *
 * A record describes one fault. Its layout is that of a 32-bit little-endian controller and does not change with the
 * machine that reads it: integers are little-endian, both times are 4 octets of signed seconds since 1970 (UTC), texts
 * end with a NUL or with their field. Read and write fields with memcpy at the offsets below, never through a cast. */
#pragma once

#include <stdint.h>

/* Offsets within a fault record, with the type and the size in octets of what stands there. */
enum {
  FAULT_CLASS_CODE = 0,       /* uint32: class of the affected object: 8 and 25 memory, 3 processor, ... */
  FAULT_UNIT_POSITION = 8,    /* uint32: position of the affected unit, a fan's number for the fan classes */
  FAULT_SEVERITY = 12,        /* uint32: 0 when the fault is cleared */
  FAULT_TAG = 20,             /* uint32: only its first octet is shown */
  FAULT_INDEX = 52,           /* uint32: the fault's number, one and the same from raise to clear */
  FAULT_AFFECTED_OBJECT = 96, /* text: the affected object */
  FAULT_AFFECTED_OBJECT_SIZE = 80,
  FAULT_DN = 176, /* text: distinguished name of the fault */
  FAULT_DN_SIZE = 112,
  FAULT_RN = 288, /* text: last element of the distinguished name */
  FAULT_RN_SIZE = 32,
  FAULT_AFFECTED_OID = 320,         /* 32 x uint32: sub-identifiers of the affected object */
  FAULT_AFFECTED_OID_CAPACITY = 32, /* sub-identifiers, not octets */
  FAULT_AFFECTED_OID_COUNT = 448,   /* uint32: how many of them count; not to be believed above the capacity */
  FAULT_DESCRIPTION = 452,          /* text */
  FAULT_DESCRIPTION_SIZE = 288,
  FAULT_FIRST_TIME = 740,        /* int32: seconds since 1970, when the fault was first seen */
  FAULT_LAST_TIME = 744,         /* int32: seconds since 1970, when it last changed */
  FAULT_PREVIOUS_SEVERITY = 748, /* uint8 */
  FAULT_OCCURRENCES = 749,       /* uint8 */
  FAULT_CAUSE = 752,             /* uint32: for fans also the fan code; 238 says that the fan is missing */
  FAULT_CODE = 824,              /* uint32 */
  FAULT_RECORD_SIZE = 960
};

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* The number of active faults, 0 also when the engine cannot be reached. */
int get_fe_table_count(void);

/* Fills `records`, room for `count` x FAULT_RECORD_SIZE octets, with the active faults from number `start` (0-based)
 * on. 0 on success; -1 when the table ends before start + count or when the engine cannot be reached, and then nothing
 * in `records` counts. */
int get_fe_table(void *records, int start, int count);

/* Connects to the broadcaster. 0 on success, and *connection is a descriptor (close-on-exec) that the caller closes;
 * otherwise an error number from errno.h, and *connection is untouched. Records of changes made after a successful
 * return are all received. */
int connect_to_fe_broadcaster(int *connection);

/* Waits for the next change and fills `record`, FAULT_RECORD_SIZE octets. Above 0: one record was received. 0: the
 * broadcaster has closed the connection, which the caller closes too. Below 0: an error, told by errno; EINTR when a
 * signal came before any octet of a record did. What `record` holds then does not count. */
int listen_to_fe_broadcaster(int *connection, void *record);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
