// The storage snapshot: every RAID controller as the storage agent last wrote it to "/var/stor_info_data", read whole
// into a list for as long as the tables are being built from it. platform/storage_snapshot.h has the format.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/record.h"
#include "platform/storage_snapshot.h"

namespace tavo {

inline constexpr const char *stor_info_path = "/var/stor_info_data";

// More controllers than this (about 55 MiB of records) are not a server but a damaged file.
inline constexpr std::int32_t most_stor_controllers = 1024;

// One controller: the record as read, then the link to the next, null at the end. Made with calloc.
struct StorController {
  std::byte record[STOR_CONTROLLER_SIZE];
  StorController *next;
};
static_assert(offsetof(StorController, next) == STOR_CONTROLLER_SIZE);

// A controller's record, with the arrays inside it. The counts in the record are believed only up to the room it has.
class ControllerRecord : public Record {
 public:
  explicit ControllerRecord(const StorController &controller) : Record(controller.record) {}

  // What the controller's names end with: its location, or "SAS" for the on-board controller, which has none.
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

// The snapshot in the file's order. Null except between a read and the end of the rebuild that it is for. Guarded by
// subagent lock 2.
extern StorController *head_stor_ptr;

// The daemon's own; the module neither reads nor writes them.
extern uint32_t flag_compat_stor_found;
extern unsigned char tmp_raid_ptr[1024];

// Reads the file into a list under `head`, the address of a pointer like head_stor_ptr. 1 when every record was read. 0
// when the file counts none: then `head` is null. 0 as well, and the reason logged, when the file cannot be opened or
// lacks its count, or when a record cannot be read or kept: those before that one stand under `head`, and where there
// are none `head` is as it was. A list that `head` already leads to is not freed. Never waits, whatever stands at the
// file's path.
int get_stor_info(void *head);

// Converts the 32-bit integers of a controller record, STOR_CONTROLLER_SIZE octets, to network byte order in place, in
// every entry of its arrays whatever its counts say; 64-bit integers stay as they are. 1; 0, and a log line, when
// `record` is null.
int convert_host_to_network(void *record);
}
#pragma GCC visibility pop

}  // namespace tavo
