#include "host/notification_queue.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace tavo {

NotificationQueue::NotificationQueue(std::size_t limit, Transmit transmit, std::chrono::steady_clock::duration patience)
    : limit_(limit), transmit_(std::move(transmit)), patience_(patience) {}

void NotificationQueue::push(Notification notification) {
  {
    std::unique_lock lock(mutex_);
    wait_for_room(lock);
    if (waiting_.empty()) {
      standstill_began_ = std::chrono::steady_clock::now();
    }
    waiting_.push_back(std::move(notification));
    if (waiting_.size() > limit_) {
      waiting_.pop_front();
      ++dropped_;
    }
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
  const std::lock_guard lock(mutex_);
  ++dropped_;
}

void NotificationQueue::turn() {
  wake_.clear();
  report_drops();
  for (std::size_t sent = 0; sent < burst && may_send(); ++sent) {
    std::optional<Notification> front = take_front();
    if (!front) {
      return;
    }
    const Transmission result = transmit_(*front);
    if (result.outcome == Transmission::LinkBroken) {
      const std::lock_guard lock(mutex_);
      link_is_up_ = false;
      room_.notify_all();
      waiting_.push_front(*std::move(front));
      return;
    }
    if (result.outcome == Transmission::AwaitingAnswer) {
      in_flight_.push_back({result.request, *std::move(front)});
    }
  }
  if (may_send() && waiting() > 0) {
    wake_.signal();
  }
}

void NotificationQueue::answered(int request) {
  const auto found =
      std::find_if(in_flight_.begin(), in_flight_.end(), [&](const InFlight &sent) { return sent.request == request; });
  if (found != in_flight_.end()) {
    in_flight_.erase(found);
    wake_.signal();
  }
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
  const std::lock_guard lock(mutex_);
  link_is_up_ = false;
  room_.notify_all();
  for (auto sent = in_flight_.rbegin(); sent != in_flight_.rend(); ++sent) {
    waiting_.push_front(std::move(sent->notification));
  }
  in_flight_.clear();
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

std::optional<Notification> NotificationQueue::take_front() {
  const std::lock_guard lock(mutex_);
  if (waiting_.empty()) {
    return std::nullopt;
  }
  std::optional<Notification> front(std::move(waiting_.front()));
  waiting_.pop_front();
  standstill_began_ = std::chrono::steady_clock::now();
  room_.notify_one();
  return front;
}

void NotificationQueue::report_drops() {
  const std::size_t total = dropped();
  // One line for the first loss, and one for the rest once sending is possible again, instead of one a notification.
  if (total == reported_drops_ || (reported_drops_ != 0 && !link_is_up_)) {
    return;
  }
  snmp_log(LOG_WARNING, "notification queue full (%zu): %zu dropped, %zu since the start\n", limit_,
           total - reported_drops_, total);
  reported_drops_ = total;
}

}  // namespace tavo
