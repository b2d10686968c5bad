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
    std::ofstream(file) << "#!/bin/sh\nhere=" << directory_.string() << '\n' << commands << '\n';
    std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    return file;
  }
};

}  // namespace tavo::service
