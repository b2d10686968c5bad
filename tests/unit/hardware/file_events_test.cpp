#include "hardware/file_events.h"

#include <poll.h>
#include <sched.h>
#include <sys/mount.h>

#include "tree.h"

namespace tavo::service {
namespace {

using FileEventsTest = Tree;

bool has_event(const FileEvents &events) {
  pollfd readable{.fd = events.descriptor(), .events = POLLIN, .revents = 0};
  return poll(&readable, 1, 0) > 0;
}

TEST_F(FileEventsTest, AChangeIsToldOnce) {
  if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    GTEST_SKIP() << "only root may mount something here, of which a file of the kernel tells";
  }
  FileEvents mounts("/proc/thread-self/mounts");
  ASSERT_GE(mounts.descriptor(), 0);
  EXPECT_FALSE(has_event(mounts));
  ASSERT_EQ(mount("none", directory_.c_str(), "tmpfs", 0, nullptr), 0);
  EXPECT_TRUE(has_event(mounts));
  mounts.take();
  EXPECT_FALSE(has_event(mounts));
  umount(directory_.c_str());
}

TEST_F(FileEventsTest, AFileThatComesLaterIsTriedAgain) {
  FileEvents events(sys() / "mounts");
  EXPECT_LT(events.descriptor(), 0);
  std::filesystem::create_directories(sys());
  std::filesystem::create_symlink("/proc/thread-self/mounts", sys() / "mounts");
  events.take();
  EXPECT_GE(events.descriptor(), 0);
}

TEST_F(FileEventsTest, AnOrdinaryFileHasNone) {
  write("mdstat", "Personalities :\n");
  EXPECT_LT(FileEvents(sys() / "mdstat").descriptor(), 0);
}

}  // namespace
}  // namespace tavo::service
