// Loading of the platform's libraries and of the extension MIB module, and what the daemon calls in the module.
#pragma once

#include <string>

#include "host/chassis_link.h"

namespace tavo {

// Makes a platform library's functions visible to the module. It stays loaded. Throws StartFailure.
void load_platform_library(const std::string &path);

class Module {
 public:
  // Loads the shared object; nothing of it runs yet but its static initialisers. It is never unloaded: its threads may
  // outlive every attempt to join them. Throws StartFailure when the file, a symbol that it needs, or
  // init_subagent_modules is missing.
  explicit Module(const std::string &path);

  // Registers the tables and starts the module's threads, then starts the test-notification thread if the module has
  // one. Throws StartFailure when that thread cannot be created.
  void start();
  // Clears the run flag of each thread that this module has, and wakes those that can be woken from outside.
  void ask_threads_to_stop();
  // Joins the threads: blocks for as long as one of them does.
  void close();

  // The chassis link, which the module leaves to the daemon. Throws StartFailure when a part of it is missing.
  ChassisLinkExports chassis_link() const;

 private:
  template <class Symbol>
  Symbol *find(const char *name) const;
  template <class Symbol>
  Symbol *require(const char *name) const;

  const std::string path_;
  void *library_;
  int (*init_)();
};

}  // namespace tavo
