// The storage snapshot: every RAID controller as the storage agent last wrote it to "/var/stor_info_data". The list of
// them lives only while the tables are built from it. platform/storage_snapshot.h describes the format.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/record.h"
#include "platform/storage_snapshot.h"

namespace tavo {

inline constexpr const char *stor_info_path = "/var/stor_info_data";

// A file with more controllers than this (about 55 MiB of records) is damaged.
inline constexpr std::int32_t most_stor_controllers = 1024;

// One controller: the record as read, then the link to the next, null at the end. Made with calloc.
struct StorController {
  std::byte record[STOR_CONTROLLER_SIZE];
  StorController *next;
};
static_assert(offsetof(StorController, next) == STOR_CONTROLLER_SIZE);

// A controller's record and the arrays in it. The record's counts hold only as far as the arrays have room.
class ControllerRecord : public Record {
 public:
  explicit ControllerRecord(const StorController &controller) : Record(controller.record) {}

  // The end of the controller's names: its location, or "SAS" for the on-board controller, which has none.
  std::string_view location() const;

  std::size_t drive_count() const;
  Record drive(std::size_t i) const;  // `i` below drive_count()
  std::size_t volume_count() const;
  Record volume(std::size_t i) const;  // `i` below volume_count()
};

// Frees the list and leaves `head` null.
void free_stor_info(StorController *&head);

#pragma GCC visibility push(default)
extern "C" {

// The snapshot in the file's order. Null except from a read to the end of the rebuild that it serves. Guarded by the
// storage lock.
extern StorController *head_stor_ptr;

// The daemon's own; the module neither reads nor writes them.
extern uint32_t flag_compat_stor_found;
extern unsigned char tmp_raid_ptr[1024];

// Reads the file into a list under `head`, the address of a pointer like head_stor_ptr; a list that it already points
// to is not freed. 1 if every record was read. 0 if the file's count is not positive: then the pointer becomes null. 0,
// too, and the reason logged, if the file cannot be opened or lacks its count, or a record cannot be read or kept: then
// the list holds the records before that one, and without any the pointer is left alone. Never waits, even if the path
// leads to a pipe.
int get_stor_info(void *head);

// Converts the 32-bit integers of a controller record, STOR_CONTROLLER_SIZE octets, to network byte order in place, in
// every entry of its arrays whatever its counts say; 64-bit integers stay as they are. 1; 0, and a log line, when
// `record` is null.
int convert_host_to_network(void *record);
}
#pragma GCC visibility pop

}  // namespace tavo
