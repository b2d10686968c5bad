// The fixture of the chassis link's tests: a network of the test's own, and a peer's side of the link.
#pragma once

#include <cstddef>
#include <string>

#include "tests/unit/fakes/module_test.h"

namespace fakes {

class CmcThreadTest : public ModuleTest {
 protected:
  // Skips the test where the system allows no network of its own.
  void SetUp() override;
  // The link lives as long as the process, unless its sockets fail.
  void TearDown() override;

  void start();
  void set_block(std::string block);

  // A connection to the link, which may still be in the backlog.
  static int connect_client();
  // What comes, up to this many octets or to the end of the connection.
  static std::string receive(int descriptor, std::size_t octets);

 private:
  std::string block_;
  bool started_ = false;
};

}  // namespace fakes
