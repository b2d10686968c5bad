#include "core/background_thread.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include "tests/fakes/daemon.h"
#include "tests/fakes/mutexes.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fakes/threads.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

using fakes::LogLine;
using testing::ElementsAre;
using testing::IsEmpty;

std::atomic<int> units_of_work = 0;

void *work_until_stopped(void *argument);

// What had been destroyed when each was called.
std::vector<const void *> destroyed_before;
std::vector<const void *> destroyed_after;
const fakes::Destructions *destructions = nullptr;

void release_before() {
  snmp_log(LOG_DEBUG, "released before the attributes\n");
  if (destructions != nullptr) {
    destroyed_before = destructions->so_far();
  }
}

void release_after() {
  snmp_log(LOG_DEBUG, "released after the attributes\n");
  if (destructions != nullptr) {
    destroyed_after = destructions->so_far();
  }
}

constexpr ThreadDescription description = {
    .start_routine = work_until_stopped,
    .source = "sample_thread",
    .creating = "%s:Creating sample thread\n",
    .create_failed = "unable to create sample thread\n",
    .stopping = "Stopping SampleThread\n",
    .join_failed = "unable to join sample thread\n",
    .exited = "SampleThread exited\n",
    .release_before_attributes = release_before,
    .release_after_attributes = release_after,
};
constinit BackgroundThread sample(description);

void *work_until_stopped(void *argument) {
  EXPECT_EQ(argument, nullptr);
  while (sample.is_running()) {
    ++units_of_work;
    std::this_thread::yield();
  }
  pthread_exit(nullptr);
}

class BackgroundThreadTest : public fakes::ModuleTest {
 protected:
  BackgroundThreadTest() {
    sample.clear_run_flag();
    units_of_work = 0;
    destroyed_before.clear();
    destroyed_after.clear();
  }
};

TEST_F(BackgroundThreadTest, RunsFromCreateToStop) {
  EXPECT_FALSE(sample.is_running());
  ASSERT_EQ(sample.create({.function = "create_sample_thread", .line = 12}), 0);
  EXPECT_TRUE(sample.is_running());
  while (units_of_work < 100) {
    std::this_thread::yield();
  }
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
  sample.stop();
  sample.join();
  EXPECT_THAT(
      fakes::log_lines(),
      ElementsAre(LogLine{LOG_DEBUG, "Stopping SampleThread\n"}, LogLine{LOG_DEBUG, "released before the attributes\n"},
                  LogLine{LOG_DEBUG, "released after the attributes\n"}, LogLine{LOG_DEBUG, "SampleThread exited\n"}));
}

TEST_F(BackgroundThreadTest, IsCreatedJoinableWithItsOwnAttributesAndNoArgument) {
  fakes::start_no_threads();
  ASSERT_EQ(sample.create({.function = "create_sample_thread", .line = 12}), 0);
  const auto created = fakes::created_threads();
  ASSERT_EQ(created.size(), 1U);
  EXPECT_NE(created[0].attributes, nullptr);
  EXPECT_EQ(created[0].detach_state, PTHREAD_CREATE_JOINABLE);
  EXPECT_EQ(created[0].start_routine, work_until_stopped);
  EXPECT_EQ(created[0].argument, nullptr);
  sample.join();
  EXPECT_EQ(fakes::joined_threads().size(), 1U);
}

TEST_F(BackgroundThreadTest, ItsAttributesAreDestroyedBetweenTheTwoReleases) {
  fakes::start_no_threads();
  ASSERT_EQ(sample.create({.function = "create_sample_thread", .line = 12}), 0);
  const fakes::Destructions recorder;
  destructions = &recorder;
  sample.join();
  destructions = nullptr;
  EXPECT_THAT(destroyed_before, IsEmpty());
  EXPECT_THAT(destroyed_after, ElementsAre(fakes::created_threads()[0].attributes));
}

TEST_F(BackgroundThreadTest, CreationIsTracedWithTheNameOfItsFunction) {
  fakes::start_no_threads();
  fakes::set_debugging(true);
  sample.create({.function = "create_sample_thread", .line = 12});
  const auto traces = fakes::traces();
  ASSERT_EQ(traces.size(), 1U);
  EXPECT_EQ(traces[0].function, "create_sample_thread");
  EXPECT_EQ(traces[0].source, "sample_thread");
  EXPECT_EQ(traces[0].line, 12);
  EXPECT_EQ(traces[0].text, "create_sample_thread:Creating sample thread\n");
  sample.stop();
  sample.join();
  EXPECT_EQ(fakes::traces().size(), 1U) << "stop and join are logged only";
}

TEST_F(BackgroundThreadTest, AThreadThatCannotBeCreatedIsLogged) {
  fakes::set_debugging(true);
  fakes::fail_thread_creation(EAGAIN);
  const fakes::RecordedReports reports;
  EXPECT_EQ(sample.create({.function = "create_sample_thread", .line = 12}), -1);
  EXPECT_THAT(fakes::log_lines(), ElementsAre(LogLine{LOG_DEBUG, "unable to create sample thread\n"}));
  EXPECT_THAT(fakes::trace_texts(), ElementsAre("create_sample_thread:Creating sample thread\n"));
  EXPECT_THAT(reports.take(), ElementsAre("create_sample_thread: Resource temporarily unavailable"));
}

TEST_F(BackgroundThreadTest, JoiningAThreadThatWasNeverCreatedFailsAndGoesOn) {
  fakes::fail_thread_creation(EAGAIN);
  sample.create({.function = "create_sample_thread", .line = 12});
  sample.join();
  EXPECT_THAT(fakes::joined_threads(), IsEmpty());
  EXPECT_THAT(fakes::log_texts(), ElementsAre("unable to create sample thread\n", "unable to join sample thread\n",
                                              "released before the attributes\n", "released after the attributes\n",
                                              "SampleThread exited\n"));
}

TEST_F(BackgroundThreadTest, AFailedJoinIsLoggedAndTheRestIsDone) {
  ASSERT_EQ(sample.create({.function = "create_sample_thread", .line = 12}), 0);
  fakes::fail_thread_join(EINVAL);
  sample.stop();
  sample.join();
  EXPECT_THAT(fakes::log_texts(), ElementsAre("Stopping SampleThread\n", "unable to join sample thread\n",
                                              "released before the attributes\n", "released after the attributes\n",
                                              "SampleThread exited\n"));
}

TEST_F(BackgroundThreadTest, ASecondJoinFindsNoThread) {
  fakes::start_no_threads();
  sample.create({.function = "create_sample_thread", .line = 12});
  sample.join();
  sample.join();
  EXPECT_EQ(fakes::joined_threads().size(), 1U);
  EXPECT_EQ(fakes::log_texts()[3], "unable to join sample thread\n");
}

TEST_F(BackgroundThreadTest, NothingToReleaseIsNothingToDo) {
  ThreadDescription bare = description;
  bare.release_before_attributes = nullptr;
  bare.release_after_attributes = nullptr;
  BackgroundThread thread(bare);
  fakes::start_no_threads();
  thread.create({.function = "create_sample_thread", .line = 12});
  thread.join();
  EXPECT_THAT(fakes::log_texts(), ElementsAre("SampleThread exited\n"));
}

}  // namespace
}  // namespace tavo
