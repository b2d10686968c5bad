#include "simulator/scenario.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "core/class_number.h"
#include "served_scenario.h"

namespace tavo::service {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::ThrowsMessage;

// What every scenario needs: one line.
constexpr const char *server = "server: {}\n";

class ScenarioFile : public testing::Test {
 protected:
  ~ScenarioFile() override { std::filesystem::remove_all(directory_); }

  Inventory load(const std::string &text) {
    std::ofstream(file_) << text;
    return load_scenario(file_);
  }
  auto loading(const std::string &text) {
    return [this, text] { load(text); };
  }

  const std::filesystem::path directory_ = make_directory();
  const std::filesystem::path file_ = directory_ / "test.yaml";
};

TEST_F(ScenarioFile, RackServerHasEveryKindOfPart) {
  const Inventory inventory = load_scenario(RACK_SERVER);
  EXPECT_EQ(inventory.processors.size(), 2U);
  EXPECT_EQ(inventory.dimms.size(), 24U);
  EXPECT_EQ(std::ranges::count_if(inventory.dimms, [](const Part &dimm) { return dimm.flag("present"); }), 12);
  EXPECT_EQ(inventory.supplies.size(), 2U);
  EXPECT_EQ(inventory.adapters.size(), 3U);
  ASSERT_EQ(inventory.controllers.size(), 2U);
  EXPECT_EQ(inventory.controllers[0].part.text("location"), "");
  EXPECT_EQ(inventory.controllers[0].drives[0].number("slot"), inventory.controllers[1].drives[0].number("slot"));
  EXPECT_EQ(inventory.sd.cards.size(), 2U);
  EXPECT_TRUE(std::ranges::any_of(inventory.faults,
                                  [](const Part &f) { return f.number("class") == class_number::system_fan; }));
}

TEST_F(ScenarioFile, ServerAloneIsEnough) {
  const Inventory inventory = load(server);
  EXPECT_TRUE(inventory.processors.empty());
  EXPECT_EQ(inventory.server.text("serial"), "SERIAL-0001");
  EXPECT_EQ(load("server:\nprocessors:\nsd-cards:\n  cards:\n").server.number("power"), 1);
  EXPECT_FALSE(inventory.sd.controller.flag("present"));
}

TEST_F(ScenarioFile, ErrorsNameFileLinePartAndKey) {
  EXPECT_THAT(loading(std::string(server) + "processors:\n  - socket: CPU1\n    cors: 8\n"),
              ThrowsMessage<BadInput>(AllOf(HasSubstr("test.yaml:4: processors[0]: "), HasSubstr("no field 'cors'"))));
  EXPECT_THAT(loading(std::string(server) + "procesors: []\n"),
              ThrowsMessage<BadInput>(AllOf(HasSubstr("test.yaml:2: "), HasSubstr("unknown key 'procesors'"))));
  EXPECT_THAT(loading(std::string(server) + "processors:\n  - {socket: A, cores: eight}\n"),
              ThrowsMessage<BadInput>(AllOf(HasSubstr("test.yaml:3: "), HasSubstr("cores: 'eight' is not a number"))));
  EXPECT_THAT(loading(std::string(server) + "processors:\n  - cores: 8\n"),
              ThrowsMessage<BadInput>(EndsWith("test.yaml:3: processors[0]: 'socket' is missing")));
  EXPECT_THAT(loading(std::string(server) + "processors: 2\n"),
              ThrowsMessage<BadInput>(EndsWith("test.yaml:2: processors: expected a list (- ...)")));
  EXPECT_THAT(loading(std::string(server) + "processors: [3]\n"),
              ThrowsMessage<BadInput>(HasSubstr("processors[0]: expected a mapping")));
  EXPECT_THAT(loading(std::string(server) + "processors:\n  - {socket: [1]}\n"),
              ThrowsMessage<BadInput>(HasSubstr("'socket' must be a single value")));
}

TEST_F(ScenarioFile, MissingAndDuplicateKeysAreRefused) {
  EXPECT_THAT(loading("processors: []\n"), ThrowsMessage<BadInput>(HasSubstr("'server' is missing")));
  EXPECT_THAT(loading(""), ThrowsMessage<BadInput>(EndsWith("test.yaml: expected a mapping (key: value)")));
  EXPECT_THAT(loading(std::string(server) + "leds: []\nleds: []\n"),
              ThrowsMessage<BadInput>(AllOf(HasSubstr("test.yaml:3: "), HasSubstr("key 'leds' is given twice"))));
  EXPECT_THAT(loading(std::string(server) + "processors:\n  - socket: CPU1\n  - socket: CPU1\n"),
              ThrowsMessage<BadInput>(AllOf(HasSubstr("test.yaml:4: "), HasSubstr("another processor"))));
  EXPECT_THAT(loading(std::string(server) + "raid-controllers:\n  - {id: 1}\n  - {id: 1}\n"),
              ThrowsMessage<BadInput>(HasSubstr("another controller with id 1")));
  EXPECT_THAT([] { load_scenario("/nonexistent.yaml"); }, ThrowsMessage<BadInput>(HasSubstr("cannot be read")));
}

TEST_F(ScenarioFile, FlagsAreReadInEveryForm) {
  const Inventory inventory = load(
      "server: {}\ndimms:\n  - {name: A, present: true}\n  - {name: B, present: False}\n  - {name: C, present: NO}\n");
  EXPECT_TRUE(inventory.dimms[0].flag("present"));
  EXPECT_FALSE(inventory.dimms[1].flag("present"));
  EXPECT_FALSE(inventory.dimms[2].flag("present"));
  EXPECT_EQ(inventory.dimms[1].written(*find_field(dimm_kind, "present")), "no");
  EXPECT_THAT(loading("server: {}\ndimms: [{name: A, present: 2}]\n"),
              ThrowsMessage<BadInput>(HasSubstr("or one of no, yes, false, true")));
}

TEST_F(ScenarioFile, NumbersAndTextsFitThePlatformsRecords) {
  EXPECT_THAT(loading("server: {board-serial: " + std::string(32, 'x') + "}\n"),
              ThrowsMessage<BadInput>(HasSubstr("longer than 31 octets")));
  EXPECT_THAT(loading("server: {}\nsupplies: [{input-power: 65536}]\n"),
              ThrowsMessage<BadInput>(HasSubstr("not a number from 0 to 65535")));
  std::string supplies = "server: {}\nsupplies:\n";
  for (int i = 0; i < 11; ++i) {
    supplies += "  - {}\n";
  }
  EXPECT_THAT(loading(supplies), ThrowsMessage<BadInput>(HasSubstr("supplies[10]: no more than 10 fit")));
}

TEST_F(ScenarioFile, WhatIsNoScenarioIsRefusedByName) {
  EXPECT_THAT([this] { load_scenario(directory_); }, ThrowsMessage<BadInput>(directory_.string() + ": is a directory"));
  EXPECT_THAT(loading("server: {}\n---\nserver: {}\n"),
              ThrowsMessage<BadInput>(AllOf(HasSubstr("test.yaml:"), HasSubstr("another begins here"))));
}

// At a comma outside of a list, yaml-cpp finds one empty document after another.
TEST_F(ScenarioFile, ALoneCommaIsRefused) {
  for (const char *text : {",", ",\n,", "--- ,", "\"a\" ,", "&a ,", "? ,", "- ,", "server: {}\n... ,", "]", "}"}) {
    EXPECT_THAT(loading(text), ThrowsMessage<BadInput>(HasSubstr("test.yaml:"))) << text;
  }
  EXPECT_THAT(loading("# nothing but\n,"), ThrowsMessage<BadInput>(HasSubstr("test.yaml:2: ")));
}

TEST_F(ScenarioFile, YamlErrorsNameTheLine) {
  EXPECT_THAT(loading(std::string(server) + "processors:\n  - {socket: CPU1\n"),
              ThrowsMessage<BadInput>(HasSubstr("test.yaml:")));
}

TEST_F(ScenarioFile, MorePartsThanFitAreRefused) {
  std::string text = std::string(server) + "sd-cards:\n  cards:\n";
  for (int slot = 1; slot <= 3; ++slot) {
    text += "    - {slot: " + std::to_string(slot) + "}\n";
  }
  EXPECT_THAT(loading(text), ThrowsMessage<BadInput>(HasSubstr("sd-cards.cards[2]: no more than 2 fit")));
  EXPECT_THAT(loading(std::string(server) + "sd-cards:\n  partitions:\n    - {number: 6, name: x}\n"),
              ThrowsMessage<BadInput>(HasSubstr("number: '6' is not a number from 1 to 5")));
}

// Cut off anywhere, a scenario either loads or throws an error that names the file.
TEST_F(ScenarioFile, TruncatedScenarioLoadsOrIsRefused) {
  std::ifstream whole(RACK_SERVER);
  const std::string text{std::istreambuf_iterator<char>(whole), {}};
  for (std::size_t length = 0; length < text.size(); length += 97) {
    try {
      load(text.substr(0, length));
    } catch (const BadInput &error) {
      EXPECT_THAT(error.what(), HasSubstr("test.yaml"));
    }
  }
}

}  // namespace
}  // namespace tavo::service
