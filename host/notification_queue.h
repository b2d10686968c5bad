// Holds notifications until the agent's loop sends them.
//
// net-snmp is not thread-safe: a notification sent on one thread while the agent serves requests on another is sent
// twice, gets lost or crashes the agent. So the module's threads push here, and only the loop sends.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <thread>

#include "host/event_descriptor.h"
#include "host/notification.h"

namespace tavo {

// The outcome of an attempt to send.
struct Transmission {
  enum Outcome {
    Finished,        // sent
    Lost,            // never to be sent: memory was short, or net-snmp refused it
    AwaitingAnswer,  // the AgentX master will answer request number `request`
    LinkBroken,      // not sent: there is no session
  };
  Outcome outcome;
  int request = 0;
};

class NotificationQueue {
 public:
  // The most that one turn of the loop sends, and the most that may be unanswered. Both ends of an AgentX session block
  // when they write: about 220 notifications in one burst over a Unix socket stop master and subagent for good, each
  // waiting for the other to read.
  static constexpr std::size_t burst = 50;

  // How long a full queue may make no progress before it counts as stuck. A request may wait about 25 s for a table
  // that is being rebuilt, and the loop waits with it.
  static constexpr std::chrono::seconds default_patience{30};

  using Transmit = std::function<Transmission(const Notification &)>;

  // Construct it on the thread of the agent's loop. `limit` bounds how many wait. Nothing is sent while `ready` is
  // false; resume() must follow. The link starts down.
  NotificationQueue(
      std::size_t limit, Transmit transmit, std::chrono::steady_clock::duration patience = default_patience,
      std::function<bool()> ready = [] { return true; });

  // Any thread. If the queue is full but moving, a thread other than the loop's waits for room, so a burst is slowed
  // down and nothing is lost. If the link is down or the queue is stuck, nobody waits and the oldest notification is
  // dropped, because the newest ones show the current state. Throws std::bad_alloc.
  void push(Notification notification);
  // Any thread. Counts a notification that could not be copied.
  void count_lost() noexcept;

  // Everything below belongs to the thread of the agent's loop. None of it allocates memory, so a shortage costs at
  // most the notification that is being sent.

  // Readable when turn() has something to do.
  int descriptor() const { return wake_.get(); }
  void turn();
  void resume() { wake_.signal(); }
  // The master answered, or no longer will. `accepted`: it has taken the notification. False when the request is not in
  // flight.
  bool answered(int request, bool accepted);
  void link_up();
  // Puts unanswered notifications back at the front, in order: a master that died may not have seen them.
  void link_down();
  bool linked() const { return link_is_up_; }
  // Nothing waits, and nothing is unanswered.
  bool idle() const;
  std::size_t waiting() const;
  // Since the start: how many a full queue has dropped, and how many were lost because they could not be copied or
  // sent.
  std::size_t dropped() const;
  std::size_t lost() const;
  // Sent since the start; behind a master, those that it has accepted.
  std::uint64_t sent() const { return sent_; }
  // Since the start: how many a master has not accepted.
  std::uint64_t refused() const { return refused_; }
  // The most that have ever waited.
  std::size_t longest() const;

 private:
  struct Entry {
    Notification notification;
    int request = 0;  // once it is in flight
  };
  // Entries move from list to list, which needs no memory.
  using Entries = std::list<Entry>;

  bool may_send() const { return link_is_up_ && in_flight_.size() < burst && ready_(); }
  void send_burst();
  void wait_for_room(std::unique_lock<std::mutex> &lock);
  Entries take_front();
  void put_back(Entries &entries);
  Transmission attempt(const Notification &notification) const noexcept;
  void report_losses();
  void give_memory_back();

  const std::size_t limit_;
  const Transmit transmit_;
  const std::chrono::steady_clock::duration patience_;
  const std::function<bool()> ready_;
  const std::thread::id loop_ = std::this_thread::get_id();
  const EventDescriptor wake_;

  mutable std::mutex mutex_;
  std::condition_variable room_;  // signalled when the queue shrinks or the link goes down
  // Guarded by mutex_.
  Entries waiting_;
  std::size_t dropped_ = 0;
  std::size_t lost_ = 0;
  std::size_t longest_ = 0;
  // When a notification was last taken, or when the first one started to wait. Meaningless while the queue is empty.
  std::chrono::steady_clock::time_point standstill_began_ = std::chrono::steady_clock::now();

  std::atomic<bool> link_is_up_ = false;  // written by the loop's thread

  // Used by the loop's thread only.
  Entries in_flight_;
  std::uint64_t sent_ = 0;
  std::uint64_t refused_ = 0;
  std::size_t backlog_ = 0;  // the most that waited since memory was given back
  std::size_t reported_drops_ = 0;
  std::size_t reported_losses_ = 0;
};

}  // namespace tavo
