// The chassis link: a TCP listener on port 25678 that hands the chassis management controller (CMC) a block of octets.
// Whoever connects gets the block, and gets it again after everything it sends; there is no framing. The module neither
// fills the block nor starts the thread: the daemon does both.
#pragma once

#include <pthread.h>

#include <cstdint>

namespace tavo {

#pragma GCC visibility push(default)
extern "C" {

// Guards the block. A sender holds it until the whole block has gone, which lasts as long as the peer takes to read it.
extern pthread_mutex_t cmc_lock;
// The block and its length in octets; 0 or less: there is nothing to send. Changed by the producer, under cmc_lock.
extern unsigned char *cmc_data_buffer;
extern int32_t transfer_data_len;
// The listening socket and the connection, -1 when there is none. Changed by the link's thread alone.
extern int32_t sock_fd;
extern int32_t data_fd;

// 0, or -1 when the thread cannot be created.
int create_cmc_thread(void);
// Clears the run flag. The link waits without limit and does not look at it: it ends when its listening socket fails.
void stop_cmc_thread(void);
// Waits for the thread, which ends only when its listening socket fails. Always 0.
int join_cmc_thread(void);
void *cmc_thread(void *unused);

// Sends the whole block over the connection. 1, also when there is no connection or no block; 0 when a send failed.
int send_to_cmc(void);

// Has the kernel probe the connection: `count` probes, the first after `idle` seconds of silence, then every
// `interval` seconds, when `enable` is 1. 0; or -1 after an error line, and then the socket is closed and *fd is -1.
int setup_tcp_keepalive(int *fd, int count, int idle, int interval, int enable);
}
#pragma GCC visibility pop

}  // namespace tavo
