// Logs how the daemon starts and stops a module, one line per call. With TEST_MODULE_STUCK set, the close never
// returns, as when a thread waits for an event that does not come.
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>

namespace tavo {

extern "C" {

extern pthread_t test_trap_thread;

static std::atomic<bool> test_thread_runs = true;

int init_subagent_modules() {
  snmp_log(LOG_INFO, "called init_subagent_modules\n");
  return 0;
}

void *SendTestTrap(void *) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGUSR1);
  while (test_thread_runs) {
    snmp_log(LOG_INFO, "test thread waits\n");
    int taken = 0;
    sigwait(&signals, &taken);
    snmp_log(LOG_INFO, "test thread took signal %d\n", taken);
  }
  return nullptr;
}

void stop_test_trap_thread() {
  snmp_log(LOG_INFO, "called stop_test_trap_thread\n");
  test_thread_runs = false;
}
void stop_FE_thread() {
  snmp_log(LOG_INFO, "called stop_FE_thread\n");
}
void stop_inventory_thread() {
  snmp_log(LOG_INFO, "called stop_inventory_thread\n");
}
void stop_velt_thread() {
  snmp_log(LOG_INFO, "called stop_velt_thread\n");
}

int close_subagent_modules() {
  snmp_log(LOG_INFO, "called close_subagent_modules\n");
  pthread_join(test_trap_thread, nullptr);
  snmp_log(LOG_INFO, "joined the test thread\n");
  if (std::getenv("TEST_MODULE_STUCK") != nullptr) {
    for (;;) {
      pause();
    }
  }
  return 0;
}
}

}  // namespace tavo
