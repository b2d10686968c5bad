// The SD-card event thread: rebuilds the three SD-card tables whenever the SD-card service connects to its socket
// (VELT_SOCKET_PATH).
//
// What a peer sends, at most 1024 octets of text, is logged and means nothing: the connection itself is the message.
// Connections are served one at a time.
#pragma once

namespace tavo {

#pragma GCC visibility push(default)
extern "C" {

// Starts the thread. 0, or -1 if it cannot be created.
int create_velt_thread(void);

// The thread's start routine; its argument is not used. If the socket fails, logs why and ends. Leaves by pthread_exit.
void *velt_thread(void *unused);

// Clears the run flag. The thread is not woken: it ends after the next connection has been served.
void stop_velt_thread(void);

// Waits for the thread to end. The socket file stays; the next start replaces it. Always 0.
int join_velt_thread(void);
}
#pragma GCC visibility pop

}  // namespace tavo
