/* A platform library: what the module asks the management controller, answered for a made-up server with two processors
 * and one fault. Start your own from it: replace each answer below by a call to your services, and move functions here
 * from absent.c, which answers for everything that this server lacks. The headers say what each function promises. */
#include <errno.h>
#include <stdint.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "platform/fault_engine.h"
#include "platform/inventory.h"

/* Records have the same layout on every machine: integers are little-endian, and each field is at its offset. */
static void put_word(unsigned char *field, uint32_t value) {
  for (int i = 0; i < 4; ++i) {
    field[i] = (unsigned char)(value >> (8 * i));
  }
}

/* `size`: of the field. The record is zeroed, so the text ends with a NUL. */
static void put_text(unsigned char *field, size_t size, const char *text) {
  const size_t length = strlen(text);
  memcpy(field, text, length < size ? length : size - 1);
}

/* Processors: two, both enabled. The module's threads call these functions at the same time as each other. */

struct processor {
  const char *socket;
  const char *serial;
};

static const struct processor processors[] = {{"CPU1", "SN-0001"}, {"CPU2", "SN-0002"}};
enum { PROCESSOR_COUNT = sizeof processors / sizeof processors[0] };

int GetCPUItems(void *status, int size, const struct inventory_range *range, int *count) {
  (void)status, (void)size, (void)range;
  *count = PROCESSOR_COUNT;
  return 0;
}

int GetCPUInfo(void *status, int size, const struct inventory_range *range, void *records) {
  (void)status, (void)range;
  unsigned char *record = records;
  for (int i = 0; i < PROCESSOR_COUNT && size >= PROCESSOR_RECORD_SIZE; ++i, size -= PROCESSOR_RECORD_SIZE) {
    memset(record, 0, PROCESSOR_RECORD_SIZE);
    put_text(record + PROCESSOR_SOCKET, PROCESSOR_TEXT_SIZE, processors[i].socket);
    put_text(record + PROCESSOR_VENDOR, PROCESSOR_TEXT_SIZE, "Example");
    put_text(record + PROCESSOR_ARCHITECTURE, PROCESSOR_ARCHITECTURE_SIZE, "Xeon");
    put_text(record + PROCESSOR_MODEL, PROCESSOR_TEXT_SIZE, "Example processor");
    put_text(record + PROCESSOR_SERIAL, PROCESSOR_TEXT_SIZE, processors[i].serial);
    put_text(record + PROCESSOR_STATUS, PROCESSOR_RECORD_SIZE - PROCESSOR_STATUS, "Enabled");
    put_word(record + PROCESSOR_SPEED, 2600);
    put_word(record + PROCESSOR_CORES, 8);
    put_word(record + PROCESSOR_THREADS, 16);
    record += PROCESSOR_RECORD_SIZE;
  }
  return 0;
}

/* Faults: the second processor is too hot. The engine raises this when the module connects. */

enum { PROCESSOR_CLASS = 3, MAJOR = 5, FAULT_NUMBER = 7 };

static int raised; /* used by the module's fault event thread alone */

static void describe_fault(unsigned char *record) {
  const uint32_t now = (uint32_t)time(NULL);
  memset(record, 0, FAULT_RECORD_SIZE);
  put_word(record + FAULT_CLASS_CODE, PROCESSOR_CLASS);
  put_word(record + FAULT_UNIT_POSITION, 2);
  put_word(record + FAULT_SEVERITY, MAJOR);
  put_word(record + FAULT_INDEX, FAULT_NUMBER);
  put_text(record + FAULT_AFFECTED_OBJECT, FAULT_AFFECTED_OBJECT_SIZE, "sys/rack-unit-1/board/cpu-2");
  put_text(record + FAULT_DN, FAULT_DN_SIZE, "sys/rack-unit-1/board/cpu-2/fault-7");
  put_text(record + FAULT_RN, FAULT_RN_SIZE, "fault-7");
  put_text(record + FAULT_DESCRIPTION, FAULT_DESCRIPTION_SIZE, "Processor 2 is too hot");
  put_word(record + FAULT_FIRST_TIME, now);
  put_word(record + FAULT_LAST_TIME, now);
  record[FAULT_OCCURRENCES] = 1;
}

int get_fe_table_count(void) {
  return raised;
}

int get_fe_table(void *records, int start, int count) {
  if (start + count > raised) {
    return -1;
  }
  if (count == 1) {
    describe_fault(records);
  }
  return 0;
}

/* The connection is the reading end of a pipe, and each octet in it is a change. A failure would be tried again at once
 * and without a pause, so a service that is down must be waited for here. */
int connect_to_fe_broadcaster(int *connection) {
  int ends[2];
  if (pipe(ends) != 0) {
    return errno;
  }
  *connection = ends[0];
  return write(ends[1], "", 1) == 1 ? 0 : errno; /* the writing end stays open: the engine goes on */
}

int listen_to_fe_broadcaster(int *connection, void *record) {
  char change;
  const int received = (int)read(*connection, &change, 1);
  if (received > 0) {
    raised = 1;
    describe_fault(record);
  }
  return received;
}
