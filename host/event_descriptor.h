// A descriptor that becomes readable on a signal from another thread. Threads use it to wake the agent's select().
#pragma once

#include "core/descriptor.h"

namespace tavo {

class EventDescriptor {
 public:
  // Throws std::system_error when the process is out of descriptors.
  EventDescriptor();

  int get() const { return descriptor_.get(); }
  // Safe in any thread and in a signal handler.
  void signal() const noexcept;
  void clear() const noexcept;

 private:
  Descriptor descriptor_;
};

}  // namespace tavo
