#include "host/notification_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <new>
#include <numeric>
#include <thread>
#include <vector>

#include "tests/harness/threaded.h"
#include "tests/unit/host/recorded_log.h"

namespace tavo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Notification numbered(int number) {
  return {.varbinds = PackedVarbinds(nullptr), .enterprise = {}, .context = std::to_string(number)};
}

std::vector<int> range(int first, int count) {
  std::vector<int> numbers(static_cast<std::size_t>(count));
  std::iota(numbers.begin(), numbers.end(), first);
  return numbers;
}

bool readable(const NotificationQueue &queue) {
  pollfd descriptor{.fd = queue.descriptor(), .events = POLLIN, .revents = 0};
  return poll(&descriptor, 1, 0) == 1;
}

// A link that accepts every notification. The request has the number of the notification.
struct Link {
  Transmission operator()(const Notification &notification) {
    const int number = std::stoi(*notification.context);
    if (number == broken_at) {
      return {.outcome = Transmission::LinkBroken};
    }
    if (number == short_of_memory_at) {
      throw std::bad_alloc();
    }
    if (number == refused_at) {
      return {.outcome = Transmission::Lost};
    }
    sent.push_back(number);
    return {.outcome = outcome, .request = number};
  }

  Transmission::Outcome outcome = Transmission::Finished;
  int broken_at = -1;
  int short_of_memory_at = -1;
  int refused_at = -1;
  std::vector<int> sent;
};

class NotificationQueueTest : public testing::Test {
 protected:
  void push(int first, int count) {
    for (const int number : range(first, count)) {
      queue.push(numbered(number));
    }
  }

  Link link;
  NotificationQueue queue{1000, [this](const Notification &notification) { return link(notification); }};
};

TEST_F(NotificationQueueTest, SendsNothingWhileTheLinkIsDown) {
  push(1, 3);
  queue.turn();
  EXPECT_THAT(link.sent, IsEmpty());
  EXPECT_EQ(queue.waiting(), 3U);
  EXPECT_FALSE(readable(queue));
}

TEST_F(NotificationQueueTest, SendsInOrderOnceTheLinkIsUp) {
  push(1, 3);
  queue.link_up();
  EXPECT_TRUE(readable(queue));
  queue.turn();
  EXPECT_THAT(link.sent, ElementsAre(1, 2, 3));
  EXPECT_TRUE(queue.idle());
  EXPECT_FALSE(readable(queue));
}

TEST_F(NotificationQueueTest, APushWakesTheLoop) {
  queue.link_up();
  queue.turn();
  EXPECT_FALSE(readable(queue));
  push(1, 1);
  EXPECT_TRUE(readable(queue));
}

TEST_F(NotificationQueueTest, SendsOneBurstInATurnAndAsksForAnother) {
  queue.link_up();
  push(1, 120);
  queue.turn();
  EXPECT_EQ(link.sent, range(1, 50));
  EXPECT_TRUE(readable(queue));
  queue.turn();
  queue.turn();
  EXPECT_EQ(link.sent, range(1, 120));
  EXPECT_FALSE(readable(queue));
}

TEST_F(NotificationQueueTest, HoldsBackWhileOneBurstIsUnanswered) {
  link.outcome = Transmission::AwaitingAnswer;
  queue.link_up();
  push(1, 60);
  queue.turn();
  queue.turn();
  EXPECT_EQ(link.sent, range(1, 50));
  EXPECT_FALSE(readable(queue)) << "the loop must not spin while it waits for an answer";
  queue.answered(1, true);
  queue.answered(2, true);
  EXPECT_TRUE(readable(queue));
  queue.turn();
  EXPECT_EQ(link.sent, range(1, 52));
}

TEST_F(NotificationQueueTest, IsIdleOnlyWhenEverythingIsAnswered) {
  link.outcome = Transmission::AwaitingAnswer;
  queue.link_up();
  push(1, 2);
  queue.turn();
  EXPECT_FALSE(queue.idle());
  queue.answered(2, true);
  queue.answered(1, true);
  EXPECT_TRUE(queue.idle());
}

