// A stream of records that any number of connections may follow: the fault broadcaster, or the storage events.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <list>
#include <mutex>
#include <vector>

#include "core/descriptor.h"

namespace tavo::service {

using Record = std::vector<std::byte>;

class EventStream {
 public:
  // Sends the stream to a connection, on the calling thread, until the peer leaves, the stream drops it or the socket
  // is shut down. First comes a frame: {"result": 0}, or an error number if the connection is refused. Then come raw
  // records: all that are published once the frame is sent.
  void serve(int fd);

  // Queues the record for every follower. Never blocks.
  void publish(const Record &record);

  // Both wait for the slowest follower: until every queue is short, or until every record is sent.
  void wait_for_room() { wait_for_pending(queue_target); }
  void wait_until_taken() { wait_for_pending(0); }

  // Drops every follower; what was not sent yet is lost. Returns how many there were.
  std::size_t close_all();

  // Refuses all new followers, or accepts them again.
  void refuse(bool always);
  // Refuses the next `times` followers.
  void refuse_next(std::size_t times);

  std::size_t followers();

 private:
  struct Follower {
    std::deque<Record> queue;
    std::size_t pending = 0;  // records not sent yet, in the queue or already taken from it
    bool closed = false;
    Descriptor wake;  // an eventfd: the queue or `closed` has changed
    int socket = -1;
  };

  static constexpr std::size_t queue_target = 256;  // records

  bool admitted();
  void follow(Follower &follower);
  bool send_queued(Follower &follower);
  void wait_for_pending(std::size_t most);

  std::mutex mutex_;
  std::condition_variable sent_;  // a follower's pending count has fallen, or a follower has left
  // Guarded by mutex_. Each follower's own thread also reads its socket and wake, which never change, without it.
  std::list<Follower> followers_;
  bool refuse_always_ = false;
  std::size_t refuse_times_ = 0;
};

}  // namespace tavo::service
