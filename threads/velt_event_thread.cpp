#include "threads/velt_event_thread.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "core/background_thread.h"
#include "core/descriptor.h"
#include "core/shortage.h"
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

// The listening socket; none after a failure.
Descriptor listen_at_socket_path() {
  Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!listener) {
    give_up("%s:socket() failed: %s\n", errno);
    return listener;
  }
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  static_assert(sizeof VELT_SOCKET_PATH <= sizeof address.sun_path);
  std::strcpy(address.sun_path, VELT_SOCKET_PATH);
  unlink(address.sun_path);
  if (bind(listener.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
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

void log_message(const Descriptor &peer) {
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

}  // namespace

int create_velt_thread(void) {
  return thread.create();
}

void *velt_thread(void *) {
  run_thread(__func__, [] {
    snmp_log(LOG_DEBUG, "Velt Thread initiated\n");
    Descriptor listener = listen_at_socket_path();
    while (thread.is_running()) {
      serve_next_peer(listener);
    }
  });
}

void stop_velt_thread(void) {
  thread.stop();
}

int join_velt_thread(void) {
  thread.join();
  return 0;
}

}  // namespace tavo