TEST_F(NotificationQueueTest, CountsWhatIsSentAndWhatIsRefused) {
  queue.link_up();
  push(1, 3);
  queue.turn();
  EXPECT_EQ(queue.sent(), 3U);
  link.outcome = Transmission::Lost;
  push(4, 2);
  queue.turn();
  EXPECT_EQ(queue.lost(), 2U);
  link.outcome = Transmission::AwaitingAnswer;
  push(6, 3);
  queue.turn();
  EXPECT_EQ(queue.sent(), 3U) << "not before the answer";
  queue.answered(6, true);
  queue.answered(7, false);
  queue.answered(77, true);
  EXPECT_EQ(queue.sent(), 4U);
  EXPECT_EQ(queue.refused(), 1U);
  queue.link_down();
  queue.link_up();
  queue.turn();
  queue.answered(8, true);
  EXPECT_EQ(queue.sent(), 5U) << "sent twice, and accepted once";
}

TEST_F(NotificationQueueTest, RemembersItsGreatestLength) {
  push(1, 5);
  EXPECT_EQ(queue.longest(), 5U);
  queue.link_up();
  queue.turn();
  push(6, 2);
  EXPECT_EQ(queue.waiting(), 2U);
  EXPECT_EQ(queue.longest(), 5U);
}

class FullQueueTest : public NotificationQueueTest {
 protected:
  // Pushes 1 to `count` on another thread, as the module does.
  std::thread pusher(int count) {
    return std::thread([this, count] { push(1, count); });
  }

  void push(int first, int count) {
    for (const int number : range(first, count)) {
      small_.push(numbered(number));
    }
  }

  NotificationQueue small_{10, [this](const Notification &notification) { return link(notification); }};
  NotificationQueue impatient_{10, [this](const Notification &notification) { return link(notification); },
                               std::chrono::milliseconds(20)};
};

TEST_F(FullQueueTest, AThreadWaitsForRoomWhileTheQueueMoves) {
  small_.link_up();
  std::thread module = pusher(5000);
  while (link.sent.size() < 5000) {
    EXPECT_LE(small_.waiting(), 10U);
    small_.turn();
  }
  module.join();
  EXPECT_EQ(link.sent, range(1, 5000));
  EXPECT_EQ(small_.dropped(), 0U);
}

TEST_F(FullQueueTest, TheLoopItselfNeverWaits) {
  small_.link_up();
  push(1, 15);
  EXPECT_EQ(small_.dropped(), 5U);
}

TEST_F(FullQueueTest, NobodyWaitsWhileTheLinkIsDown) {
  pusher(15).join();
  EXPECT_EQ(small_.dropped(), 5U);
}

TEST_F(FullQueueTest, WaitingEndsWhenTheLinkGoesDown) {
  small_.link_up();
  std::thread module = pusher(15);
  while (small_.waiting() < 10) {
    std::this_thread::yield();
  }
  small_.link_down();
  module.join();
  EXPECT_EQ(small_.dropped(), 5U);
}

TEST_F(FullQueueTest, NobodyWaitsLongForAQueueThatStandsStill) {
  impatient_.link_up();
  std::thread([this] {
    for (const int number : range(1, 15)) {
      impatient_.push(numbered(number));
    }
  }).join();
  EXPECT_EQ(impatient_.dropped(), 5U);
}

TEST_F(FullQueueTest, WaitingEndsWhenTheLinkBreaks) {
  link.broken_at = 1;
  small_.link_up();
  push(1, 10);
  std::vector<std::thread> waiting;
  for (const int number : range(11, 3)) {
    waiting.emplace_back([this, number] { small_.push(numbered(number)); });
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // until all of them wait, most likely
  const auto begin = std::chrono::steady_clock::now();
  small_.turn();
  for (std::thread &thread : waiting) {
    thread.join();
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20)) << "their patience is 30 s";
  EXPECT_GE(small_.dropped(), 2U) << "one may have found room for a moment";
}

