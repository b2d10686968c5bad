#include "hardware/register.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <ctime>
#include <fstream>
#include <limits>

#include "tree.h"

namespace tavo::service {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class RegisterTest : public Tree {
 protected:
  Register register_{directory_ / "register.json"};
};

TEST_F(RegisterTest, AnOlderFileKnowsNoSourceOfAFault) {
  std::ofstream(directory_ / "older.json") << R"({"numbers": {"fault": {"fan 1": 3}}, "faults": {"fan 1": {"index": 3,
      "class_code": 29, "unit": 0, "severity": "major", "cause": 2, "description": "Fan 1 has failed", "affected": "",
      "affected_oid": "", "first_time": 1}}})";
  Register older(directory_ / "older.json");
  ASSERT_THAT(older.faults(), SizeIs(1));
  EXPECT_EQ(older.faults().at("fan 1").source, "");
  EXPECT_EQ(older.faults().at("fan 1").index, 3);
}

TEST_F(RegisterTest, ANumberIsKept) {
  EXPECT_EQ(register_.number_of("slot", "a"), 1);
  EXPECT_EQ(register_.number_of("slot", "b"), 2);
  EXPECT_EQ(register_.number_of("controller", "b"), 1);
  Register again(directory_ / "register.json");
  EXPECT_EQ(again.number_of("slot", "b"), 2);
  EXPECT_EQ(again.number_of("slot", "c"), 3);
}

TEST_F(RegisterTest, ANumberIsFoundSoonAmongMany) {
  // The processor time that a new key takes among this many, at best.
  const auto time_among = [&](int many) {
    std::ofstream file(directory_ / "many.json");
    file << R"({"faults": {}, "numbers": {"slot": {"0": 1)";
    for (int i = 1; i < many; ++i) {
      file << ", \"" << i << "\": " << i + 1;
    }
    file << "}}}";
    file.close();
    Register kept(directory_ / "many.json");
    std::clock_t best = std::numeric_limits<std::clock_t>::max();
    for (int number = many + 1; number <= many + 3; ++number) {
      const std::clock_t before = std::clock();
      EXPECT_EQ(kept.number_of("slot", "new " + std::to_string(number)), number);
      best = std::min(best, std::clock() - before);
    }
    return best;
  };
  constexpr int room = 3;
  EXPECT_LT(time_among(20'000), 10 * room * time_among(2'000)) << "ten times as many keys";
}

TEST_F(RegisterTest, APartIsKeptUntilItIsForgotten) {
  register_.keep_part("drive", "a", "sda");
  register_.keep_part("drive", "b", "sdb");
  EXPECT_TRUE(register_.forget_part("drive", 1));
  EXPECT_FALSE(register_.forget_part("drive", 1));
  EXPECT_FALSE(register_.forget_part("fan", 2));
  Register again(directory_ / "register.json");
  ASSERT_THAT(again.parts("drive"), SizeIs(1));
  EXPECT_EQ(again.parts("drive").at("b").number, 2);
  EXPECT_EQ(again.parts("drive").at("b").name, "sdb");
  EXPECT_EQ(again.number_of("drive", "c"), 1) << "its number is free again";
}

TEST_F(RegisterTest, APartThatWasThereOnceIsMissed) {
  EXPECT_THAT(missing_parts(register_, "drive", {{"a", "sda"}, {"b", "sdb"}}), IsEmpty());
  const auto missing = missing_parts(register_, "drive", {{"b", "sdb"}});
  ASSERT_THAT(missing, SizeIs(1));
  EXPECT_EQ(missing.at("a").number, 1);
  EXPECT_EQ(missing.at("a").name, "sda");
  EXPECT_EQ(missing_part(register_, "fan", "f", "FAN1", "absent"), std::nullopt) << "it never was";
  EXPECT_EQ(missing_part(register_, "fan", "f", "FAN1", "present"), std::nullopt);
  EXPECT_EQ(missing_part(register_, "fan", "f", "FAN1", "unknown"), std::nullopt);
  EXPECT_NE(missing_part(register_, "fan", "f", "FAN1", "absent"), std::nullopt);
}

TEST_F(RegisterTest, ANumberThatNobodyMissesIsFreedInTheEnd) {
  constexpr std::time_t start = 1'000'000'000;
  constexpr std::time_t long_after = Register::kept_for.count();
  register_.keep_part("drive", "stays", "sda");
  register_.number_of("drive", "stick");
  const auto keys_when_gone_since = [&](std::time_t seconds) {
    Register again(directory_ / "register.json");
    again.free_absent("drive", {}, start + seconds);
    return again.keys("drive");
  };
  EXPECT_THAT(keys_when_gone_since(0), ElementsAre("stays", "stick"));
  EXPECT_THAT(keys_when_gone_since(long_after - 1), ElementsAre("stays", "stick"));
  Register returned(directory_ / "register.json");
  returned.free_absent("drive", {{"stick", ""}}, start + long_after);
  EXPECT_THAT(keys_when_gone_since(long_after + 1), ElementsAre("stays", "stick")) << "it was there again";
  EXPECT_THAT(keys_when_gone_since(2 * long_after + 1), ElementsAre("stays"));
}

TEST_F(RegisterTest, APartMayGetAnotherKey) {
  register_.keep_part("array", "md0", "md0");
  register_.keep_part("array", "md1", "md1");
  register_.rename("array", "md1", "uuid 1");
  register_.rename("array", "md0", "uuid 1");
  register_.rename("array", "md7", "uuid 7");
  Register again(directory_ / "register.json");
  EXPECT_THAT(again.keys("array"), ElementsAre("uuid 1")) << "what was known by a name is that part, too";
  EXPECT_EQ(again.parts("array").at("uuid 1").number, 2);
}

TEST_F(RegisterTest, ANameThatIsNotUtf8IsKeptAllTheSame) {
  register_.keep_part("drive", "a", "model \xfc");
  register_.keep_part("drive", "b", "sdb");
  Register again(directory_ / "register.json");
  EXPECT_THAT(again.parts("drive"), SizeIs(2));
}

TEST_F(RegisterTest, AFileWithoutADirectoryIsInTheCurrentOne) {
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(directory_);
  Register here("here.json");
  here.number_of("slot", "a");
  std::filesystem::current_path(before);
  EXPECT_TRUE(std::filesystem::exists(directory_ / "here.json"));
}

TEST_F(RegisterTest, AFileThatIsNoRegisterIsMovedAside) {
  for (const char *content :
       {"", "{", "[]", R"({"numbers": 3, "faults": {}})", R"({"numbers": {}})",
        R"({"numbers": {"slot": {"b": 0}}, "faults": {}})", R"({"numbers": {"slot": {"b": -1}}, "faults": {}})",
        R"({"numbers": {"slot": {"b": 1, "c": 1}}, "faults": {}})",
        R"({"numbers": {"slot": {"b": 4294967296}}, "faults": {}})"}) {
    std::filesystem::remove(directory_ / "broken.json.unreadable");
    std::ofstream(directory_ / "broken.json") << content;
    Register broken(directory_ / "broken.json");
    EXPECT_EQ(broken.number_of("slot", "a"), 1) << content;
    EXPECT_TRUE(std::filesystem::exists(directory_ / "broken.json.unreadable")) << content;
  }
}

}  // namespace
}  // namespace tavo::service
