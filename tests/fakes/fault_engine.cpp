#include "tests/fakes/fault_engine.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>

namespace tavo::fakes {
namespace {

struct Heard {
  int result;
  int error;
  FaultRecord record;
};

std::mutex mutex;
std::condition_variable changed;
std::vector<std::string> calls;
std::vector<FaultRecord> active;
std::optional<int> announced_count;
std::deque<int> connect_errors;
std::optional<int> before_the_first;
std::vector<int> connections;
std::deque<Heard> to_hear;
int waiting = 0;
int careless = 0;

void tell(const Heard &heard) {
  {
    const std::scoped_lock lock(mutex);
    to_hear.push_back(heard);
  }
  changed.notify_all();
}

bool is_zero(const void *record) {
  const auto *octets = static_cast<const std::byte *>(record);
  return std::all_of(octets, octets + FAULT_RECORD_SIZE, [](std::byte octet) { return octet == std::byte{0}; });
}

}  // namespace

FaultRecord &FaultRecord::identifier(const std::vector<std::uint32_t> &sub_identifiers) {
  for (std::size_t i = 0; i < std::min<std::size_t>(sub_identifiers.size(), FAULT_AFFECTED_OID_CAPACITY); ++i) {
    number(FAULT_AFFECTED_OID + 4 * i, sub_identifiers[i]);
  }
  return number(FAULT_AFFECTED_OID_COUNT, static_cast<std::uint32_t>(sub_identifiers.size()));
}

FaultRecord fault(std::uint32_t class_code, std::uint32_t index, std::uint32_t severity) {
  return FaultRecord()
      .number(FAULT_CLASS_CODE, class_code)
      .number(FAULT_UNIT_POSITION, 2)
      .number(FAULT_SEVERITY, severity)
      .number(FAULT_TAG, 0x11223344)
      .number(FAULT_INDEX, index)
      .text(FAULT_AFFECTED_OBJECT, "sys/rack-unit-1/board/cpu-1")
      .text(FAULT_DN, "sys/rack-unit-1/board/cpu-1/fault-1001")
      .text(FAULT_RN, "fault-1001")
      .identifier({1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 41, 9, 1, 2, 1})
      .text(FAULT_DESCRIPTION, "Processor 1 has failed")
      .number(FAULT_FIRST_TIME, 1'700'000'000)
      .number(FAULT_LAST_TIME, 1'700'003'600)
      .number(FAULT_PREVIOUS_SEVERITY, 4, 1)
      .number(FAULT_OCCURRENCES, 200, 1)
      .number(FAULT_CAUSE, 17)
      .number(FAULT_CODE, 1001);
}

std::vector<std::string> fault_engine_calls() {
  const std::scoped_lock lock(mutex);
  return calls;
}

bool wait_until_listening() {
  std::unique_lock lock(mutex);
  return changed.wait_for(lock, std::chrono::seconds(20), [] { return waiting > 0 && to_hear.empty(); });
}

void set_active_faults(std::vector<FaultRecord> records) {
  const std::scoped_lock lock(mutex);
  active = std::move(records);
}

void set_active_fault_count(std::optional<int> count) {
  const std::scoped_lock lock(mutex);
  announced_count = count;
}

void refuse_connects(std::vector<int> errors) {
  const std::scoped_lock lock(mutex);
  connect_errors.assign(errors.begin(), errors.end());
}

int connection_before_the_first() {
  const std::scoped_lock lock(mutex);
  return before_the_first.value();
}

bool connection_is_open(int number) {
  const std::scoped_lock lock(mutex);
  return fcntl(connections.at(static_cast<std::size_t>(number - 1)), F_GETFD) != -1;
}

void broadcast(const FaultRecord &record) {
  tell({.result = FAULT_RECORD_SIZE, .error = 0, .record = record});
}

void broadcast_result(int result, int error) {
  tell({.result = result, .error = error, .record = {}});
}

int careless_listens() {
  const std::scoped_lock lock(mutex);
  return careless;
}

void reset_fault_engine() {
  const std::scoped_lock lock(mutex);
  calls.clear();
  active.clear();
  announced_count.reset();
  connect_errors.clear();
  before_the_first.reset();
  connections.clear();
  to_hear.clear();
  careless = 0;
}

}  // namespace tavo::fakes

using namespace tavo::fakes;

int get_fe_table_count(void) {
  const std::scoped_lock lock(mutex);
  calls.emplace_back("get_fe_table_count");
  return announced_count.value_or(static_cast<int>(active.size()));
}

int get_fe_table(void *records, int start, int count) {
  const std::scoped_lock lock(mutex);
  calls.push_back("get_fe_table " + std::to_string(start) + ' ' + std::to_string(count));
  const auto first = static_cast<std::size_t>(start);
  if (first + static_cast<std::size_t>(count) > active.size()) {
    return -1;
  }
  for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
    std::memcpy(static_cast<std::byte *>(records) + i * FAULT_RECORD_SIZE, active[first + i].data(), FAULT_RECORD_SIZE);
  }
  return 0;
}

int connect_to_fe_broadcaster(int *connection) {
  const std::scoped_lock lock(mutex);
  calls.emplace_back("connect_to_fe_broadcaster");
  before_the_first = before_the_first.value_or(*connection);
  if (!connect_errors.empty()) {
    const int error = connect_errors.front();
    connect_errors.pop_front();
    return error;
  }
  // Not the lowest free number: the next descriptor opened anywhere would reuse it once this one is closed.
  const int opened = eventfd(0, EFD_CLOEXEC);
  *connection = fcntl(opened, F_DUPFD_CLOEXEC, 500 + static_cast<int>(connections.size()));
  close(opened);
  connections.push_back(*connection);
  return 0;
}

int listen_to_fe_broadcaster(int *connection, void *record) {
  std::unique_lock lock(mutex);
  calls.emplace_back("listen_to_fe_broadcaster");
  if (!is_zero(record) || connections.empty() || *connection != connections.back()) {
    ++careless;
  }
  ++waiting;
  changed.notify_all();
  changed.wait(lock, [] { return !to_hear.empty(); });
  --waiting;
  const Heard heard = to_hear.front();
  to_hear.pop_front();
  if (heard.result > 0) {
    std::memcpy(record, heard.record.data(), FAULT_RECORD_SIZE);
  } else {
    // The caller must not use the record then.
    std::memset(record, 0xA5, FAULT_RECORD_SIZE);
    if (heard.error != 0) {
      errno = heard.error;
    }
  }
  return heard.result;
}
