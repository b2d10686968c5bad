#include "host/module.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstring>
#include <string>
#include <string_view>
#include <thread>

#include "core/descriptor.h"
#include "core/health.h"
#include "core/marker.h"
#include "host/exit_status.h"
#include "host/imports.h"
#include "host/platform_calls.h"
#include "platform/storage_client.h"
#include "platform/test_trap.h"
#include "threads/test_trap_thread.h"

namespace tavo {

// The module joins this thread. Zero while the daemon has not started it.
extern "C" {
pthread_t test_trap_thread = 0;
}

namespace {

struct MissingThread {
  const char *function;
  int error;
};

// The first of the module's threads that could not be created, and why; no function if all could. Words are made of it
// later: the module cannot handle an exception, and memory may be short.
constinit MissingThread missing_thread = {};

}  // namespace

extern "C" {
void tavo_thread_missing(const char *function, int error) {
  if (missing_thread.function == nullptr) {
    missing_thread = {.function = function, .error = error};
  }
}
}

namespace {

constexpr const char *velt_stop_function = "stop_velt_thread";

// All are of one type. A module may lack any of its threads, and their functions with them.
constexpr auto stop_functions = std::to_array<const char *>({
    "stop_test_trap_thread",
    "stop_FE_thread",
    "stop_inventory_thread",
    "stop_stor_thread",
    velt_stop_function,
});

void *load(const std::string &path, int visibility, ExitStatus missing, const char *what) {
  if (void *library = dlopen(path.c_str(), RTLD_NOW | visibility)) {
    return library;
  }
  const std::string_view reason = dlerror();
  const bool lacks_symbol = reason.find("undefined symbol") != std::string_view::npos;
  throw StartFailure(lacks_symbol ? ExitStatus::Symbol : missing,
                     "cannot load " + std::string(what) + " " + path + ": " + std::string(reason));
}

// The loader finds every function that the daemon stands in front of, because the daemon defines it. What is behind it
// may be missing.
void require_platform_functions(const std::string &path, void *module) {
  const auto watched = watched_platform_functions();
  for (const std::string_view name : imported_names(module)) {
    if (std::ranges::find(watched, name) != watched.end() && dlsym(RTLD_NEXT, name.data()) == nullptr) {
      throw StartFailure(ExitStatus::Symbol, "cannot load module " + path + ": undefined symbol: " + std::string(name));
    }
  }
}

// The SD-card event thread sleeps until a peer connects to its socket, and checks its run flag after each connection.
void wake_velt_thread() {
  const Descriptor peer(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!peer) {
    return;
  }
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, VELT_SOCKET_PATH, sizeof address.sun_path - 1);
  [[maybe_unused]] const int result = connect(peer.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
}

}  // namespace

void load_platform_library(const std::string &path) {
  load(path, RTLD_GLOBAL, ExitStatus::Platform, "platform library");
}

Module::Module(const std::string &path)
    : path_(path),
      library_(load(path, RTLD_LOCAL, ExitStatus::Module, "module")),
      init_(require<decltype(init_subagent_modules)>("init_subagent_modules")) {
  require_platform_functions(path, library_);
}

void Module::start() {
  init_();
  if (missing_thread.function != nullptr) {
    throw StartFailure(ExitStatus::Failure,
                       "cannot create a thread of the module: " + std::string(missing_thread.function) + ": " +
                           std::strerror(missing_thread.error));
  }
  if (auto *body = find<decltype(SendTestTrap)>("SendTestTrap")) {
    if (pthread_create(&test_trap_thread, nullptr, body, nullptr) != 0) {
      throw StartFailure(ExitStatus::Failure, "cannot create the test-notification thread");
    }
  }
}

void Module::wait_for_faults(std::chrono::milliseconds limit) const {
  // The thread sets this flag once it has listed the faults: it notifies managers of every later change.
  auto *const listed = marker_exists(warm_start_marker) ? find<int>("needToSendTrapFlag") : nullptr;
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (listed != nullptr && std::atomic_ref(*listed) == 0 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

void Module::ask_threads_to_stop() {
  for (const char *name : stop_functions) {
    if (auto *stop = find<decltype(stop_test_trap_thread)>(name)) {
      stop();
    }
  }
  // The thread checks its flag after one more signal. If the thread is busy, the signal stays pending.
  if (test_trap_thread != 0) {
    pthread_kill(test_trap_thread, SIGUSR1);
  }
  if (find<void()>(velt_stop_function) != nullptr) {
    wake_velt_thread();
  }
}

void Module::close() {
  if (auto *close_modules = find<decltype(close_subagent_modules)>("close_subagent_modules")) {
    close_modules();
  }
}

ChassisLinkExports Module::chassis_link() const {
  return {
      .create_thread = require<decltype(create_cmc_thread)>("create_cmc_thread"),
      .stop_thread = require<decltype(stop_cmc_thread)>("stop_cmc_thread"),
      .join_thread = require<decltype(join_cmc_thread)>("join_cmc_thread"),
      .lock = require<decltype(cmc_lock)>("cmc_lock"),
      .block = require<decltype(cmc_data_buffer)>("cmc_data_buffer"),
      .block_size = require<decltype(transfer_data_len)>("transfer_data_len"),
      .listener = require<decltype(sock_fd)>("sock_fd"),
      .connection = require<decltype(data_fd)>("data_fd"),
  };
}

template <class Symbol>
Symbol *Module::find(const char *name) const {
  return reinterpret_cast<Symbol *>(dlsym(library_, name));
}

template <class Symbol>
Symbol *Module::require(const char *name) const {
  if (auto *symbol = find<Symbol>(name)) {
    return symbol;
  }
  throw StartFailure(ExitStatus::Symbol, "module " + path_ + " has no " + name);
}

}  // namespace tavo
