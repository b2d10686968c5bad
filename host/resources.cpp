#include "host/resources.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <cerrno>
#include <cstring>
#include <latch>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "core/descriptor.h"
#include "host/exit_status.h"

namespace tavo {
namespace {

std::string limit_of(decltype(RLIMIT_NOFILE) resource) {
  rlimit limit{};
  if (getrlimit(resource, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) {
    return "none";
  }
  return std::to_string(limit.rlim_cur);
}

void require_descriptors() {
  std::vector<Descriptor> opened;
  while (opened.size() < descriptors_needed) {
    opened.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (!opened.back()) {
      throw StartFailure(ExitStatus::Failure, "only " + std::to_string(opened.size() - 1) + " descriptors are free, " +
                                                  std::to_string(descriptors_needed) + " are needed: " +
                                                  std::strerror(errno) + " (limit: " + limit_of(RLIMIT_NOFILE) + ")");
    }
  }
}

struct CountDown {
  ~CountDown() { latch.count_down(); }
  std::latch &latch;
};

void require_threads() {
  std::latch may_end(1);
  std::vector<std::jthread> threads;
  const CountDown end_them{may_end};  // before they are joined, whatever happens
  threads.reserve(threads_needed);
  try {
    while (threads.size() < threads_needed) {
      threads.emplace_back([&may_end] { may_end.wait(); });
    }
  } catch (const std::system_error &error) {
    throw StartFailure(ExitStatus::Failure, "only " + std::to_string(threads.size()) + " threads can be created, " +
                                                std::to_string(threads_needed) + " are needed: " +
                                                error.code().message() + " (limit: " + limit_of(RLIMIT_NPROC) + ")");
  }
}

}  // namespace

void require_resources() {
  require_descriptors();
  require_threads();
}

}  // namespace tavo
