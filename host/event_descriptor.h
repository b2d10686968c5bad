// A descriptor that becomes readable when someone asks for attention: how a thread wakes the agent's select().
#pragma once

#include "core/descriptor.h"

namespace tavo {

class EventDescriptor {
 public:
  // Throws std::system_error when the system has no descriptor left.
  EventDescriptor();

  int get() const { return descriptor_.get(); }
  // Any thread and any signal handler.
  void signal() const noexcept;
  void clear() const noexcept;

 private:
  Descriptor descriptor_;
};

}  // namespace tavo
