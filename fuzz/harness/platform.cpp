#include "fuzz/harness/platform.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <span>

#include "platform/fault_engine.h"
#include "platform/fru.h"
#include "platform/inventory.h"
#include "platform/storage_client.h"
#include "platform/test_trap.h"

pthread_t test_trap_thread = 0;

namespace tavo::fuzz {
namespace {

Platform *current = nullptr;

// A file in memory, opened at its start.
int file_with(const std::string &content) {
  const int file = memfd_create("file", MFD_CLOEXEC);
  expect(write(file, content.data(), content.size()) == static_cast<ssize_t>(content.size()), "a file is written");
  lseek(file, 0, SEEK_SET);
  return file;
}

bool is_below_var(const char *path) {
  return std::string_view(path).starts_with("/var/");
}

// The content of an intercepted path, or null if it does not exist.
const std::string *content_of(const char *path) {
  const auto found = current->files.find(std::string_view(path));
  return found == current->files.end() ? nullptr : &found->second;
}

// An error that a system call may well have.
int fail_with_an_error() {
  errno = current->answers.PickValueInArray({EINTR, EMFILE, EBADF, ENOMEM, ECONNRESET, EAGAIN});
  return -1;
}

// Reads all of it, for AddressSanitizer to see.
void read_through(const void *octets, std::size_t size) {
  const auto *first = static_cast<const unsigned char *>(octets);
  volatile unsigned sum = std::accumulate(first, first + size, 0U);
  static_cast<void>(sum);
}

void read_through(const netsnmp_variable_list *varbind) {
  for (; varbind != nullptr; varbind = varbind->next_variable) {
    expect(varbind->name_length <= MAX_OID_LEN, "a varbind's name fits");
    read_through(varbind->name, varbind->name_length * sizeof(oid));
    read_through(varbind->val.string, varbind->val_len);
  }
}

int lowest_free_descriptor(int least) {
  const int lowest = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, least);
  close(lowest);
  return lowest;
}

std::array<int, 2> free_descriptors() {
  return {lowest_free_descriptor(0), lowest_free_descriptor(FD_SETSIZE)};
}

}  // namespace

Platform::Platform(Octets input) : answers(input.data(), input.size()), free_descriptors_(free_descriptors()) {
  current = this;
}

Platform::~Platform() {
  current = nullptr;
  expect(free_descriptors() == free_descriptors_, "what was opened is closed");
}

Platform *platform() {
  return current;
}

void Platform::fill(void *record, std::size_t size) {
  enum class Content { Zeros, Text, Input };
  std::memset(record, 0, size);
  switch (answers.PickValueInArray({Content::Zeros, Content::Text, Content::Input})) {
    case Content::Zeros:
      break;
    case Content::Text:
      std::memset(record, answers.ConsumeIntegralInRange<int>('0', 'z'), size);
      break;
    case Content::Input:
      answers.ConsumeData(record, answers.ConsumeIntegralInRange<std::size_t>(0, size));
      break;
  }
}

int Platform::failure() {
  return answers.remaining_bytes() == 0 || answers.ConsumeProbability<float>() > 0.9F ? -1 : 0;
}

int Platform::descriptor() {
  if (failure() != 0) {
    return fail_with_an_error();
  }
  const int opened = eventfd(0, EFD_CLOEXEC);
  if (answers.ConsumeIntegral<std::uint8_t>() != 255) {
    return opened;
  }
  const int large = fcntl(opened, F_DUPFD_CLOEXEC, FD_SETSIZE);  // too large for select()
  close(opened);
  return large;
}

std::optional<std::string> Platform::next_output() {
  if (commands_ >= printed.size()) {
    return "";
  }
  return printed[commands_++];
}

}  // namespace tavo::fuzz

using namespace tavo::fuzz;

// The platform's libraries.

int get_fe_table_count(void) {
  return current->fault_count ? current->fault_count() : 0;
}

int get_fe_table(void *records, int start, int count) {
  return current->read_faults ? current->read_faults(static_cast<std::byte *>(records), start, count) : -1;
}

int connect_to_fe_broadcaster(int *connection) {
  // The module tries until it succeeds.
  if (current->answers.remaining_bytes() > 0 && current->failure() != 0) {
    return ECONNREFUSED;
  }
  *connection = eventfd(0, EFD_CLOEXEC);
  return 0;
}

int listen_to_fe_broadcaster(int *, void *record) {
  return current->listen(static_cast<std::byte *>(record));
}

int GetCPUItems(void *, int, const inventory_range *, int *count) {
  const int result = current->failure();
  if (result == 0) {
    *count = current->answers.ConsumeIntegralInRange(-1, 8);
  }
  return result;
}

