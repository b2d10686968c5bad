#include "host/notification_queue.h"

#include <algorithm>
#include <new>
#include <utility>

#include "core/heap.h"

namespace tavo {
namespace {

// Worth giving back: about 1.3 MiB.
constexpr std::size_t large_backlog = 1000;

}  // namespace

NotificationQueue::NotificationQueue(std::size_t limit, Transmit transmit, std::chrono::steady_clock::duration patience,
                                     std::function<bool()> ready)
    : limit_(limit), transmit_(std::move(transmit)), patience_(patience), ready_(std::move(ready)) {}

void NotificationQueue::push(Notification notification) {
  Entries entry;
  entry.push_back({.notification = std::move(notification)});
  {
    std::unique_lock lock(mutex_);
    wait_for_room(lock);
    if (waiting_.empty()) {
      standstill_began_ = std::chrono::steady_clock::now();
    }
    waiting_.splice(waiting_.end(), entry);
    if (waiting_.size() > limit_) {
      waiting_.pop_front();
      ++dropped_;
    }
    longest_ = std::max(longest_, waiting_.size());
  }
  wake_.signal();
}

void NotificationQueue::wait_for_room(std::unique_lock<std::mutex> &lock) {
  if (std::this_thread::get_id() == loop_) {
    return;  // only the loop makes room
  }
  while (waiting_.size() >= limit_ && link_is_up_) {
    const auto deadline = standstill_began_ + patience_;
    if (std::chrono::steady_clock::now() >= deadline) {
      return;
    }
    room_.wait_until(lock, deadline);
  }
}

void NotificationQueue::count_lost() noexcept {
  {
    const std::lock_guard lock(mutex_);
    ++lost_;
  }
  wake_.signal();  // the loop logs it
}

void NotificationQueue::turn() {
  wake_.clear();
  report_losses();
  backlog_ = std::max(backlog_, waiting());
  send_burst();
  give_memory_back();
}

void NotificationQueue::send_burst() {
  for (std::size_t sent = 0; sent < burst && may_send(); ++sent) {
    Entries front = take_front();
    if (front.empty()) {
      return;
    }
    const Transmission result = attempt(front.front().notification);
    switch (result.outcome) {
      case Transmission::Finished:
        ++sent_;
        break;
      case Transmission::Lost:
        count_lost();
        break;
      case Transmission::AwaitingAnswer:
        front.front().request = result.request;
        in_flight_.splice(in_flight_.end(), front);
        break;
      case Transmission::LinkBroken:
        link_is_up_ = false;
        put_back(front);
        return;
    }
  }
  if (may_send() && waiting() > 0) {
    wake_.signal();
  }
}

Transmission NotificationQueue::attempt(const Notification &notification) const noexcept {
  try {
    return transmit_(notification);
  } catch (const std::bad_alloc &) {
    return {.outcome = Transmission::Lost};
  }
}

bool NotificationQueue::answered(int request, bool accepted) {
  const auto found =
      std::find_if(in_flight_.begin(), in_flight_.end(), [&](const Entry &sent) { return sent.request == request; });
  if (found == in_flight_.end()) {
    return false;
  }
  ++(accepted ? sent_ : refused_);
  in_flight_.erase(found);
  wake_.signal();
  return true;
}

void NotificationQueue::link_up() {
  {
    const std::lock_guard lock(mutex_);
    link_is_up_ = true;
    standstill_began_ = std::chrono::steady_clock::now();
  }
  wake_.signal();
}

void NotificationQueue::link_down() {
  link_is_up_ = false;
  put_back(in_flight_);
}

// Empties `entries`. Wakes those who wait for room: without a link they need not.
void NotificationQueue::put_back(Entries &entries) {
  const std::lock_guard lock(mutex_);
  waiting_.splice(waiting_.begin(), entries);
  room_.notify_all();
  longest_ = std::max(longest_, waiting_.size());
}

bool NotificationQueue::idle() const {
  return in_flight_.empty() && waiting() == 0;
}

std::size_t NotificationQueue::waiting() const {
  const std::lock_guard lock(mutex_);
  return waiting_.size();
}

std::size_t NotificationQueue::dropped() const {
  const std::lock_guard lock(mutex_);
  return dropped_;
}

std::size_t NotificationQueue::longest() const {
  const std::lock_guard lock(mutex_);
  return longest_;
}

std::size_t NotificationQueue::lost() const {
  const std::lock_guard lock(mutex_);
  return lost_;
}

NotificationQueue::Entries NotificationQueue::take_front() {
  Entries front;
  const std::lock_guard lock(mutex_);
  if (!waiting_.empty()) {
    front.splice(front.end(), waiting_, waiting_.begin());
    standstill_began_ = std::chrono::steady_clock::now();
    room_.notify_one();
  }
  return front;
}

void NotificationQueue::report_losses() {
  const std::size_t total_lost = lost();
  if (total_lost != reported_losses_) {
    snmp_log(LOG_ERR, "%zu notifications lost (out of memory, or refused by net-snmp), %zu since the start\n",
             total_lost - reported_losses_, total_lost);
    reported_losses_ = total_lost;
  }
  const std::size_t total = dropped();
  // One line for the first drop, and one for the rest once sending is possible again, instead of one a notification.
  if (total == reported_drops_ || (reported_drops_ != 0 && !link_is_up_)) {
    return;
  }
  snmp_log(LOG_WARNING, "notification queue full (%zu): %zu dropped, %zu since the start\n", limit_,
           total - reported_drops_, total);
  reported_drops_ = total;
}

// The C library keeps what a storm took: after 100,000 notifications, tens of MiB.
void NotificationQueue::give_memory_back() {
  if (backlog_ >= large_backlog && idle()) {
    backlog_ = 0;
    tavo::give_memory_back();
  }
}

}  // namespace tavo
