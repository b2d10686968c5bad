// Takes notifications from the module's threads through the agent's loop to the managers or the AgentX master.
#pragma once

#include <cstddef>
#include <functional>

#include "host/notification_queue.h"
#include "host/sinks.h"

namespace tavo {

// At most one exists at a time; the daemon's own send_v3trap and send_enterprise_trap_vars push into it, and drop what
// they are given while there is none. Construct, attach and destroy it on the loop's thread.
class NotificationPath {
 public:
  // Called on the loop's thread when the AgentX session opens (true) or ends (false).
  using LinkChanged = std::function<void(bool up)>;

  NotificationPath(std::size_t limit, bool agentx, LinkChanged link_changed);
  ~NotificationPath();
  NotificationPath(const NotificationPath &) = delete;
  NotificationPath &operator=(const NotificationPath &) = delete;

  // Hooks the queue into the agent's loop. Call it after init_agent() and before a session is opened.
  void attach();

  NotificationQueue &queue() { return queue_; }
  // The managers that a stand-alone agent informs.
  Sinks &sinks() { return sinks_; }
  // How many AgentX sessions have been opened.
  unsigned sessions() const { return sessions_; }

 private:
  static int session_changed(int major, int minor, void *session, void *self);
  Transmission transmit(const Notification &notification) const;

  const bool agentx_;
  const LinkChanged link_changed_;
  unsigned sessions_ = 0;
  NotificationQueue queue_;
  Sinks sinks_;
};

}  // namespace tavo
