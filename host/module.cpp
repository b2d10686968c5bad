#include "host/module.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <csignal>
#include <cstring>
#include <string_view>

#include "core/descriptor.h"
#include "host/exit_status.h"

#pragma GCC visibility push(default)
extern "C" {
// The module joins this thread; the daemon owns it. Zero while there is none.
extern pthread_t test_trap_thread;
pthread_t test_trap_thread = 0;
}
#pragma GCC visibility pop

namespace tavo {
namespace {

// A module may have any of its threads or none; the functions of those it lacks are not called.
constexpr auto stop_functions = std::to_array<const char *>({
    "stop_test_trap_thread",
    "stop_FE_thread",
    "stop_inventory_thread",
    "stop_stor_thread",
    "stop_velt_thread",
});

constexpr const char *velt_socket_path = "/tmp/snmp_velt_sock";

void *load(const std::string &path, int visibility, ExitStatus missing, const char *what) {
  if (void *library = dlopen(path.c_str(), RTLD_NOW | visibility)) {
    return library;
  }
  const std::string_view reason = dlerror();
  const bool lacks_symbol = reason.find("undefined symbol") != std::string_view::npos;
  throw StartFailure(lacks_symbol ? ExitStatus::symbol : missing,
                     "cannot load " + std::string(what) + " " + path + ": " + std::string(reason));
}

// The SD-card event thread sleeps until a peer connects to its socket; it looks at its run flag after each.
void wake_velt_thread() {
  const Descriptor peer(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!peer) {
    return;
  }
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, velt_socket_path, sizeof address.sun_path - 1);
  [[maybe_unused]] const int result = connect(peer.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
}

}  // namespace

void load_platform_library(const std::string &path) {
  load(path, RTLD_GLOBAL, ExitStatus::platform, "platform library");
}

Module::Module(const std::string &path)
    : path_(path),
      library_(load(path, RTLD_LOCAL, ExitStatus::module, "module")),
      init_(require<int()>("init_subagent_modules")) {}

void Module::start() {
  init_();
  if (auto *body = find<void *(void *)>("SendTestTrap")) {
    if (pthread_create(&test_trap_thread, nullptr, body, nullptr) != 0) {
      throw StartFailure(ExitStatus::failure, "cannot create the test-notification thread");
    }
  }
}

void Module::ask_threads_to_stop() {
  for (const char *name : stop_functions) {
    if (auto *stop = find<void()>(name)) {
      stop();
    }
  }
  // That thread sees its flag after one more signal, which waits for it should it be busy.
  if (test_trap_thread != 0) {
    pthread_kill(test_trap_thread, SIGUSR1);
  }
  if (find<void()>("stop_velt_thread") != nullptr) {
    wake_velt_thread();
  }
}

void Module::close() {
  if (auto *close_modules = find<int()>("close_subagent_modules")) {
    close_modules();
  }
}

ChassisLinkExports Module::chassis_link() const {
  return {
      .create_thread = require<int()>("create_cmc_thread"),
      .stop_thread = require<void()>("stop_cmc_thread"),
      .join_thread = require<int()>("join_cmc_thread"),
      .lock = require<pthread_mutex_t>("cmc_lock"),
      .block = require<unsigned char *>("cmc_data_buffer"),
      .block_size = require<int32_t>("transfer_data_len"),
      .listener = require<int32_t>("sock_fd"),
      .connection = require<int32_t>("data_fd"),
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
  throw StartFailure(ExitStatus::symbol, "module " + path_ + " has no " + name);
}

}  // namespace tavo
