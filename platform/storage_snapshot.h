/* The storage agent's snapshot of every RAID controller, /var/stor_info_data.
 *
 * The file is a signed 32-bit count of controllers, then that many controller records back to back. Integers are
 * little-endian, and not all of them are aligned. A text ends with a NUL or with its field; an empty text means "not
 * known". Read and write fields with memcpy at the offsets below. The writer renames a complete new file over the old
 * one. */
#pragma once

/* The file. */
enum { STOR_CONTROLLER_COUNT = 0, STOR_CONTROLLER_RECORDS = 4, STOR_CONTROLLER_SIZE = 56272 };

/* Offsets within a controller record. The rest of the record is the writer's own. */
enum {
  STOR_CONTROLLER_ID = 0,       /* uint32 */
  STOR_CONTROLLER_MODE = 4,     /* uint32: with 0, 1, 3 or 6, the controller shows no drives of its own */
  STOR_CONTROLLER_LOCATION = 8, /* text, 64 octets; empty: the on-board SAS controller */
  STOR_CONTROLLER_LOCATION_SIZE = 64,
  STOR_CONTROLLER_FAULTY = 92,       /* uint32: nonzero if the controller has a fault */
  STOR_CONTROLLER_VENDOR = 104,      /* text, 32 octets */
  STOR_CONTROLLER_DESCRIPTION = 136, /* text, 128 octets */
  STOR_CONTROLLER_DESCRIPTION_SIZE = 128,
  STOR_CONTROLLER_WORD_232 = 232,     /* uint32 inside the description: a slot number if there are no drives */
  STOR_CONTROLLER_SERIAL = 264,       /* text, 32 octets */
  STOR_CONTROLLER_TYPE = 296,         /* text, 64 octets */
  STOR_CONTROLLER_REVISION = 360,     /* text, 32 octets */
  STOR_CONTROLLER_VOLUME_COUNT = 416, /* int32, at most STOR_VOLUME_CAPACITY */
  STOR_CONTROLLER_DRIVE_COUNT = 428,  /* int32, at most STOR_DRIVE_CAPACITY */
  STOR_CONTROLLER_DRIVES = 440,
  STOR_DRIVE_SIZE = 212,
  STOR_DRIVE_CAPACITY = 256,
  STOR_CONTROLLER_VOLUMES = 54712,
  STOR_VOLUME_SIZE = 24,
  STOR_VOLUME_CAPACITY = 64,
  STOR_BATTERY_TYPE = 56252,    /* uint32: 0 to 8 */
  STOR_BATTERY_PRESENT = 56264, /* uint32: exactly 1 if a battery is fitted */
  STOR_BATTERY_STATE = 56268    /* uint32: 1 if it is operable */
};

/* Offsets within a drive's record. */
enum {
  STOR_DRIVE_STATE = 0,          /* uint32 */
  STOR_DRIVE_SLOT = 4,           /* uint32, from 1 */
  STOR_DRIVE_CONNECTION = 24,    /* uint32 */
  STOR_DRIVE_MEDIA = 28,         /* uint32: 1 "HDD", 2 "SSD" */
  STOR_DRIVE_LINK = 32,          /* uint32 */
  STOR_DRIVE_CAPACITY_WORD = 36, /* uint64: the drive's size in octets */
  STOR_DRIVE_BLOCKS = 44,        /* uint64 */
  STOR_DRIVE_NAME = 84,          /* text; empty: the drive is not present */
  STOR_DRIVE_MODEL = 148,        /* text */
  STOR_DRIVE_REVISION = 180      /* text */
};

/* Offsets within a volume's record. */
enum {
  STOR_VOLUME_TYPE = 0,          /* uint32 */
  STOR_VOLUME_BLOCKS = 4,        /* uint64; not aligned */
  STOR_VOLUME_STATE = 12,        /* uint32: 0 if the entry holds no volume */
  STOR_VOLUME_CAPACITY_WORD = 16 /* uint64: the volume's size in octets */
};

/* The sizes of the texts above that have no size of their own, in octets. Only a controller's type is long. */
enum { STOR_TEXT_SIZE = 32, STOR_LONG_TEXT_SIZE = 64 };
