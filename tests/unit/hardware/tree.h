// A made-up /sys and /dev in a temporary directory.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "hardware/choice.h"
#include "hardware/source.h"

namespace tavo::service {

class Tree : public testing::Test {
 protected:
  Tree() : directory_(make_directory()) {}
  ~Tree() override { std::filesystem::remove_all(directory_); }

  // Writes a file below /sys, with the directories that it needs.
  void write(const std::filesystem::path &name, const std::string &content) {
    std::filesystem::create_directories((sys() / name).parent_path());
    std::ofstream(sys() / name, std::ios::binary) << content;
  }

  // Makes a link below /sys to another place there.
  void link(const std::filesystem::path &name, const std::filesystem::path &to) {
    std::filesystem::create_directories((sys() / name).parent_path());
    std::filesystem::create_directories(sys() / to);
    std::filesystem::create_symlink(sys() / to, sys() / name);
  }

  std::filesystem::path sys() const { return directory_ / "sys"; }
  Roots roots() const { return {.sys = sys(), .dev = directory_ / "dev", .proc = directory_ / "proc"}; }

  // What the source finds if no other one tells of the same topics.
  static Finding read_alone(Source &source) {
    auto found = std::make_shared<Finding>(source.read());
    const std::vector<Word> words{{.source = source.name(), .finding = found}};
    Finding whole = *found;
    whole.enter = [words](Inventory &inventory) { enter_all(inventory, words); };
    whole.troubles = situation_of(words).troubles;
    return whole;
  }

  // The only trouble that it finds then.
  static Trouble only_trouble(Source &source) {
    const std::vector<Trouble> troubles = read_alone(source).troubles;
    EXPECT_EQ(troubles.size(), 1U);
    return troubles.size() == 1 ? troubles[0] : Trouble{};
  }

  // What a server is like of which only this source knows something.
  static Inventory found_by(Source &source) {
    Inventory inventory;
    read_alone(source).enter(inventory);
    return inventory;
  }

  const std::filesystem::path directory_;

 private:
  static std::filesystem::path make_directory() {
    std::string pattern = std::filesystem::temp_directory_path() / "hardware-XXXXXX";
    EXPECT_NE(mkdtemp(pattern.data()), nullptr);
    return pattern;
  }
};

}  // namespace tavo::service
