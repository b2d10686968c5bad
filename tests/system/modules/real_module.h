// The real module, whose path is in the environment variable REAL_MODULE, behind 32 processors of this library's own.
// Each cell of the processor table follows from its column and row.
#pragma once

#include <dlfcn.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "platform/inventory.h"

namespace tavo {

inline constexpr int processors = 32;

inline void put(std::byte *record, std::size_t offset, const std::string &text) {
  std::memcpy(record + offset, text.c_str(), text.size() + 1);
}

inline void put(std::byte *record, std::size_t offset, std::uint32_t number) {
  for (int octet = 0; octet < 4; ++octet) {
    record[offset++] = static_cast<std::byte>(number >> (8 * octet));
  }
}

#pragma GCC visibility push(default)
// Defined in a header, so each test module that includes it has them once.
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
}
#pragma GCC visibility pop

class RealModule {
 public:
  RealModule() {
    // Makes the inventory functions above visible to the module, which looks them up among the global names.
    Dl_info self;
    dladdr(&processors, &self);  // not one of the functions: the daemon stands in front of them
    dlopen(self.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_GLOBAL);
    const std::filesystem::path module = std::getenv("REAL_MODULE");
    // The loader wants all functions of the platform. Those that nobody calls here are the simulator's.
    dlopen((module.parent_path() / "libbmcsim.so").c_str(), RTLD_NOW | RTLD_GLOBAL);
    handle_ = dlopen(module.c_str(), RTLD_NOW);
    if (handle_ == nullptr) {
      snmp_log(LOG_ERR, "%s\n", dlerror());
      std::exit(1);
    }
  }

  template <class Function>
  Function *function(const char *name) const {
    return reinterpret_cast<Function *>(dlsym(handle_, name));
  }

 private:
  void *handle_;
};

}  // namespace tavo