int GetCPUInfo(void *, int size, const inventory_range *, void *records) {
  for (int at = 0; at + PROCESSOR_RECORD_SIZE <= size; at += PROCESSOR_RECORD_SIZE) {
    current->fill(static_cast<std::byte *>(records) + at, PROCESSOR_RECORD_SIZE);
  }
  return current->failure();
}

int GetMemoryItems(void *, int, const inventory_range *, int *count) {
  const int result = current->failure();
  if (result == 0) {
    *count = current->answers.ConsumeIntegralInRange(-1, 8);
  }
  return result;
}

int GetMemoryDetail(void *, int size, const inventory_range *, void *records) {
  for (int at = 0; at + MEMORY_RECORD_SIZE <= size; at += MEMORY_RECORD_SIZE) {
    current->fill(static_cast<std::byte *>(records) + at, MEMORY_RECORD_SIZE);
  }
  return current->failure();
}

int GetMemorySummary(void *, int size, const inventory_range *, void *summary) {
  current->fill(summary, static_cast<std::size_t>(size));
  return current->failure();
}

int getSensorName(const void *detail_record, int *number) {
  read_through(detail_record, MEMORY_RECORD_SIZE);
  *number = current->answers.ConsumeIntegral<int>();
  return current->answers.ConsumeBool() ? 1 : 0;
}

int IPMI_SensorGetSensorData(int, std::uint32_t *output, void *record) {
  const auto octets = std::span(static_cast<std::byte *>(record), SENSOR_RECORD_SIZE);
  const auto put = [&](std::size_t offset, std::uint32_t word) { std::memcpy(&octets[offset], &word, sizeof word); };
  FuzzedDataProvider &answers = current->answers;
  if (answers.remaining_bytes() == 0) {
    return -1;
  }
  current->fill(record, SENSOR_RECORD_SIZE);
  // Most sensors are no fan and no entity's presence; here most are.
  put(SENSOR_TYPE, answers.PickValueInArray<std::uint32_t>({SENSOR_TYPE_FAN, SENSOR_TYPE_ENTITY_PRESENCE, 1}));
  put(SENSOR_ENTITY_ID, answers.PickValueInArray<std::uint32_t>({ENTITY_FAN, ENTITY_POWER_SUPPLY, 7}));
  put(SENSOR_ENTITY_INSTANCE, answers.PickValueInArray<std::uint32_t>({0, 1, 2, 3, 13, 14, 255, 256, 0xFFFFFFFF}));
  if (answers.ConsumeBool()) {
    const std::string name = answers.ConsumeRandomLengthString(SENSOR_NAME_SIZE);
    std::memset(&octets[SENSOR_NAME], 0, SENSOR_NAME_SIZE);
    std::memcpy(&octets[SENSOR_NAME], name.data(), name.size());
  }
  *output = 0;
  return 0;
}

int IPMI_Discrete_CheckPresence(const std::uint32_t sensor_entity_instance[3]) {
  read_through(sensor_entity_instance, 3 * sizeof(std::uint32_t));
  return current->answers.ConsumeBool() ? 1 : 0;
}

int IPMI_Thresh_Sensor_CheckPresence(const std::uint32_t sensor_entity_instance[3]) {
  read_through(sensor_entity_instance, 3 * sizeof(std::uint32_t));
  return current->answers.ConsumeIntegral<std::uint8_t>();
}

int get_fru_board_area_from_id(int, void *area) {
  current->fill(area, FRU_BOARD_AREA_SIZE);
  return current->failure();
}

int get_fru_product_area_from_type_instance(int, int, void *area) {
  current->fill(area, FRU_PRODUCT_AREA_SIZE);
  return current->failure();
}

void *se_open_storage_events(int, int) {
  return current;
}

void *se_get_next_storage_event(void *) {
  static std::vector<std::byte> event;  // a heap block of exactly this size, for AddressSanitizer
  if (current->answers.remaining_bytes() == 0) {
    current->at_end();
    return nullptr;
  }
  if (current->failure() != 0) {
    return nullptr;
  }
  event.assign(STORAGE_EVENT_SIZE, std::byte{0});
  event.shrink_to_fit();
  const auto type = current->answers.PickValueInArray<std::uint32_t>(
      {STORAGE_EVENT_NONE, STORAGE_EVENT_CONFIGURATION_CHANGED, 8, 0xFFFFFFFF});
  std::memcpy(&event[STORAGE_EVENT_TYPE], &type, sizeof type);
  return event.data();
}

void se_close_storage_events(void *) {}

int veltutil_mgnt(velt_request *request) {
  current->fill(request->buffer, request->buffer_size);
  return current->failure();
}

