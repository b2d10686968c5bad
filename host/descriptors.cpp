#include "host/descriptors.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "host/interposed.h"

namespace tavo {

void close_descriptors_on_exec() {
  struct Closer {
    void operator()(DIR *directory) const { closedir(directory); }
  };
  const std::unique_ptr<DIR, Closer> directory(opendir("/proc/self/fd"));
  if (directory == nullptr) {
    return;
  }
  while (const dirent *entry = readdir(directory.get())) {
    const int descriptor = std::atoi(entry->d_name);
    if (descriptor > STDERR_FILENO) {
      const int flags = fcntl(descriptor, F_GETFD);
      if (flags >= 0 && (flags & FD_CLOEXEC) == 0) {
        fcntl(descriptor, F_SETFD, flags | FD_CLOEXEC);
      }
    }
  }
}

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
  static auto *const original = next_definition<int(int, int, int)>("socket");
  return original(domain, type | SOCK_CLOEXEC, protocol);
}

int accept(int listener, sockaddr *address, socklen_t *length) {
  return accept4(listener, address, length, SOCK_CLOEXEC);
}
}

}  // namespace tavo
