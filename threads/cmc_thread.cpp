#include "threads/cmc_thread.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>

#include "core/background_thread.h"
#include "core/mutex_hold.h"
#include "core/shortage.h"
#include "threads/cmc_settings.h"

namespace tavo {

pthread_mutex_t cmc_lock = PTHREAD_MUTEX_INITIALIZER;
unsigned char *cmc_data_buffer = nullptr;
int32_t transfer_data_len = 0;
int32_t sock_fd = -1;
int32_t data_fd = -1;

namespace {

constexpr in_port_t port = 25678;
constexpr int backlog = 1;
constexpr int socket_buffer_size = 65536;   // octets
constexpr std::size_t receive_size = 1024;  // octets

constexpr ThreadDescription description = {
    .start_routine = cmc_thread,
    .source = "cmc_thread.c",
    .creating = "%s: Creating CMC thread\n",
    .create_failed = "Unable to create CMC thread\n",
    .stopping = "Stopping CMCThread\n",
    .join_failed = "Unable to join CMC thread\n",
    .exited = "CMCThread exited\n",
};

constinit BackgroundThread thread(description);

// Other threads may read the descriptors (send_to_cmc does), so they are changed atomically.
int connection() {
  return std::atomic_ref(data_fd).load(std::memory_order_relaxed);
}

void set_connection(int descriptor) {
  std::atomic_ref(data_fd).store(descriptor, std::memory_order_relaxed);
}

int listener() {
  return std::atomic_ref(sock_fd).load(std::memory_order_relaxed);
}

void set_listener(int descriptor) {
  std::atomic_ref(sock_fd).store(descriptor, std::memory_order_relaxed);
}

void close_listener() {
  close(listener());
  set_listener(-1);
}

void close_connection() {
  const int descriptor = connection();
  set_connection(-1);
  close(descriptor);
}

// A failure on the listening side ends the thread for good. Always false.
bool fail(const char *message) {
  snmp_log(LOG_ERR, "%s", message);
  if (listener() != -1) {
    close_listener();
  }
  return false;
}

bool open_listener(const CmcSettings &settings) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  set_listener(descriptor);
  if (descriptor < 0 || descriptor >= FD_SETSIZE) {  // select cannot wait for it
    return fail("\nsocket error\n");
  }
  const int reuse = 1;
  if (setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse) < 0) {
    return fail("\nsetsockopt failed\n");
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr = settings.address;
  address.sin_port = htons(port);
  if (bind(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) < 0) {
    return fail("\nbind failed\n");
  }
  if (listen(descriptor, backlog) < 0) {
    return fail("\nlisten failed\n");
  }
  return true;
}

void push_block(const CmcSettings &settings) {
  const bool sent = send_to_cmc() >= 1;
  snmp_log(LOG_DEBUG, sent ? "\nSend successful\n" : "\nSend failed\n");
  if (!sent && settings.idle_limit > 0) {
    shutdown(connection(), SHUT_RDWR);  // a peer that has not read for so long gets no other block behind half a one
  }
}

// Logged once a minute at most: whoever is refused can try again as often as he likes.
void log_refusal(in_addr peer) {
  constexpr std::time_t pause = 60;  // seconds
  static std::time_t next_line = 0;
  static unsigned refused = 0;
  ++refused;
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  if (now.tv_sec >= next_line) {
    char address[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &peer, address, sizeof address);
    snmp_log(LOG_WARNING, "the chassis link has refused %u connections, the last from %s\n", refused, address);
    next_line = now.tv_sec + pause;
    refused = 0;
  }
}

bool is_admitted(int descriptor, const CmcSettings &settings) {
  sockaddr_in peer = {};
  socklen_t length = sizeof peer;
  getpeername(descriptor, reinterpret_cast<sockaddr *>(&peer), &length);  // a peer that has gone has no address
  if (settings.admits(peer.sin_addr)) {
    return true;
  }
  log_refusal(peer.sin_addr);
  return false;
}

bool accept_connection(const CmcSettings &settings) {
  int descriptor = accept_when_possible(listener(), "cmc_thread", thread);
  if (descriptor < 0) {
    return fail("\nAccept failed\n");
  }
  if (!is_admitted(descriptor, settings)) {
    close(descriptor);
    return true;
  }
  setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &socket_buffer_size, sizeof socket_buffer_size);
  setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &socket_buffer_size, sizeof socket_buffer_size);
  setup_tcp_keepalive(&descriptor, 5, 30, 30, 1);
  if (descriptor >= FD_SETSIZE) {  // select cannot wait for it
    snmp_log(LOG_ERR, "\nAccept failed\n");
    close(descriptor);
    return true;
  }
  if (settings.idle_limit > 0) {
    const timeval limit = {.tv_sec = settings.idle_limit, .tv_usec = 0};
    setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  }
  set_connection(descriptor);
  push_block(settings);
  return true;
}

