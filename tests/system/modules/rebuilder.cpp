// Loads the real module, whose path is in the environment variable REBUILT_MODULE, and rebuilds its processor table
// without pause on a thread of its own. This library provides 32 processors, and each cell follows from its column and
// row. At the close it logs how many rebuilds there were, and how many failed.
#include <dlfcn.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "platform/inventory.h"

namespace tavo {

namespace {

constexpr int processors = 32;

std::atomic<bool> running = true;
std::thread rebuilding;
long rebuilds = 0;
long failures = 0;

void put(std::byte *record, std::size_t offset, const std::string &text) {
  std::memcpy(record + offset, text.c_str(), text.size() + 1);
}

void put(std::byte *record, std::size_t offset, std::uint32_t number) {
  for (int octet = 0; octet < 4; ++octet) {
    record[offset++] = static_cast<std::byte>(number >> (8 * octet));
  }
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

int GetCPUItems(void *, int, const inventory_range *, int *count) {
  *count = processors;
  return 0;
}

int GetCPUInfo(void *, int size, const inventory_range *, void *records) {
  auto *record = static_cast<std::byte *>(records);
  for (std::uint32_t number = 1; number <= static_cast<std::uint32_t>(size / PROCESSOR_RECORD_SIZE); ++number) {
    const std::string name = std::to_string(number);
    put(record, PROCESSOR_SOCKET, "socket-" + name);
    put(record, PROCESSOR_VENDOR, "vendor-" + name);
    put(record, PROCESSOR_ARCHITECTURE, std::string("Xeon"));
    put(record, PROCESSOR_THREADS, 1000 + number);
    put(record, PROCESSOR_SERIAL, "serial-" + name);
    put(record, PROCESSOR_MODEL, "model-" + name);
    put(record, PROCESSOR_SPEED, 2000 + number);
    put(record, PROCESSOR_CORES, 3000 + number);
    put(record, PROCESSOR_STATUS, std::string("Enabled"));
    record += PROCESSOR_RECORD_SIZE;
  }
  return 0;
}

int init_subagent_modules() {
  // Makes the inventory functions above visible to the module, which looks them up among the global names.
  Dl_info self;
  dladdr(reinterpret_cast<void *>(&GetCPUItems), &self);
  dlopen(self.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_GLOBAL);
  void *module = dlopen(std::getenv("REBUILT_MODULE"), RTLD_LAZY);
  if (module == nullptr) {
    snmp_log(LOG_ERR, "%s\n", dlerror());
    std::exit(1);
  }
  reinterpret_cast<int (*)()>(dlsym(module, "init_tavoProcessorUnitTable"))();
  const auto rebuild = reinterpret_cast<int (*)(int)>(dlsym(module, "initialize_processor_table"));
  rebuilding = std::thread([rebuild] {
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
