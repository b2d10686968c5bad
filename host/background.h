// Running in the background, and the process id file.
#pragma once

#include <string>

namespace tavo {

// Forks. The parent waits until the child says that it serves, or has failed, and leaves with 0 or the child's status;
// only the child returns from the constructor. To be constructed before any thread exists. Throws StartFailure.
class Background {
 public:
  Background();
  // The child serves: lets the parent leave and gives its terminal and directory back. `keep_output`: standard output
  // and error are where the log goes.
  void ready(bool keep_output);

 private:
  int to_parent_;
};

// Holds the process id while it exists; removed at the end, unless `path` is empty and there is no file at all. Throws
// StartFailure when it cannot be written.
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
