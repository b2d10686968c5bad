// Preloaded into a program, it lets a test set the program's time of day, as an administrator or NTP would: by the
// seconds that the file named by SET_CLOCK holds, a 64-bit number (broken_world.py). Other clocks go on.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <ctime>

namespace tavo {
namespace {

using Seconds = std::atomic<std::int64_t>;

const Seconds *offset = nullptr;

__attribute__((constructor)) void take_file() {
  const char *path = std::getenv("SET_CLOCK");
  const int file = path != nullptr ? open(path, O_RDONLY | O_CLOEXEC) : -1;
  if (file < 0) {
    return;
  }
  void *mapped = mmap(nullptr, sizeof(Seconds), PROT_READ, MAP_SHARED, file, 0);
  close(file);
  if (mapped != MAP_FAILED) {
    offset = static_cast<const Seconds *>(mapped);
  }
}

std::time_t set_by() {
  return offset != nullptr ? offset->load() : 0;
}

// The function of this name behind this library, which may be another preloaded one.
template <typename Function>
Function *next(const char *name) {
  return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec *now) noexcept {
  static auto *const original = next<int(clockid_t, timespec *)>("clock_gettime");
  const int result = original(clock, now);
  if (result == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE)) {
    now->tv_sec += set_by();
  }
  return result;
}

int gettimeofday(timeval *now, void *zone) noexcept {
  static auto *const original = next<int(timeval *, void *)>("gettimeofday");
  const int result = original(now, zone);
  if (result == 0) {
    now->tv_sec += set_by();
  }
  return result;
}

std::time_t time(std::time_t *to) noexcept {
  static auto *const original = next<std::time_t(std::time_t *)>("time");
  const std::time_t now = original(nullptr) + set_by();
  if (to != nullptr) {
    *to = now;
  }
  return now;
}
}

}  // namespace tavo
