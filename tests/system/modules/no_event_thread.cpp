// Preloaded, it lets no thread be created for the module's fault events, as if the system had none left.
#include <dlfcn.h>
#include <pthread.h>

#include <cerrno>
#include <cstring>

extern "C" __attribute__((visibility("default"))) int pthread_create(pthread_t *thread,
                                                                     const pthread_attr_t *attributes,
                                                                     void *(*start_routine)(void *), void *argument) {
  Dl_info found{};
  if (dladdr(reinterpret_cast<void *>(start_routine), &found) != 0 && found.dli_sname != nullptr &&
      std::strcmp(found.dli_sname, "FE_thread") == 0) {
    return EAGAIN;
  }
  static auto *const original = reinterpret_cast<decltype(pthread_create) *>(dlsym(RTLD_NEXT, "pthread_create"));
  return original(thread, attributes, start_routine, argument);
}
