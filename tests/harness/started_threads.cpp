#include "tests/harness/started_threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <set>
#include <string>

#include "tests/harness/eventually.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

std::atomic<bool> started = false;

// Filled before main, by objects of other files.
std::set<std::string> &threaded_files() {
  static std::set<std::string> files;
  return files;
}

}  // namespace

ThreadedFile::ThreadedFile(const char *file) {
  threaded_files().insert(file);
}

void note_started_thread() {
  started = true;
}

void forget_started_threads() {
  started = false;
}

void expect_threads_in_threaded_files_only(const char *file) {
  EXPECT_TRUE(!started || threaded_files().contains(file))
      << "The test starts a thread: its file must include tests/harness/threaded.h, or ThreadSanitizer does not run "
         "it.";
}

int running_threads() {
  return static_cast<int>(std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}));
}

void expect_running_threads(int most) {
  // A thread that has been joined may still be listed for a moment.
  EXPECT_TRUE(eventually([most] { return running_threads() <= most; }, std::chrono::seconds(1)))
      << "A thread outlives its test.";
}

}  // namespace tavo

extern "C" {

// std::thread's constructor is inline and calls this function of libstdc++, whose own call of pthread_create the linker
// cannot redirect.
void __real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(void *thread,
                                                                                                  void *state,
                                                                                                  void (*depend)());

void __wrap__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(void *thread,
                                                                                                  void *state,
                                                                                                  void (*depend)()) {
  tavo::note_started_thread();
  __real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(thread, state, depend);
}
}
