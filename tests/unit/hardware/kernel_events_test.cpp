#include "hardware/kernel_events.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <fstream>

namespace tavo::service {
namespace {

bool has_event(const KernelEvents &events, int milliseconds) {
  pollfd readable{.fd = events.descriptor(), .events = POLLIN, .revents = 0};
  return poll(&readable, 1, milliseconds) > 0;
}

// Has the kernel tell of a change of a disk that is always there.
bool trigger() {
  std::ofstream file("/sys/class/block/loop0/uevent");
  file << "change" << std::flush;
  return file.good();
}

TEST(KernelEvents, AChangeOfADiskIsHeardOf) {
  KernelEvents disks({"block"});
  ASSERT_GE(disks.descriptor(), 0);
  if (!trigger() || !has_event(disks, 5'000)) {
    GTEST_SKIP() << "the kernel tells nothing here: that takes root, a loop device, and no network namespace";
  }
  disks.take();
  EXPECT_FALSE(has_event(disks, 0));
  ASSERT_TRUE(trigger());
  EXPECT_TRUE(has_event(disks, 5'000));
}

}  // namespace
}  // namespace tavo::service
