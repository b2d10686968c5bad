// Include this in a file whose tests start threads: ThreadSanitizer's build compiles only such files. A test that
// starts a thread in any other file fails.
#pragma once

namespace tavo {

class ThreadedFile {
 public:
  // `file`: as the compiler was given it.
  explicit ThreadedFile(const char *file);
};

namespace {

[[maybe_unused]] const ThreadedFile this_file_starts_threads(__BASE_FILE__);

}  // namespace
}  // namespace tavo
