#include "tests/fakes/daemon.h"

#include <cstring>
#include <mutex>
#include <optional>
#include <utility>

#include "core/health.h"
#include "core/record.h"
#include "platform/fault_engine.h"
#include "platform/test_trap.h"

// A test sets the handle to the thread it has started.
pthread_t test_trap_thread = 0;

namespace tavo {
namespace fakes {
namespace {

std::mutex mutex;
std::optional<std::vector<std::string>> reports;

void note(std::string text) {
  const std::lock_guard lock(mutex);
  if (reports) {
    reports->push_back(std::move(text));
  }
}

}  // namespace

RecordedReports::RecordedReports() {
  const std::lock_guard lock(mutex);
  reports.emplace();
}

RecordedReports::~RecordedReports() {
  const std::lock_guard lock(mutex);
  reports.reset();
}

std::vector<std::string> RecordedReports::take() {
  const std::lock_guard lock(mutex);
  return std::exchange(*reports, {});
}

}  // namespace fakes

extern "C" {

void tavo_table_registered(const char *name, const std::atomic<std::size_t> *rows) {
  fakes::note(std::string(name) + " is registered with " + std::to_string(*rows) + " rows");
}

void tavo_rebuild_begins(const char *table) {
  fakes::note(std::string(table) + " begins");
}

void tavo_rebuild_ends(const char *table, bool succeeded) {
  fakes::note(std::string(table) + (succeeded ? " succeeds" : " fails"));
}

void tavo_thread_missing(const char *function, int error) {
  fakes::note(std::string(function) + ": " + std::strerror(error));
}

void tavo_request_set_aside(const void * /*request*/) {
  fakes::note("a request is set aside");
}

void tavo_request_ended(const void * /*request*/) {
  fakes::note("a request has ended");
}

void tavo_fault_changed(const void *record, bool notified) {
  const Record fault(record, FAULT_RECORD_SIZE);
  const std::string severity = std::to_string(fault.u32(FAULT_SEVERITY));
  fakes::note("fault " + std::to_string(fault.u32(FAULT_INDEX)) + " has severity " + severity +
              (notified ? ", notified" : ""));
}

void tavo_fault_load_begins() {
  fakes::note("a load begins");
}

void tavo_fault_load_ends(bool whole) {
  fakes::note(whole ? "a whole load ends" : "a load ends early");
}
}

}  // namespace tavo
