// Several descriptors that are watched as one.
#pragma once

#include <sys/epoll.h>

#include <cstdint>

#include "core/descriptor.h"

namespace tavo::service {

class DescriptorSet {
 public:
  // Readable while one of those that were added is ready; negative: none has been.
  int descriptor() const { return has_some_ ? set_.get() : -1; }

  // Adds a descriptor, which leaves the set when it is closed; a negative one is none. False if it cannot be watched.
  bool add(int descriptor, std::uint32_t events = EPOLLIN) {
    epoll_event wanted{.events = events, .data = {}};
    const bool is_added = set_ && descriptor >= 0 && epoll_ctl(set_.get(), EPOLL_CTL_ADD, descriptor, &wanted) == 0;
    has_some_ = has_some_ || is_added;
    return is_added;
  }

 private:
  Descriptor set_{epoll_create1(EPOLL_CLOEXEC)};
  bool has_some_ = false;
};

}  // namespace tavo::service
