#include "sources/tool_dump.h"

#include <gmock/gmock.h>

#include <optional>
#include <string>

#include "core/shell.h"
#include "tests/fakes/clock.h"
#include "tests/fakes/files.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fakes/shell.h"
#include "tests/fixtures/module_fixture.h"

namespace tavo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char path[] = "/var/units";
constexpr char command[] = "datactl get=units | flatkv > /var/units";
const Needle id("id", ": ");

class ToolDumpTest : public fakes::ModuleTest {
 protected:
  // The first unit's id, "none" without one.
  static std::string first(const Dump &dump) {
    char out[dump_value_size] = "none";
    dump.value(id, 1, out);
    return out;
  }
  std::string read_first() { return first(dump.read("units")); }

  fakes::FakeClock clock;
  fakes::FakeFiles files;
  fakes::FakeShell shell;
  ToolDump dump{path};
};

TEST_F(ToolDumpTest, TheToolRunsAtTheFirstReadOnly) {
  shell.answers(command, [](int call) { return " id: " + std::to_string(call) + "\n"; });
  EXPECT_FALSE(dump.is_written());
  EXPECT_EQ(read_first(), "1");
  EXPECT_TRUE(dump.is_written());
  EXPECT_EQ(read_first(), "1");
  EXPECT_THAT(shell.system_commands(), ElementsAre(command));
}

TEST_F(ToolDumpTest, TheToolRunsAgainOnceTheDumpIsForgotten) {
  shell.answers(command, [](int call) { return " id: " + std::to_string(call) + "\n"; });
  read_first();
  dump.forget();
  EXPECT_FALSE(dump.is_written());
  EXPECT_EQ(read_first(), "2");
}

TEST_F(ToolDumpTest, TheToolsMayHaveADirectory) {
  ToolDump elsewhere(path, platform_tools);
  elsewhere.read("units");
  EXPECT_THAT(shell.system_commands(),
              ElementsAre("/usr/local/bin/datactl get=units | /usr/local/bin/flatkv > /var/units"));
}

TEST_F(ToolDumpTest, AToolThatFailsHasRunAllTheSame) {
  shell.answers(command, [](int) { return std::nullopt; });
  EXPECT_FALSE(dump.read("units").opened());
  files.write(path, " id: 7\n");
  EXPECT_EQ(read_first(), "7") << "the file is read as it stands";
  EXPECT_THAT(shell.system_commands(), SizeIs(1));
}

TEST_F(ToolDumpTest, IsReadWithoutTheToolAsItStands) {
  EXPECT_FALSE(dump.read_without_tool().opened());
  files.write(path, " id: 7\n");
  EXPECT_EQ(first(dump.read_without_tool()), "7");
  EXPECT_THAT(shell.commands(), IsEmpty());
  EXPECT_FALSE(dump.is_written());
}

TEST_F(ToolDumpTest, ASourceThatIsTooLongGivesNoDump) {
  files.write(path, " id: 7\n");
  EXPECT_FALSE(dump.read(std::string(longest_command, 's').c_str()).opened());
  EXPECT_THAT(shell.commands(), IsEmpty());
  EXPECT_THAT(fakes::log_lines(), ElementsAre(testing::Field(&fakes::LogLine::priority, LOG_ERR)));
  shell.prints(command, " id: 1\n");
  EXPECT_EQ(read_first(), "1") << "the tool has not run for that source";
}

TEST_F(ToolDumpTest, AwaitingEndsWithTheFirstSuccess) {
  shell.answers(command, [](int call) { return call < 3 ? "" : " id: 1\n"; });
  EXPECT_TRUE(dump.await([&] { return read_first() == "1"; }));
  EXPECT_THAT(clock.sleeps(), ElementsAre(5, 5));
  EXPECT_THAT(shell.system_commands(), SizeIs(3));
  EXPECT_TRUE(dump.is_written());
}

TEST_F(ToolDumpTest, AwaitingInVainForgetsTheDump) {
  EXPECT_FALSE(dump.await([&] { return read_first() == "1"; }, 3));
  EXPECT_THAT(clock.sleeps(), ElementsAre(5, 5, 5));
  EXPECT_THAT(shell.system_commands(), SizeIs(3));
  EXPECT_FALSE(dump.is_written());
}

TEST_F(ToolDumpTest, AwaitingStartsWithADumpThatStands) {
  shell.prints(command, " id: 1\n");
  read_first();
  EXPECT_TRUE(dump.await([&] { return read_first() == "1"; }));
  EXPECT_THAT(shell.system_commands(), SizeIs(1));
}

}  // namespace
}  // namespace tavo
