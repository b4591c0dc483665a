#include <gtest/gtest.h>

#include <algorithm>
#include <any>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#if defined(__linux__)
#include <sys/resource.h>
#include <unistd.h>
#endif

#include "iam/platform/LogBridge.h"
#include "iam/platform/RunLoop.h"
#include "iam/platform/ZTDispatchTools.h"
#include "iam/support/LegacyZTBackgroundQueue.h"
#include "iam/support/LegacyZTCancelableOperation.h"
#include "iam/support/OperationQueue.h"
#include "testing/TestEnvironment.h"

namespace iam {
namespace {

using Entries = std::vector<std::string>;

// A one-shot gate a work block can wait on while the test decides what happens next.
struct Gate {
  std::promise<void> promise;
  std::shared_future<void> future = promise.get_future().share();
  void open() { promise.set_value(); }
  bool wait() const { return future.wait_for(std::chrono::seconds(10)) == std::future_status::ready; }
};

// What ran, from any thread, in order.
class Journal {
 public:
  void note(std::string what) {
    std::lock_guard lock(mutex_);
    entries_.push_back(std::move(what));
  }
  Entries entries() const {
    std::lock_guard lock(mutex_);
    return entries_;
  }

 private:
  mutable std::mutex mutex_;
  Entries entries_;
};

class BackgroundQueueTest : public ::testing::Test {
 protected:
  testing::TestEnvironment env;
};

TEST_F(BackgroundQueueTest, OperationsRunInOrderOneAtATimeAndFinishOnTheMainThread) {
  auto queue = LegacyZTBackgroundQueue::backgroundQueueWithUniqueId("ordered");
  Journal journal;
  std::atomic<int> running{0}, mostAtOnce{0};
  const auto mainId = std::this_thread::get_id();
  Entries expected(40);
  for (int i = 0; i < 20; ++i) {
    expected[i] = "work " + std::to_string(i);
    expected[20 + i] = "finished " + std::to_string(i * 10);
    queue->performOnBackground(
        [&, i]() -> std::any {
          mostAtOnce = std::max(mostAtOnce.load(), ++running);
          journal.note("work " + std::to_string(i));
          --running;
          return i * 10;
        },
        [&](std::any result) {
          journal.note((std::this_thread::get_id() == mainId ? "finished " : "off main ") +
                       std::to_string(std::any_cast<int>(result)));
        });
  }
  queue->waitUntilAllOperationsAreFinished();
  env.settle();  // finished blocks wait for the main loop, so they all come after the work
  EXPECT_EQ(mostAtOnce.load(), 1);
  EXPECT_EQ(journal.entries(), expected);
}

TEST_F(BackgroundQueueTest, RaisingTheConcurrencyLetsOperationsOverlap) {
  LegacyZTBackgroundQueue queue("wide");
  queue.setMaxConcurrentCount(2);
  // Each waits for the other: only two threads running at once can finish both.
  std::atomic<int> arrived{0};
  std::atomic<bool> bothSeen{false};
  for (int i = 0; i < 2; ++i) {
    queue.performNoResultOnBackground(
        [&] {
          ++arrived;
          const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
          while (arrived.load() < 2 && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
          if (arrived.load() == 2) bothSeen = true;
        },
        nullptr);
  }
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_TRUE(bothSeen.load());
}

TEST_F(BackgroundQueueTest, CancelledOperationsRunNeitherBlockAndACancelDuringWorkSuppressesFinished) {
  LegacyZTBackgroundQueue queue("cancel");
  Journal journal;
  Gate started, release;
  queue.performNoResultOnBackground([&] { started.open(); release.wait(); journal.note("running work"); },
                                    [&] { journal.note("running finished"); });
  queue.performNoResultOnBackground([&] { journal.note("waiting work"); }, [&] { journal.note("waiting finished"); });
  queue.performOnBackground([&]() -> std::any { journal.note("result work"); return 1; },
                            [&](std::any) { journal.note("result finished"); });
  ASSERT_TRUE(started.wait());
  queue.cancelAll();
  release.open();
  queue.waitUntilAllOperationsAreFinished();
  env.settle();
  // The running block is never interrupted, but nothing follows it.
  EXPECT_EQ(journal.entries(), Entries{"running work"});

  // The queue keeps working after a cancel.
  queue.performNoResultOnBackground([&] { journal.note("later work"); }, [&] { journal.note("later finished"); });
  queue.waitUntilAllOperationsAreFinished();
  env.settle();
  EXPECT_EQ(journal.entries(), (Entries{"running work", "later work", "later finished"}));

  // A cancel after the finished block was posted no longer stops it.
  OperationQueue plain("late cancel");
  std::atomic<bool> finished{false};
  auto operation = std::make_shared<LegacyZTCancelableOperation>([] {}, [&] { finished = true; });
  plain.addOperation(operation);
  plain.waitUntilAllOperationsAreFinished();
  EXPECT_TRUE(operation->isFinished());
  operation->cancel();
  env.settle();
  EXPECT_TRUE(finished.load());
}

TEST_F(BackgroundQueueTest, SearchesDeliverEveryResultOrOnlyTheNewest) {
  for (bool intermediate : {true, false}) {
    SCOPED_TRACE(intermediate);
    LegacyZTBackgroundQueue queue("search");
    if (!intermediate) queue.setShowIntermediateResults(false);  // shown unless switched off
    Journal journal;
    Gate release;
    auto note = [&](std::any r) { journal.note(std::any_cast<std::string>(r)); };
    // Holds the queue so that the searches below are all still waiting.
    queue.performOnBackground([&]() -> std::any { release.wait(); return std::string("plain 1"); }, note);
    auto search = [&](std::string name) { queue.performSearchOnBackground([name]() -> std::any { return name; }, note); };
    search("search A");
    search("search B");
    queue.performOnBackground([]() -> std::any { return std::string("plain 2"); }, note);
    search("search C");
    release.open();
    queue.waitUntilAllOperationsAreFinished();
    env.settle();
    const Entries expected = intermediate ? Entries{"plain 1", "search A", "search B", "plain 2", "search C"}
                                          : Entries{"plain 1", "plain 2", "search C"};
    EXPECT_EQ(journal.entries(), expected);
  }
}

TEST_F(BackgroundQueueTest, DestroyingTheQueueCancelsWhatWaitsAndWaitsForWhatRuns) {
  Journal journal;
  Gate started;
  std::atomic<bool> destroying{false};
  {
    LegacyZTBackgroundQueue queue("doomed");
    queue.performNoResultOnBackground(
        [&] {
          started.open();
          // Still running when the destructor starts, and a little after.
          for (int i = 0; !destroying && i < 10'000'000; ++i) std::this_thread::yield();
          for (int i = 0; i < 200; ++i) std::this_thread::yield();
          journal.note("running work");
        },
        [&] { journal.note("running finished"); });
    queue.performNoResultOnBackground([&] { journal.note("waiting work"); }, [&] { journal.note("waiting finished"); });
    EXPECT_TRUE(started.wait());
    destroying = true;
  }
  EXPECT_EQ(journal.entries(), Entries{"running work"});
  env.settle();
  EXPECT_EQ(journal.entries(), Entries{"running work"});
}

TEST_F(BackgroundQueueTest, AQueueReleasedByItsOwnOperationCancelsTheRest) {
  auto journal = std::make_shared<Journal>();
  auto othersDropped = std::make_shared<Gate>();
  auto queue = std::make_shared<LegacyZTBackgroundQueue>("self-released");
  auto holder = std::make_shared<std::shared_ptr<LegacyZTBackgroundQueue>>(queue);
  queue->performNoResultOnBackground([journal, othersDropped, holder] {
    othersDropped->wait();
    holder->reset();  // the last reference: the queue goes on its own thread
    journal->note("releasing work");
  }, nullptr);
  queue->performNoResultOnBackground([journal] { journal->note("waiting work"); }, nullptr);
  std::weak_ptr<LegacyZTBackgroundQueue> watch = queue;
  queue.reset();
  othersDropped->open();
  env.settle();
  EXPECT_TRUE(watch.expired());
  EXPECT_EQ(journal->entries(), Entries{"releasing work"});
}

TEST_F(BackgroundQueueTest, ClassOperationsRunOnThePoolAndFinishOnTheMainThread) {
  Journal journal;
  std::atomic<int> done{0};
  const auto mainId = std::this_thread::get_id();
  std::atomic<bool> workOffMain{true};
  auto where = [&] { return std::this_thread::get_id() == mainId ? " on main" : " elsewhere"; };
  LegacyZTBackgroundQueue::performNoCancelNoResultOnBackground(
      [&] { workOffMain = workOffMain && std::this_thread::get_id() != mainId; },
      [&] { journal.note(std::string("no result") + where()); ++done; });
  LegacyZTBackgroundQueue::performNoCancelOnBackground(
      []() -> std::any { return 7; },
      [&](std::any r) { journal.note("result " + std::to_string(std::any_cast<int>(r)) + where()); ++done; });
  LegacyZTBackgroundQueue::performNoCancelOnBackground([&] { ++done; });
  // Without a finished block there is nothing to post.
  LegacyZTBackgroundQueue::performNoCancelNoResultOnBackground([&] { ++done; }, nullptr);
  LegacyZTBackgroundQueue::performNoCancelOnBackground([&]() -> std::any { ++done; return 0; }, nullptr);
  ASSERT_TRUE(RunLoop::main().runUntil([&] { return done.load() == 5; }, 10));
  env.settle();
  EXPECT_TRUE(workOffMain.load());
  auto entries = journal.entries();
  std::sort(entries.begin(), entries.end());
  EXPECT_EQ(entries, (Entries{"no result on main", "result 7 on main"}));
}

TEST_F(BackgroundQueueTest, AThrowingWorkBlockIsContainedAndSkipsItsFinishedBlock) {
  auto& log = env.log();
  LegacyZTBackgroundQueue queue("throws");
  std::atomic<bool> finished{false}, nextRan{false};
  queue.performNoResultOnBackground([] { throw std::runtime_error("boom"); }, [&] { finished = true; });
  queue.performNoResultOnBackground([&] { nextRan = true; }, nullptr);
  queue.waitUntilAllOperationsAreFinished();
  env.settle();
  EXPECT_FALSE(finished.load());
  EXPECT_TRUE(nextRan.load());
  EXPECT_TRUE(log.contains("IAM: A background operation threw: boom"));
}

#if defined(__linux__)
TEST_F(BackgroundQueueTest, QueueThreadsRunBelowTheirCallersPriority) {
  LegacyZTBackgroundQueue queue("polite");
  std::atomic<int> workerNice{0};
  queue.performNoResultOnBackground([&] { workerNice = getpriority(PRIO_PROCESS, static_cast<id_t>(::gettid())); },
                                    nullptr);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_GT(workerNice.load(), getpriority(PRIO_PROCESS, static_cast<id_t>(::gettid())));
}
#endif

}  // namespace
}  // namespace iam
