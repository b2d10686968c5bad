#include "threads/test_trap_thread.h"

#include <pthread.h>
#include <signal.h>

#include <atomic>

#include "core/background_thread.h"
#include "platform/test_trap.h"
#include "tables/faults/tavoFaultTable_traps.h"

// A daemon without this thread does not define the handle, and the module must load all the same.
#pragma weak test_trap_thread

namespace tavo {
namespace {

// Set as soon as the module is loaded, since the daemon may start the thread at any time.
constinit std::atomic<int> run_flag = 1;

void send_test_traps() {
  snmp_log(LOG_DEBUG, "TestTrap thread init done\n");
  FaultRow test_fault = {};
  create_dummy_trap_entry(&test_fault);
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGUSR1);
  while (run_flag.load(std::memory_order_relaxed) != 0) {
    int signal = 0;
    sigwait(&signals, &signal);
    if (signal == SIGUSR1) {
      snmp_log(LOG_DEBUG, "Called Test Trap\n");
      send_fault_trap(1, &test_fault);
    }
  }
}

}  // namespace

void *SendTestTrap(void *) {
  send_test_traps();
  pthread_exit(nullptr);
}

void stop_test_trap_thread(void) {
  snmp_log(LOG_DEBUG, "Stopping TestTrapThread\n");
  run_flag.store(0, std::memory_order_relaxed);
}

int join_test_trap_thread(void) {
  // pthread_join would use even a handle that the daemon has left empty.
  const bool offered = &test_trap_thread != nullptr;
  if (offered && (test_trap_thread == 0 || pthread_join(test_trap_thread, nullptr) != 0)) {
    snmp_log(LOG_DEBUG, "!!! Unable to join test trap thread !!!!\n");
  }
  snmp_log(LOG_DEBUG, "TestThread exited\n");
  return 1;
}

}  // namespace tavo
