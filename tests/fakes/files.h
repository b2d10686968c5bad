// The platform's files as the tests want them: paths under /var, and those of the module's own in /tmp, lead to a
// directory of the test's own.
#pragma once

#include <string>
#include <string_view>

namespace tavo::fakes {

// While it lives, what the module opens or asks for there is looked up in an empty directory that goes away with
// it. Other paths are not touched. One at a time.
class FakeFiles {
 public:
  FakeFiles();
  ~FakeFiles();
  FakeFiles(const FakeFiles &) = delete;
  FakeFiles &operator=(const FakeFiles &) = delete;

  // Where a path of the module's really leads.
  static std::string real_path(std::string_view path);

  // All take paths as the module knows them.
  void write(std::string_view path, std::string_view content) const;
  void make_directory(std::string_view path) const;
  void remove(std::string_view path) const;
  std::string read(std::string_view path) const;
};

// How many opens of the path have been asked for since the FakeFiles was made.
int opens_of(std::string_view path);

// From now on opening this path fails with `error`, though the file exists.
void refuse_open(std::string_view path, int error);

}  // namespace tavo::fakes
