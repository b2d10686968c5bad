// Files for what reads them by their names.
#pragma once

#include <filesystem>

namespace tavo::fuzz {

// A directory in memory that is empty, and is removed with its contents.
class ScratchDirectory {
 public:
  ScratchDirectory();
  ~ScratchDirectory();
  ScratchDirectory(const ScratchDirectory &) = delete;
  ScratchDirectory &operator=(const ScratchDirectory &) = delete;

  const std::filesystem::path &path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace tavo::fuzz
