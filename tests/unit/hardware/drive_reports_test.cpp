#include "hardware/drive_reports.h"

#include <gmock/gmock.h>

#include <poll.h>

#include <ctime>
#include <functional>

#include "program.h"
#include "tests/harness/emulated.h"

namespace tavo::service {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

// Answers of smartctl: the file with the drive's name is run.
class DriveReportsTest : public ProgramTest {
 protected:
  std::string smartctl() {
    return program("smartctl", "for last; do :; done; echo ${last##*/} >> $here/asked; . $here/${last##*/}");
  }
  void answer(const std::string &drive, const std::string &commands) { program(drive, commands); }
  void answer_with_model(const std::string &drive, const std::string &model) {
    answer(drive, "echo '{\"model_name\": \"" + model + "\"}'");
  }

  // How often a drive has been asked.
  int times_asked(const std::string &drive) const {
    int times = 0;
    std::ifstream asked(directory_ / "asked");
    for (std::string line; std::getline(asked, line);) {
      times += line == drive ? 1 : 0;
    }
    return times;
  }

  static AskedDrive drive(const std::string &name, const std::string &number = "") {
    return {.device = "/dev/" + name, .number = number};
  }

  static std::chrono::milliseconds time_of(const std::function<void()> &step) {
    const auto begin = std::chrono::steady_clock::now();
    step();
    return std::chrono::ceil<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
  }

