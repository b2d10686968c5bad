// The block of octets that the module's chassis link hands to the chassis management controller, kept from a file, and
// the link's start and stop.
#pragma once

#include <pthread.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace tavo {

// What a module with a chassis link exports; none is null.
struct ChassisLinkExports {
  int (*create_thread)();
  void (*stop_thread)();
  int (*join_thread)();
  pthread_mutex_t *lock;  // guards the next two; a send holds it for as long as the peer takes to read
  unsigned char **block;
  int32_t *block_size;  // octets
  int32_t *listener;    // these two descriptors belong to the link's thread; -1 while there is none
  int32_t *connection;
};

class ChassisLink {
 public:
  // Octets. Three such blocks are in memory when a newer content overtakes one that waits for a send.
  static constexpr std::size_t largest_block = 16 << 20;

  // Gives the module the content of `file` as the block; nothing runs yet. Throws StartFailure when it cannot be read.
  ChassisLink(const ChassisLinkExports &exports, const std::string &file);
  // Takes the block back. Where the link's thread has not been waited for, ends what it sends.
  ~ChassisLink();
  ChassisLink(const ChassisLink &) = delete;
  ChassisLink &operator=(const ChassisLink &) = delete;

  // Starts the thread that replaces the block, then the module's, which opens the port. Throws StartFailure.
  void start();
  // Has the file read again and the block replaced as soon as no send holds it, on a thread of its own. Does not wait.
  void reload();

  // The stop: ask_to_stop() once, then wake() again and again until close(), on another thread, has returned.
  void ask_to_stop();
  // Ends what the link's thread waits for or sends to. Once is not enough: it may have accepted a peer a moment ago.
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
