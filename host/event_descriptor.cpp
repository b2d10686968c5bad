#include "host/event_descriptor.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <system_error>

namespace tavo {

EventDescriptor::EventDescriptor() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!descriptor_) {
    throw std::system_error(errno, std::generic_category(), "eventfd");
  }
}

// Both calls can only fail with EAGAIN, which is harmless: a full counter is readable, an empty one is clear.
void EventDescriptor::signal() const noexcept {
  const int saved = errno;
  [[maybe_unused]] const int result = eventfd_write(get(), 1);
  errno = saved;
}

void EventDescriptor::clear() const noexcept {
  eventfd_t count = 0;
  [[maybe_unused]] const int result = eventfd_read(get(), &count);
}

}  // namespace tavo
