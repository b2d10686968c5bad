#include "host/background.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <utility>

#include "host/exit_status.h"

namespace tavo {

Background::Background() : to_parent_(-1) {
  std::array<int, 2> channel{};
  if (pipe2(channel.data(), O_CLOEXEC) != 0) {
    throw StartFailure(ExitStatus::Failure, std::string("cannot create a pipe: ") + std::strerror(errno));
  }
  const pid_t child = fork();
  if (child < 0) {
    throw StartFailure(ExitStatus::Failure, std::string("cannot fork: ") + std::strerror(errno));
  }
  if (child > 0) {
    close(channel[1]);
    char served = 0;
    if (read(channel[0], &served, 1) == 1) {
      _exit(static_cast<int>(ExitStatus::Ok));
    }
    int status = 0;
    waitpid(child, &status, 0);
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : static_cast<int>(ExitStatus::Failure));
  }
  close(channel[0]);
  to_parent_ = channel[1];
  setsid();
}

void Background::ready(bool keep_output) {
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  dup2(null, STDIN_FILENO);
  if (!keep_output) {
    dup2(null, STDOUT_FILENO);
    dup2(null, STDERR_FILENO);
  }
  close(null);
  [[maybe_unused]] const int in_root = chdir("/");
  [[maybe_unused]] const ssize_t written = write(to_parent_, "", 1);
  close(std::exchange(to_parent_, -1));
}

PidFile::PidFile(const std::string &path) {
  if (path.empty()) {
    return;
  }
  std::ofstream file(path);
  file << getpid() << '\n';
  if (!file.flush()) {
    throw StartFailure(ExitStatus::Failure, "cannot write the process id to " + path);
  }
  path_ = std::filesystem::absolute(path);
}

void PidFile::remove() const noexcept {
  if (!path_.empty()) {
    unlink(path_.c_str());
  }
}

}  // namespace tavo
