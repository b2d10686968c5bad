#include "fuzz/harness/scratch_directory.h"

#include <cstdlib>
#include <string>

#include "fuzz/harness/door.h"

namespace tavo::fuzz {

ScratchDirectory::ScratchDirectory() {
  std::string pattern = "/dev/shm/fuzz-XXXXXX";
  expect(mkdtemp(pattern.data()) != nullptr, "a directory in memory can be made");
  path_ = pattern;
}

ScratchDirectory::~ScratchDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace tavo::fuzz
