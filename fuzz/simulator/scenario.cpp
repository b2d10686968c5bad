// The simulator's scenario, and everything that a server can be asked for that starts with it.
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "core/descriptor.h"
#include "fuzz/harness/door.h"
#include "fuzz/harness/simulated_server.h"
#include "simulator/scenario.h"

namespace tavo::fuzz {

void try_input(Octets input) {
  const Descriptor file(memfd_create("scenario", MFD_CLOEXEC));
  expect(write(file.get(), input.data(), input.size()) == static_cast<ssize_t>(input.size()), "the file is written");
  try {
    service::Machine machine(service::load_scenario("/proc/self/fd/" + std::to_string(file.get())),
                             service::temporary_surroundings());
    service::ask_for_everything(machine);
  } catch (const service::BadInput &) {
  }
}

}  // namespace tavo::fuzz
