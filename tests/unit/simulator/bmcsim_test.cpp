// The program itself: how it starts, ends and restarts, and its query tools.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>

#include "served_scenario.h"

namespace tavo::service {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

constexpr int timed_out = 124;  // the status of timeout(1) then

class Program : public testing::Test {
 protected:
  Program() {
    for (const std::string_view name : tool_names) {
      std::filesystem::create_symlink(BMCSIM_PROGRAM, directory_ / name);
    }
    setenv("BMCSIM_SOCKET", socket_.c_str(), 1);
  }
  ~Program() override {
    end(SIGTERM);
    std::filesystem::remove_all(directory_);
  }

  // Starts `bmcsim serve` and waits for the line that says that it is ready.
  void serve() {
    std::array<int, 2> ready{};
    ASSERT_EQ(pipe2(ready.data(), 0), 0);
    child_ = fork();
    if (child_ == 0) {
      const std::string var = directory_ / "var";
      const std::string descriptor = std::to_string(ready[1]);
      close(ready[0]);
      dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
      execl(BMCSIM_PROGRAM, "bmcsim", "serve", RACK_SERVER, "--var", var.c_str(), "--ready-fd", descriptor.c_str(),
            nullptr);
      _exit(126);
    }
    close(ready[1]);
    char line = 0;
    EXPECT_EQ(read(ready[0], &line, 1), 1);
    EXPECT_EQ(line, '\n');
    close(ready[0]);
  }

  // Ends the program and returns its wait status.
  int end(int signal) {
    int status = -1;
    if (child_ > 0) {
      kill(child_, signal);
      waitpid(child_, &status, 0);
      child_ = -1;
    }
    return status;
  }

  struct Outcome {
    std::string output;  // standard output and error
    int status = -1;
  };
  Outcome run(const std::string &command) const {
    const std::string line = "{ export PATH=" + directory_.string() + ":$PATH; " + command + "; } 2>&1";
    Outcome outcome;
    FILE *pipe = popen(line.c_str(), "r");
    std::array<char, 4096> part{};
    for (std::size_t length = 0; (length = fread(part.data(), 1, part.size(), pipe)) > 0;) {
      outcome.output.append(part.data(), length);
    }
    outcome.status = WEXITSTATUS(pclose(pipe));
    return outcome;
  }
  Outcome control(const std::string &words) const { return run(std::string(BMCSIM_PROGRAM) + " ctl " + words); }

  const std::filesystem::path directory_ = make_directory();
  const std::string socket_ = directory_ / "run" / "socket";
  pid_t child_ = -1;
};

TEST_F(Program, ServesUntilSigterm) {
  serve();
  EXPECT_EQ(control("ping").output, "bmcsim serves\n");
  const int status = end(SIGTERM);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_FALSE(std::filesystem::exists(socket_));
  EXPECT_EQ(control("ping").status, 1);
  EXPECT_THAT(control("ping").output, HasSubstr("no simulator answers at " + socket_));
}

TEST_F(Program, TakesOverTheSocketOfAKilledOne) {
  serve();
  end(SIGKILL);
  EXPECT_TRUE(std::filesystem::exists(socket_));
  serve();
  EXPECT_EQ(control("ping").status, 0);
}

TEST_F(Program, RefusesASocketThatIsInUse) {
  serve();
  const Outcome second = run(std::string(BMCSIM_PROGRAM) + " serve " RACK_SERVER " --var " + directory_.string());
  EXPECT_EQ(second.status, 1);
  EXPECT_THAT(second.output, HasSubstr("another bmcsim serves " + socket_));
  EXPECT_EQ(control("ping").status, 0);
}

TEST_F(Program, RealHardwareAlsoNeedsASocketOfItsOwn) {
  serve();
  const Outcome second = run(std::string(BMCSIM_PROGRAM) + " serve --hardware --register " +
                             (directory_ / "register.json").string() + " --var " + directory_.string());
  EXPECT_EQ(second.status, 1);
  EXPECT_THAT(second.output, HasSubstr("bmcsim: another bmcsim serves " + socket_));
}

TEST_F(Program, OptionsOfTheOtherKindOfServerAreRefused) {
  const std::string serve = "timeout 10 " + std::string(BMCSIM_PROGRAM) + " serve --var " + directory_.string() + " ";
  for (const char *options : {RACK_SERVER " --poll disks=5", RACK_SERVER " --register x.json", "--hardware --drift 1",
                              "--hardware --number 2"}) {
    const Outcome outcome = run(serve + options);
    EXPECT_EQ(outcome.status, 2) << options << ": " << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("--hardware")) << options;
  }
}

TEST_F(Program, ReportsAnUnusableScenario) {
  const Outcome outcome = run(std::string(BMCSIM_PROGRAM) + " serve /nonexistent.yaml");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output, "bmcsim: /nonexistent.yaml: cannot be read\n");
}

TEST_F(Program, WrongOptionsExitWithStatus2) {
  EXPECT_EQ(run(std::string(BMCSIM_PROGRAM)).status, 2);
  EXPECT_EQ(run(std::string(BMCSIM_PROGRAM) + " serve").status, 2);
  EXPECT_EQ(run(std::string(BMCSIM_PROGRAM) + " serve --sockt x " RACK_SERVER).status, 2);
  EXPECT_EQ(control("--wait soon ping").status, 2);
  EXPECT_EQ(run(std::string(BMCSIM_PROGRAM) + " --help").status, 0);
}