  // Asks whenever there is something to do, until it is so.
  static bool asks_until(DriveReports &reports, const std::vector<AskedDrive> &drives,
                         const std::function<bool()> &is_so) {
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    while (!is_so() && std::chrono::steady_clock::now() < deadline) {
      pollfd ready{.fd = reports.descriptor(), .events = POLLIN, .revents = 0};
      poll(&ready, 1, 1000);
      reports.ask(drives);
    }
    return is_so();
  }
};

TEST_F(DriveReportsTest, AReportIsBelievedForAWhile) {
  DriveReports reports(smartctl(), {});
  answer_with_model("sda", "MODEL-1");
  reports.ask({drive("sda")});
  EXPECT_EQ(reports.of(drive("sda")).smart.model, "MODEL-1");
  EXPECT_TRUE(reports.of(drive("sda")).is_known);
  answer_with_model("sda", "MODEL-2");
  reports.ask({drive("sda")});
  EXPECT_EQ(reports.of(drive("sda")).smart.model, "MODEL-1");
  EXPECT_EQ(times_asked("sda"), 1);
}

TEST_F(DriveReportsTest, AnotherDriveOfTheSameNameIsAskedAtOnce) {
  DriveReports reports(smartctl(), {});
  answer_with_model("sda", "MODEL-1");
  reports.ask({drive("sda", "7")});
  answer_with_model("sda", "MODEL-2");
  reports.ask({drive("sda", "8")});
  EXPECT_EQ(reports.of(drive("sda", "8")).smart.model, "MODEL-2");
}

TEST_F(DriveReportsTest, ADriveThatHangsHoldsUpNoOther) {
  DriveReports reports(smartctl(), {.patience = 1s});
  std::vector<AskedDrive> drives;
  for (const char *name : {"sda", "sdb", "sdc", "sdd", "sde"}) {
    answer(name, "exec sleep 60");
    drives.push_back(drive(name));
  }
  answer_with_model("sdf", "MODEL-1");
  drives.push_back(drive("sdf"));
  EXPECT_TRUE(asks_until(reports, drives, [&] { return times_asked("sdf") + times_asked("sda") == 2; }));
  EXPECT_TRUE(asks_until(reports, drives, [&] { return reports.of(drive("sdf")).is_known; }));
  EXPECT_EQ(reports.of(drive("sdf")).smart.model, "MODEL-1");
  EXPECT_FALSE(reports.of(drive("sda")).is_known);
  EXPECT_LT(time_of([&] { reports.ask(drives); }), 900ms) << "nobody waits a second time";
}

TEST_F(DriveReportsTest, AFewAreAskedAtATime) {
  DriveReports reports(smartctl(), {.patience = 5s});
  std::vector<AskedDrive> drives;
  for (int i = 0; i < 12; ++i) {
    const std::string name = "sd" + std::string(1, static_cast<char>('a' + i));
    answer(name, "mkdir $here/running." + name + "; ls -d $here/running.* | wc -l >> $here/counts; sleep 0.1; rmdir " +
                     "$here/running." + name + "; echo '{\"model_name\": \"M\"}'");
    drives.push_back(drive(name));
  }
  reports.ask(drives);
  EXPECT_TRUE(asks_until(reports, drives, [&] { return reports.of(drives.back()).is_known; }));
  std::ifstream counts(directory_ / "counts");
  int most = 0;
  for (int count = 0; counts >> count;) {
    most = std::max(most, count);
  }
  EXPECT_GT(most, 1);
  EXPECT_LE(most, 4);
}

TEST_F(DriveReportsTest, OneThatNeverAnswersIsAskedLessAndLessOften) {
  DriveReports reports(smartctl(), {.age = 200ms, .limit = 200ms, .patience = 20ms, .longest_age = 800ms});
  answer("sda", "exec sleep 60");
  const std::vector<AskedDrive> drives{drive("sda")};
  std::vector<std::chrono::milliseconds> pauses;
  for (int times = 1; times <= 5; ++times) {
    pauses.push_back(time_of([&] {
      EXPECT_TRUE(asks_until(reports, drives, [&] {
        return times_asked("sda") >= times && reports.of(drives[0]).times_unanswered >= times;
      }));
    }));
  }
  EXPECT_THAT(reports.of(drives[0]).smart.why_silent, HasSubstr("smartctl has not answered within 1 s"));
  EXPECT_GE(pauses[1], 200ms);
  EXPECT_GE(pauses[2], 400ms);
  EXPECT_GE(pauses[3], 800ms);
  EXPECT_GE(pauses[4], 800ms);
  answer_with_model("sda", "MODEL-1");
  EXPECT_TRUE(asks_until(reports, drives, [&] { return reports.of(drives[0]).smart.model == "MODEL-1"; }));
  EXPECT_EQ(reports.of(drives[0]).times_unanswered, 0);
}

TEST_F(DriveReportsTest, WaitingForAnAnswerTakesNoProcessor) {
  DriveReports reports(smartctl(), {.age = 10ms, .patience = 1s});
  answer_with_model("sda", "MODEL-1");
  reports.ask({drive("sda")});
  answer("sda", "exec sleep 60");
  pollfd due{.fd = reports.descriptor(), .events = POLLIN, .revents = 0};
  ASSERT_EQ(poll(&due, 1, 30'000), 1);
  const std::clock_t before = std::clock();
  EXPECT_GE(time_of([&] { reports.ask({drive("sda")}); }), 1s);
  EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC / 20);
}

TEST_F(DriveReportsTest, AnAnswerThatComesLaterIsTaken) {
  DriveReports reports(smartctl(), {.patience = 20ms});
  answer("sda", "while [ ! -e $here/go ]; do sleep 0.01; done; echo '{\"model_name\": \"MODEL-1\"}'");
  reports.ask({drive("sda")});
  EXPECT_FALSE(reports.of(drive("sda")).is_known);
  std::ofstream(directory_ / "go") << "go";
  EXPECT_TRUE(asks_until(reports, {drive("sda")}, [&] { return reports.of(drive("sda")).is_known; }));
  EXPECT_EQ(reports.of(drive("sda")).smart.model, "MODEL-1");
}

TEST_F(DriveReportsTest, AProgramThatCannotStartIsNoAnswer) {
  if (is_emulated()) {
    GTEST_SKIP() << hides_failed_starts;
  }
  DriveReports reports(smartctl(), {.age = 100ms, .limit = 200ms, .patience = 20ms});
  answer("sda", "exec sleep 60");
  const std::vector<AskedDrive> drives{drive("sda")};
  reports.ask(drives);
  EXPECT_TRUE(asks_until(reports, drives, [&] { return reports.of(drives[0]).times_unanswered == 1; }));
  std::filesystem::remove(directory_ / "smartctl");
  EXPECT_TRUE(asks_until(reports, drives,
                         [&] { return reports.of(drives[0]).smart.why_silent.find("No such") != std::string::npos; }));
  EXPECT_EQ(reports.of(drives[0]).times_unanswered, 1);
  EXPECT_FALSE(reports.of(drives[0]).has_answered);
}

TEST_F(DriveReportsTest, AMissingProgramIsSaid) {
  if (is_emulated()) {
    GTEST_SKIP() << hides_failed_starts;
  }
  DriveReports reports("/nonexistent/smartctl", {});
  reports.ask({drive("sda")});
  EXPECT_THAT(reports.of(drive("sda")).smart.why_silent, HasSubstr("/nonexistent/smartctl: No such"));
  EXPECT_EQ(reports.of(drive("sda")).times_unanswered, 0);
}

}  // namespace
}  // namespace tavo::service
