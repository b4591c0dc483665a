#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <functional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "iam/platform/Clock.h"
#include "iam/platform/LogBridge.h"
#include "iam/platform/RunLoop.h"
#include "iam/platform/ZTDispatchTools.h"
#include "iam/platform/Thread.h"
#include "iam/platform/WorkerPool.h"
#include "iam/platform/internal/OfferedWork.h"
#include "testing/TestEnvironment.h"

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

namespace iam {
namespace {

class DispatchTest : public ::testing::Test {
 protected:
  testing::TestEnvironment env{dateWithTimeIntervalSince1970(100)};
};

TEST_F(DispatchTest, WorkHopsBetweenThePoolAndTheMainLoopAndSettlingRunsChainsToTheEnd) {
  const auto mainId = std::this_thread::get_id();
  RunLoop::main().runUntilIdle();  // this thread is the main thread
  std::atomic<int> depth{0}, offMainHops{0}, onMainHops{0};
  std::function<void()> hop = [&] {
    (std::this_thread::get_id() == mainId ? onMainHops : offMainHops)++;
    const int d = ++depth;
    if (d >= 12) return;
    if (d % 2 == 1) {
      ZTDispatchTools::onMainWithBlock(hop);
    } else {
      ZTDispatchTools::onBackgroundWithBlock(hop);
    }
  };
  ZTDispatchTools::onBackgroundWithBlock(hop);
  EXPECT_TRUE(ZTDispatchTools::settle());
  EXPECT_EQ(depth.load(), 12);
  EXPECT_EQ(offMainHops.load(), 6);  // odd depths ran on the pool, even ones on the main loop
  EXPECT_EQ(RunLoop::main().runUntilIdle(), 0u);
}

TEST_F(DispatchTest, PostsFromSeveralThreadsRunExactlyOnceInEachThreadsOrder) {
  constexpr int kThreads = 4;
  constexpr int kPerThread = 500;
  RunLoop::main().runUntilIdle();
  std::vector<std::vector<int>> seen(kThreads);  // touched on the main thread only
  std::vector<std::thread> posters;
  for (int t = 0; t < kThreads; ++t) {
    posters.emplace_back([&, t] {
      for (int i = 0; i < kPerThread; ++i) ZTDispatchTools::onMainWithBlock([&, t, i] { seen[t].push_back(i); });
    });
  }
  int fromPool = 0;
  for (int i = 0; i < 300; ++i)
    ZTDispatchTools::onBackgroundWithBlock([&] { ZTDispatchTools::onMainWithBlock([&] { ++fromPool; }); });
  for (auto& p : posters) p.join();
  env.settle();
  EXPECT_EQ(fromPool, 300);
  for (int t = 0; t < kThreads; ++t) {
    ASSERT_EQ(seen[t].size(), static_cast<std::size_t>(kPerThread)) << t;
    for (int i = 0; i < kPerThread; ++i) ASSERT_EQ(seen[t][i], i) << "thread " << t;
  }
}

TEST_F(DispatchTest, WaitingForThePoolTimesOutWhileWorkRunsAndBlocksThatThrowAreLogged) {
  std::atomic<bool> release{false};
  ZTDispatchTools::onBackgroundWithBlock([&] { release.wait(false); });
  EXPECT_FALSE(ZTDispatchTools::waitForBackgroundIdle(0.05));
  EXPECT_FALSE(ZTDispatchTools::settle(0.05));
  release = true;
  release.notify_all();
  std::atomic<int> after{0};
  ZTDispatchTools::onBackgroundWithBlock([] { throw std::runtime_error("background boom"); });
  ZTDispatchTools::onBackgroundWithBlock([&] { ++after; });
  env.settle();
  EXPECT_EQ(after.load(), 1);
  const auto errors = env.log().messages(LogLevel::Error);
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_NE(errors[0].find("background boom"), std::string::npos);
}

// Spins until `done` holds; false after a minute.
template <class F>
bool spinUntil(F done) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

// Statistics saves go through operation queues; a burst of walks queued before them must not
// keep them from the disk. Which blocks the workers take is seen by holding each taken block
// until all are seen, so a worker preempted between taking a block and running it changes nothing.
TEST_F(DispatchTest, WorkSubmittedAheadIsTakenBeforeQueuedBlocksAndKeepsItsOrder) {
  auto& pool = WorkerPool::shared();
  pool.submit([] {});
  const int workers = static_cast<int>(pool.workerCount());
  ASSERT_GE(workers, 2);
  std::atomic<bool> open{false}, release{false};
  std::atomic<int> holding{0};
  for (int i = 0; i < workers; ++i)
    pool.submit([&] {
      ++holding;
      while (!open) std::this_thread::yield();
    });
  ASSERT_TRUE(spinUntil([&] { return holding == workers; }));
  std::mutex mutex;
  std::vector<int> taken;
  const auto block = [&](int id) {
    return [&, id] {
      {
        std::lock_guard lock(mutex);
        taken.push_back(id);
      }
      while (!release) std::this_thread::yield();
    };
  };
  for (int i = 0; i < 50; ++i) pool.submit(block(i));
  for (int i = 0; i < workers + 2; ++i) pool.submitAhead(block(100 + i));
  open = true;
  ASSERT_TRUE(spinUntil([&] {
    std::lock_guard lock(mutex);
    return taken.size() == static_cast<std::size_t>(workers);
  }));
  std::vector<int> first;
  {
    std::lock_guard lock(mutex);
    first = taken;
  }
  std::sort(first.begin(), first.end());
  std::vector<int> expected;
  for (int i = 0; i < workers; ++i) expected.push_back(100 + i);
  EXPECT_EQ(first, expected);  // the blocks submitted ahead, the earliest of them first
  release = true;
  ASSERT_TRUE(pool.waitForIdle(60));
  EXPECT_EQ(taken.size(), 50u + static_cast<std::size_t>(workers) + 2u);
}

// Offered work: done by the caller when every worker is busy (a start must not wait on the pool),
// else by a worker whose lines come out after the caller's own, as a serial run writes them; a
// throw reaches the caller either way.
TEST_F(DispatchTest, OfferedWorkNeverWaitsOnABusyPoolAndKeepsTheSerialOrderOfLines) {
  auto& pool = WorkerPool::shared();
  ZTDispatchTools::onBackgroundWithBlock([] {});
  env.settle();
  std::atomic<int> held{0};
  std::atomic<bool> release{false};
  for (std::size_t i = 0; i < pool.workerCount(); ++i) {
    ZTDispatchTools::onBackgroundWithBlock([&] {
      ++held;
      while (!release) std::this_thread::yield();
    });
  }
  ASSERT_TRUE(spinUntil([&] { return held == static_cast<int>(pool.workerCount()); }));
  std::thread::id ranOn;
  OfferedWork busy([&] { ranOn = std::this_thread::get_id(); });
  busy.finish();
  EXPECT_EQ(ranOn, std::this_thread::get_id());
  release = true;
  env.settle();

  std::atomic<bool> started{false}, callerLogged{false};
  OfferedWork idle([&] {
    started = true;
    while (!callerLogged) std::this_thread::yield();
    LogBridge::warning("worker line", "test", __LINE__, "offered");
  });
  ASSERT_TRUE(spinUntil([&] { return started.load(); }));
  LogBridge::warning("caller line", "test", __LINE__, "caller");
  callerLogged = true;
  idle.finish();
  EXPECT_EQ(env.log().messages(LogLevel::Warning), (std::vector<std::string>{"caller line", "worker line"}));

  OfferedWork failing([] { throw std::runtime_error("offered boom"); });
  EXPECT_THROW(failing.finish(), std::runtime_error);
  env.settle();
}

TEST_F(DispatchTest, TimersScheduledAndInvalidatedFromOtherThreads) {
  auto& loop = RunLoop::main();
  std::atomic<int> fires{0};
  std::shared_ptr<Timer> timer;
  std::thread([&] { timer = Timer::scheduledTimerWithTimeInterval(1, true, [&](Timer&) { ++fires; }); }).join();

  std::atomic<bool> invalidated{false}, gaveUp{false};
  std::atomic<int> firesAtInvalidation{-1};
  std::thread invalidator([&] {
    while (fires < 50 && !gaveUp) std::this_thread::yield();
    timer->invalidate();
    firesAtInvalidation = fires.load();
    invalidated = true;
  });
  // The main thread keeps the timer busy while another thread invalidates it.
  for (int i = 0; !invalidated && i < 10'000'000; ++i) {
    env.clock().advance(1);
    loop.runUntilIdle();
  }
  gaveUp = true;
  invalidator.join();
  for (int i = 0; i < 10; ++i) loop.runFor(1);
  // A fire already under way when the invalidation returned may finish; none starts after it.
  EXPECT_GE(fires.load(), 50);
  EXPECT_LE(fires.load(), firesAtInvalidation.load() + 1);
  EXPECT_FALSE(loop.nextTimerFireDate().has_value());
}

TEST_F(DispatchTest, ALogCaptureGoingAwayWhileAnotherThreadLogsLosesNoMemory) {
  std::atomic<bool> stop{false};
  std::thread logger([&] {
    while (!stop) LogBridge::warning("IAM: from another thread", "test", __LINE__, "logger");
  });
  // Each capture lives until the other thread has logged into it, so that it goes away while
  // that thread is still logging; ASan or TSan report a line reaching a destroyed capture.
  int overlapped = 0;
  for (int i = 0; i < 100; ++i) {
    testing::CapturingLogSink sink;
    for (int spin = 0; spin < 1'000'000 && sink.records().empty(); ++spin) std::this_thread::yield();
    if (!sink.records().empty()) ++overlapped;
  }
  stop = true;
  logger.join();
  EXPECT_GT(overlapped, 0);
}

TEST_F(DispatchTest, TheDefaultThreadServiceNamesItsThreadsAndLowersThePriorityOfThePool) {
  char name[32] = {};
  std::atomic<int> niceDelta{0};
  const int callerNice = getpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()));
  ThreadService::current()->start("iam.test-thread-name-too-long", ThreadPriority::Background, [&] {
    pthread_getname_np(pthread_self(), name, sizeof name);
    niceDelta = getpriority(PRIO_PROCESS, static_cast<id_t>(::gettid())) - callerNice;
  }).join();
  EXPECT_STREQ(name, "iam.test-thread");
  EXPECT_GT(niceDelta.exchange(0), 0);
  // The shared pool's threads are started that way too.
  ZTDispatchTools::onBackgroundWithBlock(
      [&] { niceDelta = getpriority(PRIO_PROCESS, static_cast<id_t>(::gettid())) - callerNice; });
  env.settle();
  EXPECT_GT(niceDelta.load(), 0);
}

}  // namespace
}  // namespace iam
