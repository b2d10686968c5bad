#include "host/module.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <new>

#include "core/health.h"
#include "tests/harness/own_process.h"

namespace {

thread_local bool memory_is_short = false;

}  // namespace

// The operators of the C++ library, but for the shortage.
void *operator new(std::size_t size) {
  void *const memory = memory_is_short ? nullptr : std::malloc(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

void operator delete(void *memory) noexcept {
  std::free(memory);
}

void operator delete(void *memory, std::size_t) noexcept {
  std::free(memory);
}

namespace tavo {
namespace {

// The module cannot handle an exception, and a thread is missing just when memory is short.
TEST(ModuleTest, AMissingThreadIsReportedWithoutMemory) {
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  memory_is_short = true;
  try {
    tavo_thread_missing("create_a_thread_with_a_name_that_no_short_string_holds", EAGAIN);
    memory_is_short = false;
  } catch (const std::bad_alloc &) {
    memory_is_short = false;
    FAIL() << "it asks for memory";
  }
}

}  // namespace
}  // namespace tavo
