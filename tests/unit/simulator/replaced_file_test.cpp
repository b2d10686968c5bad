#include "service/replaced_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <system_error>

#include "core/descriptor.h"

namespace tavo::service {
namespace {

class ReplacedFile : public testing::Test {
 protected:
  ReplacedFile() {
    std::string directory = testing::TempDir() + "replaced-file-XXXXXX";
    directory_ = mkdtemp(directory.data());
    file_ = directory_ / "file";
  }
  ~ReplacedFile() override { std::filesystem::remove_all(directory_); }

  void replace(std::string_view content) const { replace_file(file_, std::as_bytes(std::span(content))); }

  static std::string content_of(const Descriptor &file) {
    std::array<char, 64> octets{};
    return {octets.data(), read_up_to(file, std::as_writable_bytes(std::span(octets)))};
  }

  std::filesystem::path directory_;
  std::filesystem::path file_;
};

TEST_F(ReplacedFile, AReaderKeepsTheWholeOldContent) {
  replace("old");
  const Descriptor reader = open_for_reading(file_.c_str());
  replace("newer");
  EXPECT_EQ(content_of(reader), "old");
  EXPECT_EQ(content_of(open_for_reading(file_.c_str())), "newer");
}

TEST_F(ReplacedFile, AFailureIsThrownAndLeavesTheFile) {
  replace("old");
  std::filesystem::create_directory(file_.string() + ".new");
  EXPECT_THROW(replace("new"), std::system_error);
  EXPECT_EQ(content_of(open_for_reading(file_.c_str())), "old");
}

}  // namespace
}  // namespace tavo::service
