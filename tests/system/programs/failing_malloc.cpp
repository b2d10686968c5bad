// Preloaded into a program, it makes the program's allocations fail. The file that FAILING_MALLOC names holds 64-bit
// numbers, which a test reads and writes while the program runs (failing_malloc.py): how many allocations there were,
// the number of the first one that fails, how many fail from there on, one in how many fails at random (0: none), how
// many have failed, and whether only the program's own C++ code is meant: what the executable itself allocates with
// `new` on any thread, and what the C++ library and others do so on the program's first thread.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <string_view>

// The C library's names for what this file replaces.
// NOLINTBEGIN(readability-identifier-naming)
extern "C" {
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *memory, std::size_t size);
}
// NOLINTEND(readability-identifier-naming)

namespace tavo {
namespace {

using Number = std::atomic<std::uint64_t>;

struct Orders {
  Number count;
  Number first;
  Number failing;
  Number one_in;
  Number failed;
  Number own_only;
};

std::atomic<Orders *> orders = nullptr;

// Any generator will do, as long as it needs no memory.
std::uint64_t scatter(std::uint64_t number) {
  number ^= number >> 31;
  number *= 0x9E3779B97F4A7C15;
  return number ^ number >> 29;
}

bool is_own(const void *caller) {
  if (gettid() == getpid()) {
    return true;
  }
  Dl_info found;
  // The executable's path is the one that it was started by; libraries' names end differently.
  return dladdr(caller, &found) != 0 && std::string_view(found.dli_fname).ends_with(program_invocation_short_name);
}

// `caller`: of operator new. Null for C's functions.
bool fails(const void *caller) {
  Orders *given = orders;
  if (given == nullptr || (given->own_only != 0 && (caller == nullptr || !is_own(caller)))) {
    return false;
  }
  const std::uint64_t number = ++given->count;
  const std::uint64_t first = given->first;
  const std::uint64_t one_in = given->one_in;
  const bool chosen = first != 0 && number >= first && number - first < given->failing;
  if (!chosen && (one_in == 0 || scatter(number) % one_in != 0)) {
    return false;
  }
  ++given->failed;
  errno = ENOMEM;
  return true;
}

__attribute__((constructor)) void take_orders() {
  const char *path = std::getenv("FAILING_MALLOC");
  const int file = path != nullptr ? open(path, O_RDWR | O_CLOEXEC) : -1;
  if (file < 0) {
    return;
  }
  void *mapped = mmap(nullptr, sizeof(Orders), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  close(file);
  // Not for the programs that this one starts.
  unsetenv("FAILING_MALLOC");
  if (mapped != MAP_FAILED) {
    orders = static_cast<Orders *>(mapped);
  }
}

}  // namespace

extern "C" {

void *malloc(std::size_t size) {
  return fails(nullptr) ? nullptr : __libc_malloc(size);
}

void *calloc(std::size_t count, std::size_t size) {
  return fails(nullptr) ? nullptr : __libc_calloc(count, size);
}

void *realloc(void *memory, std::size_t size) {
  return fails(nullptr) ? nullptr : __libc_realloc(memory, size);
}
}

}  // namespace tavo

void *operator new(std::size_t size) {
  void *memory = tavo::fails(__builtin_return_address(0)) ? nullptr : __libc_malloc(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

void operator delete(void *memory) noexcept {
  std::free(memory);
}

void operator delete(void *memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}
