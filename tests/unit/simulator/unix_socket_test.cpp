#include "service/unix_socket.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "served_scenario.h"

namespace tavo::service {
namespace {

TEST(UnixSocket, OnlyTheOwnerMayConnectWhateverTheUmask) {
  const std::filesystem::path directory = make_directory();
  const std::string path = directory / "socket";
  const mode_t before = umask(0);
  const Descriptor listener = listen_at(path);
  umask(before);
  ASSERT_TRUE(listener);
  struct stat file;
  ASSERT_EQ(stat(path.c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 07777, 0600U);
  EXPECT_TRUE(connect_to(path, no_time_limit)) << "by its owner";
  std::filesystem::remove_all(directory);
}

}  // namespace
}  // namespace tavo::service
