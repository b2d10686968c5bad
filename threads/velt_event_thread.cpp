#include "threads/velt_event_thread.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "core/background_thread.h"
#include "core/descriptor.h"
#include "core/shortage.h"
#include "core/text.h"
#include "platform/storage_client.h"
#include "refresh/storage_reload.h"

namespace tavo {
namespace {

constexpr const char *thread_name = "velt_thread";
constexpr int backlog = 20;
constexpr std::size_t longest_message = 1024;  // octets

constinit BackgroundThread thread(ThreadDescription{
    .start_routine = velt_thread,
    .source = "velt_event_thread",
    .creating = "%s: Creating Velt thread\n",
    .create_failed = "Unable to create velt thread\n",
    .stopping = "Stopping Velt Thread\n",
    .join_failed = "Unable to join velt thread\n",
    .exited = "Velt Thread exited\n",
    .failure_level = LOG_ERR,
});

// Ends the thread's work after `error`. `format` takes the thread's name and the error's text.
void give_up(const char *format, int error) {
  snmp_log(LOG_ERR, format, thread_name, std::strerror(error));
  thread.clear_run_flag();
}

// Removes what is left at the socket's path. Anybody may put a directory into /tmp, which cannot be unlinked and may be
// full: it is moved aside, which root can do.
void clear_socket_path() {
  if (unlink(VELT_SOCKET_PATH) == 0 || (errno != EISDIR && errno != EPERM)) {
    return;
  }
  std::uint32_t random = 0;
  if (getentropy(&random, sizeof random) != 0) {
    return;
  }
  char aside[sizeof VELT_SOCKET_PATH + 16];
  format_text(aside, "%s.%08x", VELT_SOCKET_PATH, random);
  if (std::rename(VELT_SOCKET_PATH, aside) == 0) {
    snmp_log(LOG_WARNING, "%s: a directory stood at %s and is now %s\n", thread_name, VELT_SOCKET_PATH, aside);
  }
}

// Binds the socket for its owner and group alone, even if the umask would let everybody connect: each connection costs
// a rebuild. The mode set before the bind is the file's from its first moment.
int bind_to_socket_path(const Descriptor &listener) {
  constexpr mode_t owner_and_group = 0660;
  constexpr int most_tries = 5;  // somebody may be quick to take the path again
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  static_assert(sizeof VELT_SOCKET_PATH <= sizeof address.sun_path);
  std::strcpy(address.sun_path, VELT_SOCKET_PATH);
  fchmod(listener.get(), owner_and_group);
  int result = -1;
  for (int tries = 0; tries < most_tries; ++tries) {
    clear_socket_path();
    result = bind(listener.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
    if (result == 0 || errno != EADDRINUSE) {
      break;
    }
  }
  return result;
}

// The listening socket; none after a failure.
Descriptor listen_at_socket_path() {
  Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!listener) {
    give_up("%s:socket() failed: %s\n", errno);
    return listener;
  }
  if (bind_to_socket_path(listener) != 0) {
    const int error = errno;
    listener = Descriptor();
    give_up("%s: bind() failed: %s\n", error);
  } else if (listen(listener.get(), backlog) != 0) {
    const int error = errno;
    listener = Descriptor();
    give_up("%s: listen() failed: %s\n", error);
  }
  return listener;
}

// Receives once. A peer that connects and says nothing must not keep the others waiting.
void log_message(const Descriptor &peer) {
  const timeval limit = {.tv_sec = 2, .tv_usec = 0};
  setsockopt(peer.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  std::array<char, longest_message + 1> message = {};
  errno = 0;  // an empty connection is logged as a failure, too, but sets no error
  if (recv(peer.get(), message.data(), longest_message, 0) < 1) {
    snmp_log(LOG_ERR, "%s:recv() failed: %s\n", thread_name, std::strerror(errno));
  } else {
    snmp_log(LOG_DEBUG, "%s: %s\n", thread_name, message.data());
  }
}

void serve_next_peer(Descriptor &listener) {
  Descriptor peer(accept_when_possible(listener.get(), thread_name, thread));
  if (!peer) {
    const int error = errno;
    listener = Descriptor();
    give_up("%s: accept() failed: %s\n", error);
    return;
  }
  log_message(peer);
  peer = Descriptor();
  reinit_velt_table(1);
}

void serve_peers() {
  snmp_log(LOG_DEBUG, "Velt Thread initiated\n");
  Descriptor listener = listen_at_socket_path();
  while (thread.is_running()) {
    serve_next_peer(listener);
  }
}

}  // namespace

int create_velt_thread(void) {
  return thread.create();
}

void *velt_thread(void *) {
  serve_peers();
  pthread_exit(nullptr);
}

void stop_velt_thread(void) {
  thread.stop();
}

int join_velt_thread(void) {
  thread.join();
  return 0;
}

}  // namespace tavo
