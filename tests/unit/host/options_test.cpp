#include "host/options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace tavo {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

CommandLine parse(std::vector<const char *> arguments) {
  arguments.insert(arguments.begin(), "snmp-subagentd");
  return parse_command_line(static_cast<int>(arguments.size()), arguments.data());
}

TEST(OptionsTest, TheDefaultIsABackgroundSubagent) {
  const CommandLine line = parse({});
  ASSERT_FALSE(line.leave);
  EXPECT_FALSE(line.options.foreground);
  EXPECT_FALSE(line.options.stand_alone());
  EXPECT_EQ(line.options.module, "libsnmpextmibmodule.so");
  EXPECT_THAT(line.options.log, IsEmpty());
  EXPECT_FALSE(line.options.debug_tokens);
}

TEST(OptionsTest, AcceptsTheLettersOfSnmpd) {
  const CommandLine line =
      parse({"-f", "-C", "-c", "a.conf", "-x", "unix:/run/agentx", "-p", "/run/pid", "-Dtrap,ssl"});
  ASSERT_FALSE(line.leave) << line.text;
  EXPECT_TRUE(line.options.foreground);
  EXPECT_TRUE(line.options.skip_default_configuration);
  EXPECT_THAT(line.options.configuration_files, ElementsAre("a.conf"));
  EXPECT_EQ(line.options.agentx_address, "unix:/run/agentx");
  EXPECT_EQ(line.options.pid_file, "/run/pid");
  EXPECT_EQ(line.options.debug_tokens, "trap,ssl");
}

TEST(OptionsTest, LettersMayBeJoined) {
  const CommandLine line = parse({"-fC", "-Le"});
  ASSERT_FALSE(line.leave) << line.text;
  EXPECT_TRUE(line.options.foreground);
  EXPECT_TRUE(line.options.skip_default_configuration);
}

TEST(OptionsTest, TracingWithoutTokensMeansAllOfThem) {
  EXPECT_EQ(parse({"-f", "-D"}).options.debug_tokens, "");
  EXPECT_EQ(parse({"-D", "-f"}).options.debug_tokens, "");
}

TEST(OptionsTest, LogOptionsKeepTheirWords) {
  const CommandLine line = parse({"-Lo", "-LO", "7", "-Lf", "a.log", "-LF", "0-6", "b.log", "-f"});
  ASSERT_FALSE(line.leave) << line.text;
  EXPECT_THAT(line.options.log, ElementsAre(ElementsAre("o"), ElementsAre("O", "7"), ElementsAre("f", "a.log"),
                                            ElementsAre("F", "0-6", "b.log")));
  EXPECT_TRUE(line.options.foreground);
}

TEST(OptionsTest, KnowsWhetherTheLogGoesToStandardOutputOrError) {
  EXPECT_TRUE(parse({"-Lo"}).options.logs_to_output());
  EXPECT_TRUE(parse({"-Lf", "a.log", "-LE", "4"}).options.logs_to_output());
  EXPECT_FALSE(parse({"-Lf", "o"}).options.logs_to_output());
  EXPECT_FALSE(parse({}).options.logs_to_output());
}

TEST(OptionsTest, PlatformLibrariesAndAddressesKeepTheirOrder) {
  const CommandLine line = parse({"--platform", "a.so", "--listen", "udp:127.0.0.1:1", "--platform", "b.so", "--listen",
                                  "tcp:127.0.0.1:1", "--module", "m.so"});
  ASSERT_FALSE(line.leave) << line.text;
  EXPECT_THAT(line.options.platforms, ElementsAre("a.so", "b.so"));
  EXPECT_THAT(line.options.listen, ElementsAre("udp:127.0.0.1:1", "tcp:127.0.0.1:1"));
  EXPECT_EQ(line.options.module, "m.so");
  EXPECT_TRUE(line.options.stand_alone());
}

