// Whether libwrap has rules about who may ask the agent.
#pragma once

#include <sys/stat.h>

namespace tavo {

// One of libwrap's two files of rules. It is read again once it has changed.
class AccessFile {
 public:
  explicit AccessFile(const char *path) : path_(path) {}

  // False if the file does not exist or has only comments and blank lines. True if it cannot be read.
  bool may_have_rule();

 private:
  const char *path_;
  struct stat seen_ = {};  // when it was last read
  bool has_rule_ = false;
};

}  // namespace tavo
