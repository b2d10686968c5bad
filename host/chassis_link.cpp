#include "host/chassis_link.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "core/descriptor.h"
#include "host/exit_status.h"

namespace tavo {
namespace {

// How long the replacer waits for a send to end before it looks for new requests.
constexpr long slice = 50'000'000;  // ns
constexpr long second = 1'000'000'000;

[[noreturn]] void refuse(const std::string &path, const std::string &reason) {
  throw std::runtime_error("cannot read the chassis link's block " + path + ": " + reason);
}

// Reads at most one octet more than the largest block, even if the file keeps growing. Throws std::runtime_error.
std::vector<unsigned char> read_block(const std::string &path) {
  const Descriptor file = open_for_reading(path.c_str());
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0) {
    refuse(path, std::strerror(errno));
  }
  if (!S_ISREG(status.st_mode)) {
    refuse(path, "not a regular file");
  }
  constexpr std::size_t piece = 64 << 10;
  std::vector<unsigned char> octets;
  for (std::size_t size = 0; size <= ChassisLink::largest_block;) {
    octets.resize(std::min(size + piece, ChassisLink::largest_block + 1));
    const ssize_t got = read(file.get(), octets.data() + size, octets.size() - size);
    if (got < 0) {
      refuse(path, std::strerror(errno));
    }
    size += static_cast<std::size_t>(got);
    if (got == 0) {
      octets.resize(size);
      octets.shrink_to_fit();
      return octets;
    }
  }
  refuse(path, "larger than " + std::to_string(ChassisLink::largest_block) + " octets");
}

// Uses the time of day because ThreadSanitizer does not know pthread_mutex_clocklock. A clock that is set back only
// lengthens one slice: the wait still ends with the send, and a stop cuts the send off.
bool locked_within_slice(pthread_mutex_t *mutex) {
  timespec end{};
  clock_gettime(CLOCK_REALTIME, &end);
  end.tv_sec += (end.tv_nsec + slice) / second;
  end.tv_nsec = (end.tv_nsec + slice) % second;
  return pthread_mutex_timedlock(mutex, &end) == 0;
}

void end_traffic(int32_t &exported_descriptor) {
  const int descriptor = std::atomic_ref(exported_descriptor).load(std::memory_order_relaxed);
  if (descriptor >= 0) {
    shutdown(descriptor, SHUT_RDWR);
  }
}

}  // namespace

ChassisLink::ChassisLink(const ChassisLinkExports &exports, const std::string &file)
    : exports_(exports), file_(std::filesystem::absolute(file)) {
  try {
    std::vector<unsigned char> block = read_block(file_);
    pthread_mutex_lock(exports_.lock);
    replace_block(block);
    pthread_mutex_unlock(exports_.lock);
  } catch (const std::runtime_error &error) {
    throw StartFailure(ExitStatus::Configuration, error.what());
  }
}

ChassisLink::~ChassisLink() {
  if (replacer_.joinable()) {
    replacer_.request_stop();
    replacer_.join();
  }
  // After close() the lock is free. Without close(), a send to a peer that was just accepted may still take it.
  do {
    wake();
  } while (!locked_within_slice(exports_.lock));
  std::vector<unsigned char> none;
  replace_block(none);
  pthread_mutex_unlock(exports_.lock);
}

void ChassisLink::start() {
  snmp_log(LOG_INFO, "the chassis link sends %zu octets from %s\n", block_.size(), file_.c_str());
  // The link's thread comes last: if a start fails, nothing runs yet that only close() could end.
  try {
    replacer_ = std::jthread([this](const std::stop_token &stop) { replace_blocks(stop); });
  } catch (const std::system_error &error) {
    throw StartFailure(ExitStatus::Failure,
                       std::string("cannot create the thread that replaces the chassis link's block: ") + error.what());
  }
  if (exports_.create_thread() != 0) {
    throw StartFailure(ExitStatus::Failure, "cannot create the chassis link's thread");
  }
}

void ChassisLink::reload() {
  const std::lock_guard lock(mutex_);
  reload_requested_ = true;
  requested_.notify_one();
}

void ChassisLink::ask_to_stop() {
  exports_.stop_thread();
  replacer_.request_stop();
}

void ChassisLink::wake() const {
  end_traffic(*exports_.connection);
  end_traffic(*exports_.listener);
}

void ChassisLink::close() {
  exports_.join_thread();
  replacer_.join();
}

// Newer content replaces pending content.
void ChassisLink::replace_blocks(const std::stop_token &stop) {
  std::vector<unsigned char> next;
  bool pending = false;
  while (!stop.stop_requested()) {
    if (take_reload_request(stop, !pending)) {
      try {
        next = read_block(file_);
        pending = true;
      } catch (const std::exception &error) {
        snmp_log(LOG_WARNING, "%s; the block stays as it was\n", error.what());
      }
    }
    if (pending && replaced_within_slice(next)) {
      next = {};
      pending = false;
    }
  }
}

bool ChassisLink::take_reload_request(const std::stop_token &stop, bool wait) {
  std::unique_lock lock(mutex_);
  if (wait) {
    requested_.wait(lock, stop, [this] { return reload_requested_; });
  }
  return std::exchange(reload_requested_, false);
}

bool ChassisLink::replaced_within_slice(std::vector<unsigned char> &next) {
  const std::size_t size = next.size();
  if (!locked_within_slice(exports_.lock)) {
    return false;
  }
  const bool newest = !reload_is_requested();
  if (newest) {
    replace_block(next);
  }
  pthread_mutex_unlock(exports_.lock);
  if (newest) {
    // The block changes even if the link's thread has ended because its port was taken.
    snmp_log(LOG_INFO, "the chassis link's block is %zu octets from %s now\n", size, file_.c_str());
  }
  return newest;
}

bool ChassisLink::reload_is_requested() {
  const std::lock_guard lock(mutex_);
  return reload_requested_;
}

// The caller holds the lock. Leaves the previous block in `block`.
void ChassisLink::replace_block(std::vector<unsigned char> &block) {
  block_.swap(block);
  *exports_.block = block_.data();
  *exports_.block_size = static_cast<int32_t>(block_.size());
}

}  // namespace tavo
