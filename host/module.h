// Loads the platform's libraries and the extension MIB module, and calls the module.
#pragma once

#include <chrono>
#include <string>

#include "host/chassis_link.h"
#include "module/start_up.h"

namespace tavo {

// Loads a platform library, never to be unloaded, and makes its functions visible to the module. Throws StartFailure.
void load_platform_library(const std::string &path);

class Module {
 public:
  // Loads the shared object and runs only its static initialisers. It is never unloaded, because the daemon may fail to
  // join its threads. Throws StartFailure when the file, a symbol that it needs or init_subagent_modules is missing.
  explicit Module(const std::string &path);

  // Registers the tables and starts the module's threads, then starts the test-notification thread if the module has
  // one. Throws StartFailure when one of these threads cannot be created: a server whose faults are never shown is
  // worse than one that is started again.
  void start();
  // Waits until the fault event thread has listed the active faults, or for `limit`. Returns at once if the module has
  // no such thread, and after a cold boot of the controller, when the thread itself waits for a minute.
  void wait_for_faults(std::chrono::milliseconds limit) const;
  // Clears the run flag of each thread that the module has, and wakes those threads that can be woken from outside.
  void ask_threads_to_stop();
  // Joins the threads: blocks until the last one ends.
  void close();

  // The chassis link, which the daemon starts and stops. Throws StartFailure when a part of it is missing.
  ChassisLinkExports chassis_link() const;

 private:
  template <class Symbol>
  Symbol *find(const char *name) const;
  template <class Symbol>
  Symbol *require(const char *name) const;

  const std::string path_;
  void *library_;
  decltype(init_subagent_modules) *init_;
};

}  // namespace tavo
