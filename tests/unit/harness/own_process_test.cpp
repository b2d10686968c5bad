#include "tests/harness/own_process.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <unistd.h>

#include <cstdlib>

namespace tavo {
namespace {

int tests_begun = 0;

TEST(OwnProcessTest, StartsAnew) {
  ++tests_begun;
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  EXPECT_EQ(tests_begun, 1);
}

TEST(OwnProcessTest, SeesNothingOfTheTestsBefore) {
  ++tests_begun;
  if (ran_in_a_process_of_its_own()) {
    return;
  }
  EXPECT_EQ(tests_begun, 1);
}

TEST(OwnProcessTest, HasTheVariableThatItIsGiven) {
  if (!is_a_process_of_its_own()) {
    setenv("TAVO_VARIABLE", "inherited", 1);
  }
  if (ran_in_a_process_of_its_own("TAVO_VARIABLE=its own")) {
    unsetenv("TAVO_VARIABLE");
    return;
  }
  EXPECT_STREQ(getenv("TAVO_VARIABLE"), "its own");
}

TEST(OwnProcessTest, AFailureThereIsAFailureHere) {
  if (is_a_process_of_its_own()) {
    ADD_FAILURE() << "said there";
    return;
  }
  EXPECT_NONFATAL_FAILURE(EXPECT_TRUE(ran_in_a_process_of_its_own()), "said there");
}

TEST(OwnProcessTest, ACrashThereIsAFailureHere) {
  if (is_a_process_of_its_own()) {
    _exit(0);
  }
  EXPECT_NONFATAL_FAILURE(EXPECT_TRUE(ran_in_a_process_of_its_own()), "");
}

TEST(OwnProcessTest, ASkippedTestHasNotPassed) {
  if (is_a_process_of_its_own()) {
    GTEST_SKIP();
  }
  EXPECT_NONFATAL_FAILURE(EXPECT_TRUE(ran_in_a_process_of_its_own()), "");
}

TEST(OwnProcessTest, AnUnknownTestHasNotPassed) {
  EXPECT_FALSE(run_in_a_process_of_its_own("OwnProcessTest.NoSuchTest").passed);
}

}  // namespace
}  // namespace tavo