TEST_F(FullQueueTest, AQueueThatMovesSlowlyIsNotStuck) {
  constexpr auto patience = std::chrono::milliseconds(200);
  NotificationQueue slow{10, [this](const Notification &notification) { return link(notification); }, patience};
  link.outcome = Transmission::AwaitingAnswer;
  slow.link_up();
  std::atomic<bool> pushed = false;
  std::thread module([&] {
    for (const int number : range(1, 70)) {
      slow.push(numbered(number));
    }
    pushed = true;
  });
  // One acknowledgement in half the patience, for twice the patience and more.
  for (int answer = 1; !pushed; ++answer) {
    while (slow.waiting() < 10 && !pushed) {
      slow.turn();
    }
    std::this_thread::sleep_for(patience / 2);
    slow.answered(answer, true);
    slow.turn();
  }
  module.join();
  EXPECT_EQ(slow.dropped(), 0U);
}

TEST_F(FullQueueTest, TimeWithoutALinkIsNoStandstill) {
  constexpr auto patience = std::chrono::milliseconds(100);
  NotificationQueue rested{10, [this](const Notification &notification) { return link(notification); }, patience};
  for (const int number : range(1, 10)) {
    rested.push(numbered(number));
  }
  std::this_thread::sleep_for(patience * 2);
  rested.link_up();
  const auto begin = std::chrono::steady_clock::now();
  std::thread([&] { rested.push(numbered(11)); }).join();
  EXPECT_GE(std::chrono::steady_clock::now() - begin, patience) << "the eleventh must wait for room";
}

TEST_F(NotificationQueueTest, SendsNothingWhileItsReceiversAreNotReady) {
  bool ready = true;
  NotificationQueue held{1000,
                         [&](const Notification &notification) {
                           ready = notification.context != "3";
                           return link(notification);
                         },
                         NotificationQueue::default_patience, [&] { return ready; }};
  held.link_up();
  for (const int number : range(1, 5)) {
    held.push(numbered(number));
  }
  held.turn();
  EXPECT_THAT(link.sent, ElementsAre(1, 2, 3));
  EXPECT_FALSE(readable(held)) << "the loop must not spin while it waits";
  ready = true;
  held.resume();
  EXPECT_TRUE(readable(held));
  held.turn();
  EXPECT_THAT(link.sent, ElementsAre(1, 2, 3, 4, 5));
}

TEST_F(FullQueueTest, ASilenceBeforeABurstIsNotAStandstill) {
  constexpr auto patience = std::chrono::milliseconds(100);
  NotificationQueue rested{10, [this](const Notification &notification) { return link(notification); }, patience};
  rested.link_up();
  std::this_thread::sleep_for(patience * 2);
  const auto begin = std::chrono::steady_clock::now();
  std::thread([&] {
    for (const int number : range(1, 11)) {
      rested.push(numbered(number));
    }
  }).join();
  EXPECT_GE(std::chrono::steady_clock::now() - begin, patience) << "the eleventh must wait for room";
}

TEST_F(NotificationQueueTest, AnAnswerToAnUnknownRequestChangesNothing) {
  link.outcome = Transmission::AwaitingAnswer;
  queue.link_up();
  push(1, 1);
  queue.turn();
  queue.answered(77, true);
  EXPECT_FALSE(queue.idle());
  EXPECT_FALSE(readable(queue));
}

TEST_F(NotificationQueueTest, UnansweredOnesAreSentAgainInOrder) {
  link.outcome = Transmission::AwaitingAnswer;
  queue.link_up();
  push(1, 5);
  queue.turn();
  queue.answered(1, true);
  queue.answered(3, true);
  queue.link_down();
  push(6, 1);
  queue.turn();
  link.sent.clear();
  queue.link_up();
  queue.turn();
  EXPECT_THAT(link.sent, ElementsAre(2, 4, 5, 6));
}

TEST_F(NotificationQueueTest, ANotificationKeepsItsPlaceWhenTheLinkBreaks) {
  link.outcome = Transmission::AwaitingAnswer;
  link.broken_at = 3;
  queue.link_up();
  push(1, 4);
  queue.turn();
  EXPECT_THAT(link.sent, ElementsAre(1, 2));
  EXPECT_FALSE(queue.linked());
  queue.turn();
  EXPECT_THAT(link.sent, ElementsAre(1, 2)) << "a broken link is not used until it is up again";
  link.broken_at = -1;
  queue.link_down();
  link.sent.clear();
  queue.link_up();
  queue.turn();
  EXPECT_THAT(link.sent, ElementsAre(1, 2, 3, 4));
}