// The linker's --wrap sends the module's calls here, and libFuzzer's own, which go on to the system.
extern "C" {

int __wrap_snmp_log(int, const char *format, ...) {
  std::array<char, 2048> line;
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line.data(), line.size(), format, arguments);
  va_end(arguments);
  return 0;
}

void __wrap_send_v3trap(netsnmp_variable_list *varbinds, const char *context) {
  read_through(varbinds);
  read_through(context, std::strlen(context) + 1);
}

void __wrap_send_enterprise_trap_vars(int, int, const oid *enterprise, int length, netsnmp_variable_list *varbinds) {
  read_through(enterprise, static_cast<std::size_t>(length) * sizeof(oid));
  read_through(varbinds);
}

unsigned int __real_sleep(unsigned int seconds);
int __real_open64(const char *path, int flags, ...);
FILE *__real_fopen64(const char *path, const char *mode);
int __real_access(const char *path, int mode);
int __real_stat64(const char *path, struct stat *status);
int __real_unlink(const char *path);
int __real_system(const char *command);
FILE *__real_popen(const char *command, const char *mode);
int __real_pclose(FILE *stream);

unsigned int __wrap_sleep(unsigned int seconds) {
  return is_trying() ? 0 : __real_sleep(seconds);
}

int __wrap_open64(const char *path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (!is_trying() || !is_below_var(path)) {
    return __real_open64(path, flags, mode);
  }
  const std::string *content = content_of(path);
  if (content == nullptr) {
    errno = ENOENT;
    return -1;
  }
  return file_with(*content);
}

FILE *__wrap_fopen64(const char *path, const char *mode) {
  return __real_fopen64(is_trying() && is_below_var(path) ? "/dev/null" : path, mode);
}

int __wrap_access(const char *path, int mode) {
  if (!is_trying() || !is_below_var(path)) {
    return __real_access(path, mode);
  }
  errno = ENOENT;
  return content_of(path) == nullptr ? -1 : 0;
}

int __wrap_stat64(const char *path, struct stat *status) {
  if (!is_trying() || !is_below_var(path)) {
    return __real_stat64(path, status);
  }
  errno = ENOENT;
  return content_of(path) == nullptr ? -1 : 0;
}

int __wrap_unlink(const char *path) {
  return is_trying() ? 0 : __real_unlink(path);
}

// A command that writes a file leaves it as the door has set it.
int __wrap_system(const char *command) {
  return is_trying() ? 0 : __real_system(command);
}

FILE *__wrap_popen(const char *command, const char *mode) {
  if (!is_trying()) {
    return __real_popen(command, mode);
  }
  const std::optional<std::string> output = current->next_output();
  if (!output) {
    return nullptr;
  }
  return output->empty() ? __real_fopen64("/dev/null", "r") : fdopen(file_with(*output), "r");
}

int __wrap_pclose(FILE *stream) {
  return is_trying() ? std::fclose(stream) : __real_pclose(stream);
}

int __wrap_socket(int, int, int) {
  return current->descriptor();
}

int __wrap_setsockopt(int, int, int, const void *value, socklen_t size) {
  read_through(value, size);
  return current->failure() != 0 ? fail_with_an_error() : 0;
}

int __wrap_bind(int, const sockaddr *address, socklen_t size) {
  read_through(address, size);
  return current->failure() != 0 ? fail_with_an_error() : 0;
}

int __wrap_listen(int, int) {
  return current->failure() != 0 ? fail_with_an_error() : 0;
}

int __wrap_accept4(int, sockaddr *, socklen_t *, int) {
  if (current->answers.remaining_bytes() == 0 && current->at_end) {
    current->at_end();
  }
  return current->descriptor();
}

int __wrap_select(int, fd_set *readable, fd_set *, fd_set *, timeval *) {
  read_through(readable, sizeof *readable);
  if (current->before_select) {
    current->before_select();
  }
  if (current->answers.remaining_bytes() == 0) {
    errno = EBADF;
    return -1;
  }
  return current->failure() != 0 ? fail_with_an_error() : 1;
}

ssize_t __wrap_send(int, const void *octets, std::size_t size, int) {
  read_through(octets, size);
  if (current->failure() != 0) {
    return fail_with_an_error();
  }
  return static_cast<ssize_t>(
      current->answers.ConsumeIntegralInRange<std::size_t>(std::min<std::size_t>(size, 1), size));
}

ssize_t __wrap_recv(int, void *octets, std::size_t size, int) {
  if (current->failure() != 0) {
    return fail_with_an_error();
  }
  const auto received = current->answers.ConsumeIntegralInRange<std::size_t>(0, size);
  std::memset(octets, current->answers.ConsumeIntegral<std::uint8_t>(), received);
  return static_cast<ssize_t>(received);
}
}
