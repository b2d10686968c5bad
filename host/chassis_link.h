// The chassis link as the daemon runs it: reads the block of octets that the module hands to the chassis management
// controller from a file, and starts and stops the link.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "threads/cmc_thread.h"

namespace tavo {

// What a module with a chassis link exports. No pointer is null.
struct ChassisLinkExports {
  decltype(create_cmc_thread) *create_thread;
  decltype(stop_cmc_thread) *stop_thread;
  decltype(join_cmc_thread) *join_thread;
  decltype(cmc_lock) *lock;  // guards the next two; a send holds it for as long as the peer takes to read
  decltype(cmc_data_buffer) *block;
  decltype(transfer_data_len) *block_size;  // octets
  decltype(sock_fd) *listener;              // the link's thread owns both descriptors; -1 means none
  decltype(data_fd) *connection;
};

class ChassisLink {
 public:
  // Octets. Up to three blocks of this size are in memory: the one being sent, the pending one, and a newer one.
  static constexpr std::size_t largest_block = 16 << 20;

  // Gives the content of `file` to the module as the block, and starts nothing. Throws StartFailure when the file
  // cannot be read.
  ChassisLink(const ChassisLinkExports &exports, const std::string &file);
  // Takes the block back. Cuts off a send that is under way if nobody has joined the link's thread.
  ~ChassisLink();
  ChassisLink(const ChassisLink &) = delete;
  ChassisLink &operator=(const ChassisLink &) = delete;

  // Starts the thread that replaces the block, then the module's thread, which opens the port. Throws StartFailure.
  void start();
  // Returns at once. A thread of its own reads the file again and replaces the block once no send holds it.
  void reload();

  // To stop: call ask_to_stop() once, then wake() repeatedly until close() returns on another thread.
  void ask_to_stop();
  // Shuts down the sockets that the link's thread waits for or sends on. Once is not enough: the thread may just have
  // accepted another peer.
  void wake() const;
  // Waits for both threads to end.
  void close();

 private:
  void replace_blocks(const std::stop_token &stop);
  bool take_reload_request(const std::stop_token &stop, bool wait);
  bool replaced_within_slice(std::vector<unsigned char> &next);
  bool reload_is_requested();
  void replace_block(std::vector<unsigned char> &block);

  const ChassisLinkExports exports_;
  const std::string file_;            // absolute: the daemon changes its directory
  std::vector<unsigned char> block_;  // guarded by *exports_.lock

  std::mutex mutex_;
  std::condition_variable_any requested_;
  bool reload_requested_ = false;  // guarded by mutex_

  std::jthread replacer_;
};

}  // namespace tavo