TEST(OptionsTest, TheChassisLinkNeedsABlock) {
  EXPECT_EQ(parse({"-f"}).options.chassis_block, "");
  EXPECT_EQ(parse({"-f", "--chassis-block", "/var/block"}).options.chassis_block, "/var/block");
  EXPECT_EQ(parse({"--chassis-block", ""}).leave, ExitStatus::Usage);
  EXPECT_EQ(parse({"--chassis-block"}).leave, ExitStatus::Usage);
}

TEST(OptionsTest, TheChassisLinkCanBeNarrowed) {
  const Options open = parse({"--chassis-block", "b"}).options;
  EXPECT_EQ(open.chassis_listen, "");
  EXPECT_THAT(open.chassis_peers, testing::IsEmpty());
  EXPECT_EQ(open.chassis_idle_limit, std::chrono::seconds(0));
  const Options narrow = parse({"--chassis-block", "b", "--chassis-listen", "192.0.2.5", "--chassis-peer", "192.0.2.1",
                                "--chassis-peer", "192.0.2.2", "--chassis-idle-limit", "90"})
                             .options;
  EXPECT_EQ(narrow.chassis_listen, "192.0.2.5");
  EXPECT_THAT(narrow.chassis_peers, ElementsAre("192.0.2.1", "192.0.2.2"));
  EXPECT_EQ(narrow.chassis_idle_limit, std::chrono::seconds(90));
}

TEST(OptionsTest, TheToolTimeoutIsInSeconds) {
  EXPECT_EQ(parse({}).options.tool_timeout, std::chrono::seconds(30));
  EXPECT_EQ(parse({"--tool-timeout", "90"}).options.tool_timeout, std::chrono::seconds(90));
  EXPECT_EQ(parse({"--tool-timeout", "1000000"}).options.tool_timeout, std::chrono::seconds(1'000'000));
  EXPECT_EQ(parse({"--tool-timeout", "90", "--tool-timeout", "0"}).options.tool_timeout, std::chrono::seconds(0));
}

TEST(OptionsTest, TheAnswerLimitIsInMilliseconds) {
  EXPECT_EQ(parse({}).options.answer_within, std::chrono::milliseconds(0));
  EXPECT_EQ(parse({"--answer-within", "800"}).options.answer_within, std::chrono::milliseconds(800));
}

TEST(OptionsTest, ConfigurationFilesMayBeListedOrRepeated) {
  EXPECT_THAT(parse({"-c", "a,b", "-c", "c"}).options.configuration_files, ElementsAre("a", "b", "c"));
}

TEST(OptionsTest, ABadOptionIsNamedAndHasTheUsageStatus) {
  for (const auto &[arguments, named] : std::vector<std::pair<std::vector<const char *>, const char *>>{
           {{"--bogus"}, "--bogus"},
           {{"stray"}, "stray"},
           {{"-x"}, "-x"},
           {{"--notification-limit", "0"}, "--notification-limit"},
           {{"--change-limit", "-1"}, "--change-limit"},
           {{"--tool-timeout", "-1"}, "--tool-timeout"},
           {{"--tool-timeout", "1000001"}, "--tool-timeout"},
           {{"--tool-timeout", "soon"}, "--tool-timeout"},
           {{"--answer-within", "-1"}, "--answer-within"},
           {{"--chassis-peer", "192.0.2.1"}, "--chassis-block"},
           {{"--chassis-block", "b", "--chassis-peer", "somebody"}, "--chassis-peer"},
           {{"--chassis-block", "b", "--chassis-listen", "::1"}, "--chassis-listen"},
           {{"--chassis-block", "b", "--chassis-idle-limit", "-1"}, "--chassis-idle-limit"},
           {{"-x", "a", "--listen", "b"}, "-x"}}) {
    const CommandLine line = parse(arguments);
    EXPECT_EQ(line.leave, ExitStatus::Usage) << named;
    EXPECT_THAT(line.text, HasSubstr(named));
  }
}

TEST(OptionsTest, HelpAndVersionAreNoErrors) {
  EXPECT_EQ(parse({"-h"}).leave, ExitStatus::Ok);
  EXPECT_EQ(parse({"-v"}).leave, ExitStatus::Ok);
}

}  // namespace
}  // namespace tavo
