#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "platform/Clock.h"
#include "platform/Queue.h"
#include "tests/platform/World.h"

namespace platform {
namespace {

using contract::Eventually;

constexpr std::uint64_t kMillisecond = 1'000'000;
constexpr std::uint64_t kHour = 3600 * 1000 * kMillisecond;

TEST(Queue, RunsWorkInTheOrderOfSubmission) {
  const Queue queue("order");
  std::vector<int> order;
  for (int i = 0; i < 1000; ++i) queue.async([&order, i] { order.push_back(i); });
  queue.sync([&order] { order.push_back(1000); });
  ASSERT_EQ(order.size(), 1001u);
  for (int i = 0; i <= 1000; ++i) EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
}

TEST(Queue, NeverRunsTwoPiecesOfWorkAtOnce) {
  const Queue queue("serial");
  std::atomic<int> running = 0;
  std::atomic<bool> overlapped = false;
  std::vector<std::thread> submitters;
  for (int i = 0; i < 4; ++i) {
    submitters.emplace_back([&] {
      for (int j = 0; j < 250; ++j) {
        queue.async([&] {
          if (++running > 1) overlapped = true;
          --running;
        });
      }
    });
  }
  for (std::thread& submitter : submitters) submitter.join();
  queue.sync([] {});
  EXPECT_FALSE(overlapped);
}

TEST(Queue, IsAHandleWhoseCopiesNameTheSameQueue) {
  const Queue queue("handle");
  const Queue copy = queue;  // NOLINT(performance-unnecessary-copy-initialization)
  std::vector<int> order;
  queue.async([&] { order.push_back(1); });
  copy.async([&] { order.push_back(2); });
  queue.sync([] {});
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

TEST(Queue, RunsWorkAlsoWhenItsHandleIsGone) {
  std::promise<void> done;
  {
    Queue("gone").async([&] { done.set_value(); });
  }
  done.get_future().wait();
}

TEST(Queue, SyncReturnsOnlyWhenTheWorkHasFinished) {
  const Queue queue("sync");
  int value = 0;
  queue.sync([&] { value = 7; });
  EXPECT_EQ(value, 7);
}

TEST(Queue, GoesOnWhileTwoOthersAreBlocked) {
  const Queue first("first");
  const Queue second("second");
  const Queue free("free");
  std::promise<void> release;
  const std::shared_future<void> released = release.get_future().share();
  first.async([released] { released.wait(); });
  second.async([released] { released.wait(); });
  bool ran = false;
  free.sync([&] { ran = true; });
  EXPECT_TRUE(ran);
  release.set_value();
  first.sync([] {});
  second.sync([] {});
}

TEST(Queue, RunsDelayedWorkNotBeforeItsTime) {
  const Queue queue("delay");
  const std::uint64_t start = ClockMonotonicNs();
  std::promise<std::uint64_t> ran;
  queue.after(30 * kMillisecond, [&] { ran.set_value(ClockMonotonicNs()); });
  EXPECT_GE(ran.get_future().get() - start, 30 * kMillisecond);
}

TEST(Queue, TakesTheLongestDelayThereIs) {
  Queue("forever").after(UINT64_MAX, [] { FAIL(); });
}

TEST(Timer, FiresOnceOnItsQueue) {
  const Queue queue("timer");
  std::atomic<int> fired = 0;
  Timer timer(queue, [&] { ++fired; });
  queue.sync([&] { timer.arm(kMillisecond, kMillisecond); });
  EXPECT_TRUE(Eventually([&] { return fired == 1; }));
  std::promise<void> later;
  queue.after(20 * kMillisecond, [&] { later.set_value(); });
  later.get_future().wait();
  EXPECT_EQ(fired, 1);
  queue.sync([&] { timer = Timer(queue, [] {}); });
}

TEST(Timer, ArmedAgainReplacesThePendingFiring) {
  const Queue queue("again");
  std::atomic<int> fired = 0;
  Timer timer(queue, [&] { ++fired; });
  queue.sync([&] {
    timer.arm(kHour, 0);
    timer.arm(kMillisecond, 0);
    timer.arm(2 * kMillisecond, 0);
  });
  EXPECT_TRUE(Eventually([&] { return fired == 1; }));
  queue.sync([&] {
    timer.arm(kMillisecond, 0);
    ClockSleep(20 * kMillisecond);  // the firing comes up behind this work
    timer.arm(kHour, 0);
  });
  queue.sync([] {});
  EXPECT_EQ(fired, 1);
  queue.sync([&] { timer = Timer(queue, [] {}); });
}

TEST(Timer, CanBeArmedAgainFromItsHandler) {
  const Queue queue("rearm");
  std::atomic<int> fired = 0;
  std::unique_ptr<Timer> timer;
  queue.sync([&] {
    timer = std::make_unique<Timer>(queue, [&] {
      if (++fired < 3) timer->arm(kMillisecond, 0);
    });
    timer->arm(kMillisecond, 0);
  });
  EXPECT_TRUE(Eventually([&] { return fired == 3; }));
  queue.sync([&] { timer.reset(); });
}

TEST(Timer, DestroyedStaysSilent) {
  const Queue queue("destroyed");
  const auto held = std::make_shared<int>(0);
  std::atomic<bool> fired = false;
  queue.sync([&] {
    Timer timer(queue, [&fired, held] { fired = true; });
    timer.arm(kMillisecond, 0);
    ClockSleep(10 * kMillisecond);
  });
  queue.sync([] {});
  EXPECT_FALSE(fired);
  EXPECT_TRUE(Eventually([&] { return held.use_count() == 1; }));  // and lets go of its handler
}

TEST(Timer, DestroyedLongBeforeItsTimeLetsGoOfItsHandler) {
  const Queue queue("early");
  const auto held = std::make_shared<int>(0);
  queue.sync([&] {
    Timer timer(queue, [held] {});
    timer.arm(kHour, 0);
  });
  EXPECT_TRUE(Eventually([&] { return held.use_count() == 1; }));
}

TEST(Timer, Moves) {
  const Queue queue("moves");
  std::promise<void> fired;
  std::unique_ptr<Timer> second;
  queue.sync([&] {
    Timer first(queue, [&] { fired.set_value(); });
    first.arm(kMillisecond, 0);
    second = std::make_unique<Timer>(std::move(first));
  });
  fired.get_future().wait();
  queue.sync([&] { second.reset(); });
}

TEST(ParkMainThreadDeathTest, LeavesTheProcessToItsQueues) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        Queue("exit").after(kMillisecond, [] { std::_Exit(7); });
        ParkMainThread();
      },
      testing::ExitedWithCode(7), "");
}

TEST(ExitDeathTest, IsCleanWhileQueuesAreBusy) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        const Queue queue("busy");
        std::function<void()> again = [&] { queue.async(again); };
        queue.async(again);
        std::exit(3);
      },
      testing::ExitedWithCode(3), "");
}

TEST(Clock, NeverGoesBack) {
  std::uint64_t last = ClockMonotonicNs();
  for (int i = 0; i < 1000; ++i) {
    const std::uint64_t now = ClockMonotonicNs();
    EXPECT_GE(now, last);
    last = now;
  }
}

TEST(Clock, SleepsAtLeastAsLongAsAsked) {
  const std::uint64_t start = ClockMonotonicNs();
  ClockSleep(5 * kMillisecond);
  EXPECT_GE(ClockMonotonicNs() - start, 5 * kMillisecond);
}

TEST(Clock, TellsTheSameTimeAsTheSystem) {
  EXPECT_NEAR(ClockSecondsSince1970(), static_cast<double>(time(nullptr)), 60);
}

}  // namespace
}  // namespace platform