TEST_F(Program, HelpNeedsNoSimulator) {
  for (const char *words : {"dimm set --help", "help dimm set", "--help"}) {
    const Outcome outcome = control(words);
    EXPECT_EQ(outcome.status, 0) << words;
    EXPECT_THAT(outcome.output, HasSubstr("dimm set NAME FIELD=VALUE"));
  }
  EXPECT_EQ(control("help dim").status, 2);
}

TEST_F(Program, WrongControlWordsExitWithStatus2) {
  serve();
  const Outcome outcome = control("fault rise 7 class=fan");
  EXPECT_EQ(outcome.status, 2);
  EXPECT_THAT(outcome.output, HasSubstr("bmcsim ctl: unknown word 'rise' after 'fault'"));
}

TEST_F(Program, ToolsPrintWhatTheModulesPipelinesRead) {
  serve();
  EXPECT_EQ(run("datactl get=pwState | flatkv").output, " pwState: 1\n");
  EXPECT_EQ(run("slotutil -L  | grep \"slot-number\" | wc -l").output, "3\n");
  EXPECT_EQ(run("datactl get=adapterFW[4] | flatkv | grep -B 1 \"STARTUP, RUNNING\" | grep \"image-version\" | "
                "awk -F\": \" ' { print $2 } ' ")
                .output,
            "1.2.3\n");
  EXPECT_EQ(
      run("ipmitool -I bmc fru 2> /dev/null | grep \"Product Serial\" | awk -F\": \" ' NR<2 { print $2 } '").output,
      "SERIAL-0001\n");
  EXPECT_EQ(run("datactl get=description | flatkv | grep description | awk -F\" \" '{print $2}'").output,
            "Rack-Server\n");
  EXPECT_EQ(run("datactl get=inventoryCPU | flatkv | grep CoreCount | awk -F\": \" '{print $2}' | uniq -c | "
                "awk '{ print $1\" \"$2 }'")
                .output,
            "2 8\n");
  const Outcome unknown = run("datactl get=nonsense");
  EXPECT_EQ(unknown.status, 1);
  EXPECT_THAT(unknown.output, HasSubstr("usage: datactl get=KEY, where KEY is inventoryCPU"));
}

TEST_F(Program, ToolsMisbehaveAsTheyAreTold) {
  serve();
  control("tool datactl missing");
  EXPECT_EQ(run("datactl get=pwState 2>/dev/null").output, "");
  EXPECT_EQ(run("datactl get=pwState").status, 127);
  control("tool datactl silent");
  EXPECT_THAT(run("datactl get=pwState").output, IsEmpty());
  EXPECT_EQ(run("datactl get=pwState").status, 0);
  control("tool datactl garbled");
  EXPECT_EQ(run("datactl get=pwState").output.size(), 4096U);
  EXPECT_THAT(run("datactl get=pwState").output, HasSubstr(std::string(1, '\0')));
  control("tool datactl prints " RACK_SERVER);
  EXPECT_THAT(run("datactl get=pwState").output, HasSubstr("raid-controllers:"));
  control("tool datactl slow 1");
  const auto began = std::chrono::steady_clock::now();
  EXPECT_EQ(run("datactl get=pwState | flatkv").output, " pwState: 1\n");
  EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(900));
  control("tool datactl ok");
  EXPECT_EQ(run("datactl get=pwState | flatkv").output, " pwState: 1\n");
  EXPECT_EQ(control("tool flatkv missing").output, "flatkv: missing\n");
  EXPECT_EQ(run("datactl get=pwState | flatkv 2>/dev/null").output, "");
}

TEST_F(Program, ToolsHangWhenTold) {
  serve();
  EXPECT_EQ(control("tool slotutil hangs").output, "slotutil: hangs\n");
  const Outcome outcome = run("timeout 0.3 slotutil -L");
  EXPECT_EQ(outcome.status, timed_out);
  EXPECT_EQ(outcome.output, "");
}

TEST_F(Program, ToolsPrintWithoutEndWhenTold) {
  serve();
  control("tool flatkv floods");
  EXPECT_EQ(run("timeout 10 flatkv | head -c 3000000 | wc -c").output, "3000000\n");
  EXPECT_EQ(run("timeout 0.3 flatkv > /dev/null").status, timed_out);
}

TEST_F(Program, ToolsLeaveAChildWithThePipeWhenTold) {
  serve();
  const std::string works = run("datactl get=pwState").output;
  control("tool datactl forks");
  // The reader has all of the output, and waits for the child.
  const Outcome outcome = run("timeout 0.5 sh -c 'datactl get=pwState | cat'");
  EXPECT_EQ(outcome.output, works);
  EXPECT_EQ(outcome.status, timed_out);
}

TEST_F(Program, ToolsDieHalfWayWhenTold) {
  serve();
  const std::string whole = run("datactl get=inventoryCPU").output;
  control("tool datactl killed");
  EXPECT_EQ(run("datactl get=inventoryCPU").status, 128 + SIGKILL);
  const std::string half = whole.substr(0, whole.size() / 2);
  EXPECT_EQ(run("(datactl get=inventoryCPU | cat) 2>/dev/null").output, half);
  control("tool datactl ok");
  control("tool flatkv killed");
  EXPECT_EQ(run("(datactl get=pwState | flatkv | cat) 2>/dev/null").output, " pwSta");
}

TEST_F(Program, ToolsReportThatTheSimulatorIsAway) {
  const Outcome outcome = run("datactl get=pwState");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.output, HasSubstr("datactl: the simulator does not answer at " + socket_));
}

}  // namespace
}  // namespace tavo::service
