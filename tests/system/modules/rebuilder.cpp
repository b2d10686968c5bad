// Rebuilds the real module's processor table without pause on a thread of its own. At the close it logs how many
// rebuilds there were, and how many failed.
#include <atomic>
#include <thread>

#include "real_module.h"

namespace tavo {

namespace {

std::atomic<bool> running = true;
std::thread rebuilding;
long rebuilds = 0;
long failures = 0;

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

int init_subagent_modules() {
  const RealModule module;
  module.function<int()>("init_tavoProcessorUnitTable")();
  rebuilding = std::thread([rebuild = module.function<int(int)>("initialize_processor_table")] {
    while (running) {
      failures += rebuild(1) == 0 ? 0 : 1;
      ++rebuilds;
    }
  });
  return 0;
}

int close_subagent_modules() {
  running = false;
  rebuilding.join();
  snmp_log(LOG_INFO, "%ld rebuilds, %ld failed\n", rebuilds, failures);
  return 0;
}
}
#pragma GCC visibility pop

}  // namespace tavo