void serve_connection(const CmcSettings &settings) {
  std::array<char, receive_size> ignored;
  if (recv(connection(), ignored.data(), ignored.size(), 0) <= 0) {
    close_connection();
  } else {
    push_block(settings);
  }
}

// One turn: waits for the next event and handles it. While there is a connection, the thread waits for that one only,
// so a second peer stays in the backlog and does not wake the thread over and over. False if the link must end.
bool serve_one_event(const CmcSettings &settings) {
  const int awaited = connection() == -1 ? listener() : connection();
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(awaited, &readable);
  timeval idle_limit = {.tv_sec = settings.idle_limit, .tv_usec = 0};
  const bool is_limited = settings.idle_limit > 0 && connection() != -1;
  const int ready = select(awaited + 1, &readable, nullptr, nullptr, is_limited ? &idle_limit : nullptr);
  if (ready == 0) {
    snmp_log(LOG_INFO, "the chassis link closes a connection that has been idle for %d s\n", settings.idle_limit);
    close_connection();
    return true;
  }
  if (ready < 0) {
    if (errno == EINTR) {
      return true;
    }
    fail("\nselect failed\n");
    if (connection() != -1) {
      close_connection();
    }
    return false;
  }
  if (awaited == listener()) {
    return accept_connection(settings);
  }
  serve_connection(settings);
  return true;
}

// A peer that disconnects during a send must not end the daemon.
void block_sigpipe() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void serve_chassis() {
  block_sigpipe();
  snmp_log(LOG_DEBUG, "CMCThread initiated\n");
  CmcSettings settings;
  if (!settings.read() || !open_listener(settings)) {
    return;
  }
  while (serve_one_event(settings)) {
  }
}

struct KeepaliveOption {
  int level;
  int name;
  int value;
  const char *failure;  // %s: the error's text
};

}  // namespace

int create_cmc_thread(void) {
  return thread.create();
}

void stop_cmc_thread(void) {
  thread.stop();
}

int join_cmc_thread(void) {
  thread.join();
  return 0;
}

void *cmc_thread(void *) {
  serve_chassis();
  pthread_exit(nullptr);
}

int send_to_cmc(void) {
  const MutexHold hold(cmc_lock);
  const int descriptor = connection();
  if (descriptor <= 0) {
    return 1;
  }
  for (int32_t sent = 0; sent < transfer_data_len;) {
    const ssize_t taken =
        send(descriptor, cmc_data_buffer + sent, static_cast<std::size_t>(transfer_data_len - sent), 0);
    if (taken < 0) {
      snmp_log(LOG_ERR, "Send failed...\n");
      return 0;
    }
    sent += static_cast<int32_t>(taken);
  }
  return 1;
}

int setup_tcp_keepalive(int *fd, int count, int idle, int interval, int enable) {
  const std::array<KeepaliveOption, 4> options = {{
      {IPPROTO_TCP, TCP_KEEPCNT, count, "setsockopt failed with error to enable keep alive count: %s\n"},
      {IPPROTO_TCP, TCP_KEEPIDLE, idle, "setsockopt failed with error to enable keep alive idle time: %s\n"},
      {IPPROTO_TCP, TCP_KEEPINTVL, interval, "setsockopt failed with error to enable keep alive interval time: %s\n"},
      {SOL_SOCKET, SO_KEEPALIVE, enable, "setsockopt failed with error to enable keep alive timer: %s\n"},
  }};
  for (const KeepaliveOption &option : options) {
    if (setsockopt(*fd, option.level, option.name, &option.value, sizeof option.value) != 0) {
      snmp_log(LOG_ERR, option.failure, std::strerror(errno));
      close(*fd);
      *fd = -1;
      return -1;
    }
  }
  return 0;
}

}  // namespace tavo
