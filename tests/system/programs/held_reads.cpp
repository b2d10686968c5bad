// Preloaded into a program, it holds up the program in the middle of a file, so that a test can change the file just
// then. HELD_FILE names the file. When the program has read something of it and a file exists under the name in
// HELD_READS, that file gets the suffix ".held", and the program waits until it is gone.
#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace tavo {
namespace {

bool is_held_file(int descriptor) {
  const char *held = std::getenv("HELD_FILE");
  char path[PATH_MAX];
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  const ssize_t length = held != nullptr ? readlink(link.c_str(), path, sizeof path) : -1;
  return length > 0 && std::string_view(path, static_cast<std::size_t>(length)) == held;
}

void wait_if_ordered(int descriptor) {
  const char *order = std::getenv("HELD_READS");
  if (order == nullptr || !is_held_file(descriptor) || lseek(descriptor, 0, SEEK_CUR) <= 0) {
    return;
  }
  const std::string held = std::string(order) + ".held";
  if (std::rename(order, held.c_str()) == 0) {
    while (access(held.c_str(), F_OK) == 0) {
      usleep(1000);
    }
  }
}

using Read = ssize_t(int, void *, std::size_t);

ssize_t read_when_allowed(int descriptor, void *to, std::size_t size) {
  static auto *const original = reinterpret_cast<Read *>(dlsym(RTLD_NEXT, "read"));
  const int error = errno;
  wait_if_ordered(descriptor);
  errno = error;
  return original(descriptor, to, size);
}

}  // namespace

extern "C" {

ssize_t read(int descriptor, void *to, std::size_t size) {
  return read_when_allowed(descriptor, to, size);
}

// What read() becomes where the compiler knows the size of the buffer.
// NOLINTNEXTLINE(readability-identifier-naming, bugprone-reserved-identifier): the C library's name
ssize_t __read_chk(int descriptor, void *to, std::size_t size, std::size_t /*capacity*/) {
  return read_when_allowed(descriptor, to, size);
}
}

}  // namespace tavo
