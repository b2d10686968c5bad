#include "tests/fixtures/module_locks.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>

#include <string>

#include "core/access_lock.h"
#include "tests/fixtures/module_fixture.h"

namespace tavo {
namespace {

using ::testing::AnyOf;

class ModuleLocksTest : public fakes::ModuleTest {};

TEST_F(ModuleLocksTest, ALockThatIsHeldFailsAndIsReleased) {
  acquire_sa_lock(1);
  get_ev_lock(41);
  acquire_inventory_lock();
  testing::TestPartResultArray failures;
  {
    const testing::ScopedFakeTestPartResultReporter reporter(&failures);
    fakes::expect_all_locks_free();
  }
  ASSERT_EQ(failures.size(), 3);
  // Newer versions of GoogleTest end a message with a newline.
  const auto is_message = [](const std::string &text) { return AnyOf("Failed\n" + text, "Failed\n" + text + "\n"); };
  EXPECT_THAT(failures.GetTestPartResult(0).message(), is_message("The test leaves the subagent lock 1 held."));
  EXPECT_THAT(failures.GetTestPartResult(1).message(), is_message("The test leaves the ev lock 41 held."));
  EXPECT_THAT(failures.GetTestPartResult(2).message(), is_message("The test leaves the inventory lock held."));
  fakes::expect_all_locks_free();
}

TEST_F(ModuleLocksTest, ALockThatIsDestroyedFailsAndWorksAgain) {
  destroy_ev_resource(5);
  EXPECT_NONFATAL_FAILURE(fakes::expect_all_locks_free(), "destroys the ev lock 5");
  EXPECT_EQ(get_ev_lock(5), 0);
  EXPECT_EQ(release_ev_lock(5), 0);
  fakes::expect_all_locks_free();
}

}  // namespace
}  // namespace tavo
