#include "threads/stor_event_thread.h"

#include <gmock/gmock.h>

#include <cerrno>

#include "core/access_lock.h"
#include "core/class_number.h"
#include "tests/fakes/clock.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fakes/storage_client.h"
#include "tests/fakes/threads.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

using fakes::LogLine;
using testing::Each;
using testing::ElementsAre;

class StorEventThreadTest : public fakes::ModuleTest {
 protected:
  static int refreshes_due() {
    acquire_inventory_lock();
    const int due = check_inventory_status(class_number::storage);
    release_inventory_lock();
    return due;
  }

  static void start() {
    ASSERT_EQ(create_stor_thread(), 0);
    fakes::wait_until_storage_events_are_taken();
  }

  // Sends the event that a stopped thread waits for.
  static void stop_and_join() {
    stop_stor_thread();
    fakes::send_storage_event(STORAGE_EVENT_NONE);
    EXPECT_EQ(join_stor_thread(), 0);
  }

  static void send(std::uint32_t type) {
    fakes::send_storage_event(type);
    fakes::wait_until_storage_events_are_taken();
  }
};

TEST_F(StorEventThreadTest, AChangedConfigurationAsksForARefresh) {
  start();
  EXPECT_EQ(refreshes_due(), 0);
  send(7);
  EXPECT_EQ(refreshes_due(), 1);
  EXPECT_EQ(refreshes_due(), 0);
  stop_and_join();
}

TEST_F(StorEventThreadTest, OtherEventsChangeNothing) {
  start();
  for (const std::uint32_t type : {0U, 1U, 2U, 6U, 8U, 208U, 0x07000000U, 0xFFFFFFFFU}) {
    send(type);
    EXPECT_EQ(refreshes_due(), 0) << type;
  }
  stop_and_join();
}

TEST_F(StorEventThreadTest, ABurstOfAThousandEventsIsOneRequest) {
  start();
  for (int i = 0; i < 1000; ++i) {
    fakes::send_storage_event(7);
  }
  fakes::wait_until_storage_events_are_taken();
  EXPECT_EQ(refreshes_due(), 1);
  EXPECT_EQ(refreshes_due(), 0);
  stop_and_join();
}

TEST_F(StorEventThreadTest, TheStreamIsOpenedOnceAndClosedAtTheEnd) {
  start();
  send(7);
  EXPECT_THAT(fakes::storage_stream_calls(), ElementsAre("open 0 0"));
  stop_and_join();
  EXPECT_THAT(fakes::storage_stream_calls(), ElementsAre("open 0 0", "close"));
}

TEST_F(StorEventThreadTest, AStopTakesEffectWithTheNextEventWhichIsServed) {
  start();
  stop_stor_thread();
  EXPECT_THAT(fakes::storage_stream_calls(), ElementsAre("open 0 0"));
  fakes::send_storage_event(7);
  EXPECT_EQ(join_stor_thread(), 0);
  EXPECT_EQ(refreshes_due(), 1);
  EXPECT_THAT(fakes::log_lines(), ElementsAre(LogLine{LOG_DEBUG, "StorageThread initiated\n"},
                                              LogLine{LOG_DEBUG, "Stopping StorageThread\n"},
                                              LogLine{LOG_DEBUG, "StorageThread exited\n"}));
}

TEST_F(StorEventThreadTest, NoEventAtAllIsSurvivedWithoutHaste) {
  const fakes::FakeClock clock;
  start();
  for (int i = 0; i < 3; ++i) {
    fakes::send_no_storage_event();
  }
  send(7);
  EXPECT_EQ(refreshes_due(), 1);
  EXPECT_THAT(clock.sleeps(), ElementsAre(1, 1, 1));
  stop_and_join();
}

TEST_F(StorEventThreadTest, CreationIsTracedAndJoinable) {
  fakes::start_no_threads();
  fakes::set_debugging(true);
  EXPECT_EQ(create_stor_thread(), 0);
  const auto traces = fakes::traces();
  ASSERT_EQ(traces.size(), 1U);
  EXPECT_EQ(traces[0].function, "create_stor_thread");
  EXPECT_EQ(traces[0].source, "stor_event_thread");
  EXPECT_EQ(traces[0].text, "create_stor_thread: Creating Storage thread\n");
  const auto created = fakes::created_threads();
  ASSERT_EQ(created.size(), 1U);
  EXPECT_EQ(created[0].start_routine, stor_thread);
  EXPECT_EQ(created[0].detach_state, PTHREAD_CREATE_JOINABLE);
  EXPECT_EQ(join_stor_thread(), 0);
}

TEST_F(StorEventThreadTest, AThreadThatCannotBeCreatedIsLogged) {
  fakes::fail_thread_creation(EAGAIN);
  EXPECT_EQ(create_stor_thread(), -1);
  EXPECT_THAT(fakes::log_lines(), ElementsAre(LogLine{LOG_DEBUG, "Unable to create storage thread\n"}));
}

TEST_F(StorEventThreadTest, AFailedJoinIsLoggedAndShutDownGoesOn) {
  start();
  fakes::fail_thread_join(EINVAL);
  stop_and_join();
  EXPECT_THAT(fakes::log_texts(), ElementsAre("StorageThread initiated\n", "Stopping StorageThread\n",
                                              "Unable to join storage thread\n", "StorageThread exited\n"));
  EXPECT_THAT(fakes::log_lines(), Each(testing::Field(&LogLine::priority, LOG_DEBUG)));
}

}  // namespace
}  // namespace tavo
