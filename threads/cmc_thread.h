// The chassis link: a TCP listener on port 25678 that sends the chassis management controller (CMC) a block of octets.
// Whoever connects gets the block, and gets it again after each message that it sends; there is no framing. The module
// neither fills the block nor starts the thread: the daemon does both, and may narrow the link
// (threads/cmc_settings.h).
#pragma once

#include <pthread.h>

#include <cstdint>

namespace tavo {

#pragma GCC visibility push(default)
extern "C" {

// Guards the block. A sender holds it until the whole block is sent, which takes as long as the peer takes to read it.
extern pthread_mutex_t cmc_lock;
// The block and its length in octets; with a length of 0 or less, nothing is sent. Only the producer changes them,
// under cmc_lock.
extern unsigned char *cmc_data_buffer;
extern int32_t transfer_data_len;
// The listening socket and the connection; -1 if there is none. Only the link's thread changes them.
extern int32_t sock_fd;
extern int32_t data_fd;

// Starts the thread. 0, or -1 if it cannot be created.
int create_cmc_thread(void);
// Clears the run flag, which the link never tests: it ends only when its listening socket fails.
void stop_cmc_thread(void);
// Waits for the thread to end. Always 0.
int join_cmc_thread(void);
// The thread's start routine; its argument is not used. Leaves by pthread_exit.
void *cmc_thread(void *unused);

// Sends the whole block over the connection. 1, even if there is no connection or no block; 0 if a send fails.
int send_to_cmc(void);

// With `enable` 1, makes the kernel probe the connection: `count` probes, the first after `idle` seconds of silence,
// then one every `interval` seconds. 0; or -1, with the error logged, the socket closed and `*fd` set to -1.
int setup_tcp_keepalive(int *fd, int count, int idle, int interval, int enable);
}
#pragma GCC visibility pop

}  // namespace tavo
