#include "host/exit_status.h"

#include <cstdio>

#include "host/name.h"
#include "host/service_manager.h"

namespace tavo {

ExitStatus report_start_failure(const StartFailure &failure) {
  std::fprintf(stderr, "%s: %s\n", daemon_name, failure.what());
  report_to_service_manager(Report::Passing, std::string("STATUS=") + failure.what());
  return failure.status();
}

}  // namespace tavo
