// Redirects the module's paths under /var, and its own in /tmp, to a directory of the test.
#pragma once

#include <string>
#include <string_view>

namespace tavo::fakes {

// While it lives, the module finds those paths in a directory that is empty at first and is removed with it. Other
// paths are not redirected. One at a time.
class FakeFiles {
 public:
  FakeFiles();
  ~FakeFiles();
  FakeFiles(const FakeFiles &) = delete;
  FakeFiles &operator=(const FakeFiles &) = delete;

  // The real path behind a path of the module.
  static std::string real_path(std::string_view path);

  // All take paths as the module knows them.
  void write(std::string_view path, std::string_view content) const;
  void make_directory(std::string_view path) const;
  void remove(std::string_view path) const;
  std::string read(std::string_view path) const;
};

// How often the module has tried to open the path since the FakeFiles was made.
int opens_of(std::string_view path);

// The next `times` reads of the module fail with EINTR.
void interrupt_reads(int times);

// From now on opening this path fails with `error`, though the file exists.
void refuse_open(std::string_view path, int error);

}  // namespace tavo::fakes
