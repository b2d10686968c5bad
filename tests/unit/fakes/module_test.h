// The fixture that every unit test of the module builds on.
#pragma once

#include <gtest/gtest.h>

namespace fakes {

// Starts and ends each test with all fakes as they are at first. The module's own state lasts as long as the process:
// ctest gives each test a process of its own.
class ModuleTest : public testing::Test {
 protected:
  ModuleTest();
  ~ModuleTest() override;
};

}  // namespace fakes
