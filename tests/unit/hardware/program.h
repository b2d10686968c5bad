// A made-up tool in a temporary directory.
#pragma once

#include <fstream>
#include <string>

#include "tree.h"

namespace tavo::service {

class ProgramTest : public Tree {
 protected:
  // A shell script of this name that runs the commands, and knows its directory as $here.
  std::string program(const std::string &name, const std::string &commands) {
    const std::filesystem::path file = directory_ / name;
    const std::filesystem::path fresh = directory_ / (name + ".new");  // one that runs may be replaced
    std::ofstream(fresh) << "#!/bin/sh\nhere=" << directory_.string() << '\n' << commands << '\n';
    std::filesystem::permissions(fresh, std::filesystem::perms::owner_all);
    std::filesystem::rename(fresh, file);
    return file;
  }
};

}  // namespace tavo::service
