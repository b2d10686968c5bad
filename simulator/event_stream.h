// A stream of records that any number of connections follow: the fault broadcaster and the storage events.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <list>
#include <mutex>
#include <vector>

#include "simulator/unix_socket.h"

namespace tavo::sim {

using Record = std::vector<std::byte>;

class EventStream {
 public:
  // Follows the stream on the calling thread until the peer leaves, the stream is closed or the socket is shut down.
  // Answers with one frame first, {"result": 0} or the error number with which the connection is turned away; raw
  // records follow. Whatever is published after that answer is sent.
  void serve(int fd);

  // Queues the record for every follower. Never blocks.
  void publish(const Record &record);

  // Waits until every follower's queue is short, or empty: what paces a storm by the slowest reader.
  void wait_for_room() { wait_for_pending(queue_target); }
  void wait_until_taken() { wait_for_pending(0); }

  // Drops every follower with whatever it has not been sent. How many there were.
  std::size_t close_all();

  // Turns new followers away, until told otherwise or the given number of times.
  void refuse(bool always);
  void refuse_next(std::size_t times);

  std::size_t followers();

 private:
  struct Follower {
    std::deque<Record> queue;
    std::size_t pending = 0;  // queued, or taken from the queue and not sent yet
    bool closed = false;
    Descriptor wake;  // an eventfd
    int socket = -1;
  };

  static constexpr std::size_t queue_target = 256;  // records

  bool admitted();
  void follow(std::list<Follower>::iterator follower);
  bool send_queued(Follower &follower);
  void wait_for_pending(std::size_t most);

  std::mutex mutex_;
  std::condition_variable sent_;  // a follower's pending count fell, or a follower left
  // Guarded by mutex_; a follower's socket and wake do not change while it is listed.
  std::list<Follower> followers_;
  bool refuse_always_ = false;
  std::size_t refuse_times_ = 0;
};

}  // namespace tavo::sim
