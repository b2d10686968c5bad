// A descriptor that becomes readable when someone asks for attention: how a thread wakes the agent's select().
#pragma once

namespace tavo {

class EventDescriptor {
 public:
  // Throws std::system_error when the system has no descriptor left.
  EventDescriptor();
  ~EventDescriptor();
  EventDescriptor(const EventDescriptor &) = delete;
  EventDescriptor &operator=(const EventDescriptor &) = delete;

  int get() const { return descriptor_; }
  // Any thread and any signal handler.
  void signal() const noexcept;
  void clear() const noexcept;

 private:
  int descriptor_;
};

}  // namespace tavo