TEST_F(NotificationQueueTest, BeyondTheLimitTheOldestIsDroppedAndCounted) {
  push(1, 1003);
  EXPECT_EQ(queue.waiting(), 1000U);
  EXPECT_EQ(queue.dropped(), 3U);
  queue.link_up();
  while (!queue.idle()) {
    queue.turn();
  }
  EXPECT_EQ(link.sent, range(4, 1000));
}

TEST_F(NotificationQueueTest, OneThatCannotBeCopiedCountsAndIsLogged) {
  const RecordedLog log;
  queue.count_lost();
  EXPECT_EQ(queue.lost(), 1U);
  EXPECT_TRUE(readable(queue)) << "the loop must log it";
  queue.turn();
  queue.turn();
  EXPECT_THAT(log.lines(), ElementsAre("3 1 notifications lost (out of memory, or refused by net-snmp), 1 since the "
                                       "start\n"));
}

TEST_F(NotificationQueueTest, ALackOfMemoryCostsTheOneBeingSent) {
  link.short_of_memory_at = 2;
  queue.link_up();
  push(1, 3);
  queue.turn();
  EXPECT_THAT(link.sent, ElementsAre(1, 3));
  EXPECT_EQ(queue.lost(), 1U);
  EXPECT_TRUE(queue.idle());
}

TEST_F(NotificationQueueTest, OneThatIsRefusedIsCountedAsLost) {
  link.refused_at = 1;
  queue.link_up();
  push(1, 2);
  queue.turn();
  EXPECT_THAT(link.sent, ElementsAre(2));
  EXPECT_EQ(queue.lost(), 1U);
}

TEST_F(NotificationQueueTest, DropsMakeTwoLinesHoweverMany) {
  const RecordedLog log;
  for (int number = 1; number <= 1100; ++number) {
    push(number, 1);
    queue.turn();
  }
  queue.link_up();
  queue.turn();
  EXPECT_THAT(log.lines(), ElementsAre("4 notification queue full (1000): 1 dropped, 1 since the start\n",
                                       "4 notification queue full (1000): 99 dropped, 100 since the start\n"));
}

TEST_F(NotificationQueueTest, OnesAnsweredAfterASecondLossAreNotSentAgain) {
  link.outcome = Transmission::AwaitingAnswer;
  queue.link_up();
  push(1, 2);
  queue.turn();
  queue.link_down();
  queue.link_up();
  queue.turn();
  EXPECT_THAT(link.sent, ElementsAre(1, 2, 1, 2));
  queue.answered(1, true);
  queue.answered(2, true);
  EXPECT_TRUE(queue.idle());
  queue.link_down();
  queue.link_up();
  queue.turn();
  EXPECT_THAT(link.sent, ElementsAre(1, 2, 1, 2));
}

// Run under ThreadSanitizer too.
TEST(NotificationQueueThreads, EachThreadsNotificationsKeepTheirOrder) {
  constexpr int threads = 4;
  constexpr int each = 5000;
  constexpr std::size_t all = std::size_t{threads} * each;
  std::vector<std::vector<int>> received(threads);
  NotificationQueue queue(all, [&](const Notification &notification) {
    const int number = std::stoi(*notification.context);
    received[static_cast<std::size_t>(number / each)].push_back(number % each);
    return Transmission{.outcome = Transmission::Finished};
  });
  std::vector<std::thread> producers;
  producers.reserve(threads);
  for (int thread = 0; thread < threads; ++thread) {
    producers.emplace_back([&queue, thread] {
      for (int number = 0; number < each; ++number) {
        queue.push(numbered(thread * each + number));
      }
    });
  }
  queue.link_up();
  std::size_t total = 0;
  while (total < all) {
    pollfd descriptor{.fd = queue.descriptor(), .events = POLLIN, .revents = 0};
    ASSERT_EQ(poll(&descriptor, 1, 10'000), 1) << "the queue did not wake its loop";
    queue.turn();
    total = 0;
    for (const auto &numbers : received) {
      total += numbers.size();
    }
  }
  for (std::thread &producer : producers) {
    producer.join();
  }
  for (const auto &numbers : received) {
    EXPECT_EQ(numbers, range(0, each));
  }
  EXPECT_EQ(queue.dropped(), 0U);
}

}  // namespace
}  // namespace tavo
