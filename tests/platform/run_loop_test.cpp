#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "iam/platform/Clock.h"
#include "iam/platform/LogBridge.h"
#include "iam/platform/RunLoop.h"
#include "testing/TestEnvironment.h"

namespace iam {
namespace {

class RunLoopTest : public ::testing::Test {
 protected:
  void TearDown() override {
    for (auto& t : timers_) t->invalidate();
  }

  testing::TestEnvironment env{dateWithTimeIntervalSince1970(1'000'000.25)};
  const Date start_ = env.clock().now();
  std::vector<std::shared_ptr<Timer>> timers_;

  std::shared_ptr<Timer> schedule(TimeInterval interval, bool repeats, Timer::Block block) {
    auto t = Timer::scheduledTimerWithTimeInterval(interval, repeats, std::move(block));
    timers_.push_back(t);
    return t;
  }

  // Seconds the manual clock has moved since the test began.
  double elapsed() { return timeIntervalBetween(env.clock().now(), start_); }
};

TEST_F(RunLoopTest, TimersFireInDueOrderWithTheClockAtTheirDueTimeAndTiesInSchedulingOrder) {
  std::vector<std::pair<std::string, double>> fired;
  auto record = [&](std::string name) { return [&, name](Timer&) { fired.emplace_back(name, elapsed()); }; };
  schedule(3, false, record("c"));
  schedule(1.5, false, record("a"));
  schedule(2, false, record("b1"));
  schedule(2, false, record("b2"));
  schedule(7, false, record("late"));

  EXPECT_EQ(RunLoop::main().runUntilIdle(), 0u);  // nothing is due before the clock moves
  EXPECT_EQ(RunLoop::main().nextTimerFireDate(), dateByAddingTimeInterval(start_, 1.5));

  RunLoop::main().runFor(5);
  const std::vector<std::pair<std::string, double>> expected{{"a", 1.5}, {"b1", 2}, {"b2", 2}, {"c", 3}};
  EXPECT_EQ(fired, expected);
  EXPECT_DOUBLE_EQ(elapsed(), 5);
  EXPECT_FALSE(timers_[0]->isValid());  // a spent one-shot
  EXPECT_EQ(RunLoop::main().nextTimerFireDate(), dateByAddingTimeInterval(start_, 7));
}

TEST_F(RunLoopTest, RepeatingTimerFiresAtEachIntervalAndCollapsesMissedFires) {
  std::vector<double> fired;
  auto timer = schedule(10, true, [&](Timer&) { fired.push_back(elapsed()); });
  RunLoop::main().runFor(35);
  EXPECT_EQ(fired, (std::vector<double>{10, 20, 30}));
  EXPECT_EQ(timer->fireDate(), dateByAddingTimeInterval(start_, 40));

  // The loop was not run for a while: the fires at 40, 50 and 60 become one, and the timer stays
  // on its grid.
  env.clock().advance(30);
  RunLoop::main().runUntilIdle();
  EXPECT_EQ(fired, (std::vector<double>{10, 20, 30, 65}));
  EXPECT_EQ(timer->fireDate(), dateByAddingTimeInterval(start_, 70));

  // A due time that lands exactly on the end of a run is inside it.
  RunLoop::main().runFor(5);
  EXPECT_EQ(fired.back(), 70);
}

TEST_F(RunLoopTest, InvalidatedTimersStopAndSpentOnesAreReleasedWithWhatTheirBlocksHold) {
  int outside = 0, self = 0, victim = 0, laterVictim = 0;
  auto outsideTimer = schedule(1, true, [&](Timer&) { ++outside; });
  // Only the loop holds these two: it keeps them while they are valid and lets them go once done.
  std::weak_ptr<Timer> selfStopping = Timer::scheduledTimerWithTimeInterval(1, true, [&](Timer& t) {
    if (++self == 2) t.invalidate();
  });
  auto owner = std::make_shared<int>(0);
  std::weak_ptr<int> captured = owner;
  std::weak_ptr<Timer> oneShot = Timer::scheduledTimerWithTimeInterval(1, false, [owner](Timer&) { ++*owner; });
  owner.reset();
  std::shared_ptr<Timer> victimTimer, laterTimer;
  schedule(3, false, [&](Timer&) { victimTimer->invalidate(), laterTimer->invalidate(); });
  victimTimer = schedule(3, false, [&](Timer&) { ++victim; });  // same due time, scheduled later
  laterTimer = schedule(4, true, [&](Timer&) { ++laterVictim; });

  RunLoop::main().runFor(2.5);
  EXPECT_EQ(outside, 2);
  EXPECT_TRUE(oneShot.expired());
  EXPECT_TRUE(captured.expired());
  EXPECT_TRUE(selfStopping.expired());
  outsideTimer->invalidate();
  RunLoop::main().runFor(20);
  EXPECT_EQ((std::vector<int>{outside, self, victim, laterVictim}), (std::vector<int>{2, 2, 0, 0}));
  EXPECT_FALSE(RunLoop::main().nextTimerFireDate().has_value());
}

TEST_F(RunLoopTest, PostedTasksRunInOrderAndThrowingTasksOrTimersAreLoggedWhileTheLoopGoesOn) {
  auto& log = env.log();
  std::vector<int> order;
  auto& loop = RunLoop::main();
  loop.post([&] { order.push_back(1); });
  loop.post([&] { order.push_back(2), loop.post([&] { order.push_back(4); }); });
  loop.post([] { throw std::runtime_error("boom"); });
  loop.post([&] { order.push_back(3); });
  EXPECT_EQ(loop.runUntilIdle(), 5u);
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4}));

  int fires = 0;
  schedule(1, true, [&](Timer&) { throw ++fires; });
  loop.runFor(2);
  EXPECT_EQ(fires, 2);  // a throwing repeating timer is still rescheduled
  const auto errors = log.messages(LogLevel::Error);
  ASSERT_EQ(errors.size(), 3u);
  EXPECT_NE(errors[0].find("boom"), std::string::npos);
}

TEST_F(RunLoopTest, RunUntilAndRunWaitInRealTimeForOtherThreadsAndQuit) {
  auto& loop = RunLoop::main();
  const auto before = std::chrono::steady_clock::now();
  EXPECT_FALSE(loop.runUntil([] { return false; }, 0.05));
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(50));
  EXPECT_DOUBLE_EQ(elapsed(), 0);  // real time only; the manual clock stays

  int ran = 0;
  std::thread other([&] {
    loop.post([&] { ++ran; });
    loop.post([&] { loop.quit(); });
    loop.post([&] { ++ran; });  // left for the next drive of the loop
  });
  loop.run();
  other.join();
  EXPECT_EQ(ran, 1);
  EXPECT_EQ(loop.runUntilIdle(), 1u);
  EXPECT_EQ(ran, 2);
}

TEST_F(RunLoopTest, OnTheSystemClockRunForWaitsInRealTimeForTimers) {
  Clock::setCurrent(std::make_shared<SystemClock>());
  std::vector<double> fired;
  const Date begin = Clock::currentDate();
  auto timer = schedule(0.02, true, [&](Timer& t) {
    fired.push_back(timeIntervalBetween(Clock::currentDate(), begin));
    if (fired.size() == 3) t.invalidate();
  });
  RunLoop::main().runFor(0.3);
  EXPECT_GE(timeIntervalBetween(Clock::currentDate(), begin), 0.3);
  ASSERT_EQ(fired.size(), 3u);
  EXPECT_GE(fired[0], 0.02);
  EXPECT_GE(fired[2], 0.06);
  EXPECT_FALSE(timer->isValid());
}

}  // namespace
}  // namespace iam
