#include "host/host_access.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace tavo {
namespace {

class HostAccessTest : public testing::Test {
 protected:
  HostAccessTest() {
    std::string name = testing::TempDir() + "host-access-XXXXXX";
    directory_ = ::mkdtemp(name.data());
    path_ = directory_ / "hosts.deny";
  }
  ~HostAccessTest() override { std::filesystem::remove_all(directory_); }

  void write(const std::string &text) const { std::ofstream(path_) << text; }
  const char *path() const { return path_.c_str(); }

 private:
  std::filesystem::path directory_;
  std::filesystem::path path_;
};

TEST_F(HostAccessTest, AMissingFileHasNoRule) {
  EXPECT_FALSE(AccessFile(path()).may_have_rule());
}

TEST_F(HostAccessTest, CommentsAndBlankLinesAreNoRules) {
  write("# /etc/hosts.deny\n#\n\n \t\n# ALL: PARANOID\n");
  EXPECT_FALSE(AccessFile(path()).may_have_rule());
}

TEST_F(HostAccessTest, AnyOtherLineIsARule) {
  write("# /etc/hosts.deny\n\nALL: ALL\n");
  EXPECT_TRUE(AccessFile(path()).may_have_rule());
}

TEST_F(HostAccessTest, ARuleNeedsNoNewline) {
  write("ALL: ALL");
  EXPECT_TRUE(AccessFile(path()).may_have_rule());
}

TEST_F(HostAccessTest, WhatContinuesACommentCountsAsARule) {
  write("# a comment \\\nthat goes on\n");
  EXPECT_TRUE(AccessFile(path()).may_have_rule());
}

TEST_F(HostAccessTest, AFileIsReadAgainOnceItHasChanged) {
  AccessFile file(path());
  EXPECT_FALSE(file.may_have_rule());
  write("ALL: ALL\n");
  EXPECT_TRUE(file.may_have_rule());
  write("# no rule any more\n");
  EXPECT_FALSE(file.may_have_rule());
  write("ALL: 192.0.2.1\n");
  EXPECT_TRUE(file.may_have_rule());
  std::filesystem::remove(path());
  EXPECT_FALSE(file.may_have_rule());
}

TEST_F(HostAccessTest, WhatCannotBeReadMayHaveARule) {
  std::filesystem::create_directory(path());
  EXPECT_TRUE(AccessFile(path()).may_have_rule());
}

}  // namespace
}  // namespace tavo
