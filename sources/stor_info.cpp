#include "sources/stor_info.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <span>

#include "core/descriptor.h"
#include "core/mutex_hold.h"
#include "core/zeroed.h"

namespace tavo {

StorController *head_stor_ptr = nullptr;
uint32_t flag_compat_stor_found = 0;
unsigned char tmp_raid_ptr[1024] = {};

namespace {

// False if the file ends, or cannot be read, before `to` is full.
bool read_whole(const Descriptor &file, std::span<std::byte> to) {
  return read_up_to(file, to) == to.size();
}

// A record's count, which may be any number, as far as its array has room.
std::size_t bounded(std::int32_t count, std::int32_t capacity) {
  return static_cast<std::size_t>(std::clamp(count, 0, capacity));
}

// Null if memory is short or the file counts too many controllers.
Zeroed<StorController> make_controller(std::int32_t index) {
  return index > most_stor_controllers ? nullptr : make_zeroed<StorController>();
}

// Whether the file goes on for a whole record.
bool record_follows(const Descriptor &file) {
  const off_t here = lseek(file.get(), 0, SEEK_CUR);
  std::byte last;
  return here >= 0 && pread(file.get(), &last, sizeof last, here + STOR_CONTROLLER_SIZE - 1) == sizeof last;
}

// A record is read to where it stays: on a stack it would take 55 KiB, which a stack never gives back.
int read_records(const Descriptor &file, std::int32_t count, StorController **link) {
  for (std::int32_t index = 1; index <= count; ++index) {
    const bool follows = record_follows(file);
    auto controller = follows ? make_controller(index) : nullptr;
    if (follows && controller == nullptr) {
      snmp_log(LOG_ERR, "Unable to get memory\n");
      return 0;
    }
    if (!follows || !read_whole(file, controller->record)) {
      snmp_log(LOG_ERR, "Unable to read ctrl from %s for index %d\n", stor_info_path, index);
      return 0;
    }
    *link = controller.release();
    link = &(*link)->next;
  }
  return 1;
}

// A run of 32-bit integers in a record.
struct Words {
  std::size_t offset;
  std::size_t count;
};

constexpr auto controller_words = std::to_array<Words>({
    {.offset = STOR_CONTROLLER_ID, .count = 2},
    {.offset = 72, .count = 8},
    {.offset = 392, .count = 12},
    {.offset = 56248, .count = 6},
});
constexpr auto drive_words = std::to_array<Words>({
    {.offset = STOR_DRIVE_STATE, .count = 2},
    {.offset = STOR_DRIVE_CONNECTION, .count = 3},
});
constexpr auto volume_words = std::to_array<Words>({
    {.offset = STOR_VOLUME_TYPE, .count = 1},
    {.offset = STOR_VOLUME_STATE, .count = 1},
});

void convert(std::byte *record, std::span<const Words> words) {
  for (const Words &run : words) {
    for (std::size_t i = 0; i < run.count; ++i) {
      std::byte *const at = record + run.offset + i * sizeof(std::uint32_t);
      std::uint32_t word;
      std::memcpy(&word, at, sizeof word);
      word = htonl(word);
      std::memcpy(at, &word, sizeof word);
    }
  }
}

constinit pthread_mutex_t conversion_mutex = PTHREAD_MUTEX_INITIALIZER;

}  // namespace

std::string_view ControllerRecord::location() const {
  const std::string_view location = text(STOR_CONTROLLER_LOCATION, STOR_CONTROLLER_LOCATION_SIZE);
  return location.empty() ? "SAS" : location;
}

std::size_t ControllerRecord::drive_count() const {
  return bounded(i32(STOR_CONTROLLER_DRIVE_COUNT), STOR_DRIVE_CAPACITY);
}

Record ControllerRecord::drive(std::size_t i) const {
  return part(STOR_CONTROLLER_DRIVES + i * STOR_DRIVE_SIZE, STOR_DRIVE_SIZE);
}

std::size_t ControllerRecord::volume_count() const {
  return bounded(i32(STOR_CONTROLLER_VOLUME_COUNT), STOR_VOLUME_CAPACITY);
}

Record ControllerRecord::volume(std::size_t i) const {
  return part(STOR_CONTROLLER_VOLUMES + i * STOR_VOLUME_SIZE, STOR_VOLUME_SIZE);
}

void free_stor_info(StorController *&head) {
  while (head != nullptr) {
    const Zeroed<StorController> first(head);
    head = first->next;
  }
}

int get_stor_info(void *head) {
  const Descriptor file = open_for_reading(stor_info_path);
  if (!file) {
    snmp_log(LOG_ERR, "Unable to open %s\n", stor_info_path);
    return 0;
  }
  std::array<std::byte, STOR_CONTROLLER_RECORDS> start;
  if (!read_whole(file, start)) {
    snmp_log(LOG_ERR, "Unable to read ctrl_count from %s\n", stor_info_path);
    return 0;
  }
  const std::int32_t count = Record(start).i32(STOR_CONTROLLER_COUNT);
  auto *const list = static_cast<StorController **>(head);
  if (count <= 0) {
    *list = nullptr;
    return 0;
  }
  return read_records(file, count, list);
}

int convert_host_to_network(void *record) {
  if (record == nullptr) {
    snmp_log(LOG_ERR, "From %s, Some of the pointers are NULL\n", __func__);
    return 0;
  }
  const MutexHold hold(conversion_mutex);
  auto *const octets = static_cast<std::byte *>(record);
  convert(octets, controller_words);
  for (std::size_t i = 0; i < STOR_DRIVE_CAPACITY; ++i) {
    convert(octets + STOR_CONTROLLER_DRIVES + i * STOR_DRIVE_SIZE, drive_words);
  }
  for (std::size_t i = 0; i < STOR_VOLUME_CAPACITY; ++i) {
    convert(octets + STOR_CONTROLLER_VOLUMES + i * STOR_VOLUME_SIZE, volume_words);
  }
  return 1;
}

}  // namespace tavo
