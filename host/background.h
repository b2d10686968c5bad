// Running in the background, and the process id file.
#pragma once

#include <string>

namespace tavo {

// Forks. Only the child returns from the constructor. The parent waits until the child serves or fails, then exits with
// 0 or with the child's status. Construct it before any thread exists. Throws StartFailure.
class Background {
 public:
  Background();
  // The child serves: the parent exits, and the child lets go of the terminal and of the working directory.
  // `keep_output`: the log goes to standard output or error, so these stay as they are.
  void ready(bool keep_output);

 private:
  int to_parent_;
};

// Writes the process id to a file and removes the file in the end. An empty `path` means no file. Throws StartFailure
// when the file cannot be written.
class PidFile {
 public:
  explicit PidFile(const std::string &path);
  ~PidFile() { remove(); }
  PidFile(const PidFile &) = delete;
  PidFile &operator=(const PidFile &) = delete;
  void remove() const noexcept;

 private:
  std::string path_;
};

}  // namespace tavo
