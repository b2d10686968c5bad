#include "sources/data_query.h"

#include <gmock/gmock.h>

#include <optional>
#include <string>

#include "tests/fakes/net_snmp.h"
#include "tests/fakes/shell.h"
#include "tests/fixtures/module_fixture.h"

namespace tavo {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::SizeIs;

constexpr const char *command_for_key = "datactl get=some | flatkv | grep Key | awk -F\": \" '{print $2}'";

class DataQueryTest : public fakes::ModuleTest {
 protected:
  // The query's value, or "none".
  static std::string value(const std::string &source, const char *key) {
    char out[128] = "none";
    const bool found = query_value(source.c_str(), key, ": ", out);
    EXPECT_EQ(found, std::string(out) != "none");
    return out;
  }
  static std::string counted_value(const char *source, const char *key) {
    char out[128] = "none";
    const bool found = query_counted_value(source, key, ": ", out);
    EXPECT_EQ(found, std::string(out) != "none");
    return out;
  }

  fakes::FakeShell shell_;
};

TEST_F(DataQueryTest, EachSourceHasItsCommand) {
  value("inventoryCPU", "Vendor");
  value("fru", "Product Serial");
  value("fru", "Product Name");
  value("other", "Product Serial");
  EXPECT_THAT(
      shell_.popen_commands(),
      ElementsAre("datactl get=inventoryCPU | flatkv | grep Vendor | awk -F\": \" '{print $2}'",
                  "ipmitool -I bmc fru 2> /dev/null | grep \"Product Serial\" | awk -F\": \" ' NR<2 { print $2 } '",
                  "datactl get=fru | flatkv | grep Product Name | awk -F\": \" '{print $2}'",
                  "datactl get=other | flatkv | grep Product Serial | awk -F\": \" '{print $2}'"));
}

TEST_F(DataQueryTest, ACountedValueIsCountedByTheCommand) {
  constexpr const char *command =
      "datactl get=inventoryCPU | flatkv | grep CoreCount | awk -F\": \" '{print $2}' | uniq -c | awk '{ print $1\" "
      "\"$2 }'";
  EXPECT_EQ(counted_value("inventoryCPU", "CoreCount"), "none");
  EXPECT_THAT(shell_.popen_commands(), ElementsAre(command));
  shell_.prints(command, "2 8\n1 4\n");
  EXPECT_EQ(counted_value("inventoryCPU", "CoreCount"), "2 8");
}

TEST_F(DataQueryTest, TheSeparatorIsTheCallers) {
  char out[128] = "";
  shell_.prints("datactl get=some | flatkv | grep Key | awk -F\"= \" '{print $2}'", "value\n");
  EXPECT_TRUE(query_value("some", "Key", "= ", out));
  EXPECT_STREQ(out, "value");
}

TEST_F(DataQueryTest, GivesTheFirstLine) {
  shell_.prints(command_for_key, "first\nsecond\n");
  EXPECT_EQ(value("some", "Key"), "first");
}

TEST_F(DataQueryTest, ALongLineIsCutOffAt126Characters) {
  shell_.prints(command_for_key, std::string(300, 'v') + "\n");
  EXPECT_EQ(value("some", "Key"), std::string(126, 'v'));
}

TEST_F(DataQueryTest, WithoutALineThereIsNoValue) {
  EXPECT_EQ(value("some", "Key"), "none");
}

TEST_F(DataQueryTest, ACommandThatCannotBeRunGivesNoValue) {
  shell_.answers(command_for_key, [](int) { return std::nullopt; });
  EXPECT_EQ(value("some", "Key"), "none");
}

TEST_F(DataQueryTest, ACommandMayHave127Characters) {
  const std::string source(127 - std::string("datactl get= | flatkv | grep Key | awk -F\": \" '{print $2}'").size(),
                           'x');
  value(source, "Key");
  EXPECT_THAT(shell_.popen_commands(),
              ElementsAre("datactl get=" + source + " | flatkv | grep Key | awk -F\": \" '{print $2}'"));
  EXPECT_EQ(value(source + "x", "Key"), "none");
  EXPECT_EQ(counted_value(source.c_str(), "Key"), "none");
  EXPECT_THAT(shell_.popen_commands(), SizeIs(1)) << "a longer one is not run";
  EXPECT_THAT(fakes::log_lines(), testing::AllOf(SizeIs(2), Each(Field(&fakes::LogLine::priority, LOG_ERR))));
}

}  // namespace
}  // namespace tavo
