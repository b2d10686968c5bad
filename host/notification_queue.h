// Where notifications wait for the agent's loop.
//
// net-snmp is not made for several threads: a notification sent in one while the agent serves requests in another is
// sent twice, lost, or ends the agent. So the module's threads push here, and only the loop sends.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "host/event_descriptor.h"
#include "host/notification.h"

namespace tavo {

// What became of an attempt to send.
struct Transmission {
  enum Outcome {
    finished,         // gone, or refused for good: nothing more to do
    awaiting_answer,  // the AgentX master will answer request number `request`
    link_broken,      // not sent: there is no session
  };
  Outcome outcome;
  int request = 0;
};

class NotificationQueue {
 public:
  // At most this many are sent in one turn of the loop and at most this many are unanswered. Both sides of an AgentX
  // session write blockingly: sent in one burst over a Unix socket, some 220 notifications stop master and subagent
  // for good, each waiting for the other to read.
  static constexpr std::size_t burst = 50;

  // How long a full queue may stand still before it is taken for stuck. A request may wait some 25 s for a table that
  // is being rebuilt, and the loop with it.
  static constexpr std::chrono::seconds patience{30};

  using Transmit = std::function<Transmission(const Notification &)>;

  // Constructed on the thread of the agent's loop. `limit` bounds what waits. The link is down at first.
  NotificationQueue(std::size_t limit, Transmit transmit,
                    std::chrono::steady_clock::duration longest_standstill = patience);

  // Any thread. While the queue is full and moves, a thread other than the loop's waits for room, so that a burst of
  // notifications is paced and not thinned out. While the link is down, or the queue is stuck, nobody waits and the
  // oldest is dropped, since the newest tells the present state.
  void push(Notification notification);
  // Any thread: one that could not even be copied.
  void count_lost() noexcept;

  // The rest belongs to the thread of the agent's loop.

  // Readable when turn() has something to do.
  int descriptor() const { return wake_.get(); }
  void turn();
  // The master answered, or will not.
  void answered(int request);
  void link_up();
  // What was sent but not answered goes back to the front, in order: a master that died may not have seen it.
  void link_down();
  bool linked() const { return link_is_up_; }
  // Nothing waits and nothing is unanswered.
  bool idle() const;
  std::size_t waiting() const;
  // Dropped since the start.
  std::size_t dropped() const;

 private:
  struct InFlight {
    int request;
    Notification notification;
  };

  bool may_send() const { return link_is_up_ && in_flight_.size() < burst; }
  void wait_for_room(std::unique_lock<std::mutex> &lock);
  std::optional<Notification> take_front();
  void report_drops();

  const std::size_t limit_;
  const Transmit transmit_;
  const std::chrono::steady_clock::duration patience_;
  const std::thread::id loop_ = std::this_thread::get_id();
  const EventDescriptor wake_;

  mutable std::mutex mutex_;
  std::condition_variable room_;  // one was taken from the front, or the link went down
  // Guarded by mutex_.
  std::deque<Notification> waiting_;
  std::size_t dropped_ = 0;
  // Since when nothing has been taken although something waits; of no meaning while nothing does.
  std::chrono::steady_clock::time_point standstill_began_ = std::chrono::steady_clock::now();

  std::atomic<bool> link_is_up_ = false;  // written by the loop's thread

  // Only the loop's thread.
  std::deque<InFlight> in_flight_;
  std::size_t reported_drops_ = 0;
};

}  // namespace tavo
