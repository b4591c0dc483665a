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

TEST_F(BackgroundQueueTest, RaisingTheConcurrencyLetsOperationsOverlap) {
  LegacyZTBackgroundQueue queue("wide");
  queue.setMaxConcurrentCount(2);
  // Each waits for the other: only two threads running at once can finish both.
  std::atomic<int> arrived{0};
  std::atomic<bool> bothSeen{false};
  for (int i = 0; i < 2; ++i) {
    queue.performNoResultOnBackground([&] {
      ++arrived;
      for (int spin = 0; arrived < 2 && spin < 10'000'000; ++spin) std::this_thread::yield();
      if (arrived == 2) bothSeen = true;
    }, nullptr);
  }
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_TRUE(bothSeen.load());
}

TEST_F(BackgroundQueueTest, CancelledOrThrowingOperationsSkipTheirFinishedBlockAndTheQueueGoesOn) {
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

  // The queue keeps working after a cancel; a block that throws is logged and skips its finished block.
  queue.performNoResultOnBackground([] { throw std::runtime_error("boom"); }, [&] { journal.note("thrown finished"); });
  queue.performNoResultOnBackground([&] { journal.note("later work"); }, [&] { journal.note("later finished"); });
  queue.waitUntilAllOperationsAreFinished();
  env.settle();
  EXPECT_EQ(journal.entries(), (Entries{"running work", "later work", "later finished"}));
  EXPECT_TRUE(env.log().contains("IAM: A background operation threw: boom"));

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

// One at a time and in order: with a held first block, anything run beside it would finish first.
TEST_F(BackgroundQueueTest, OperationsRunInOrderFinishOnTheMainThreadAndSearchesDeliverEveryResultOrTheNewest) {
  const auto mainId = std::this_thread::get_id();
  for (bool intermediate : {true, false}) {
    SCOPED_TRACE(intermediate);
    LegacyZTBackgroundQueue queue("search");
    if (!intermediate) queue.setShowIntermediateResults(false);  // shown unless switched off
    Journal journal;
    Gate release;
    auto note = [&](std::any r) {
      journal.note(std::any_cast<std::string>(r) + (std::this_thread::get_id() == mainId ? "" : " off main"));
    };
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
  const auto mainId = std::this_thread::get_id();
  auto where = [&] { return std::this_thread::get_id() == mainId ? "main" : "pool"; };
  LegacyZTBackgroundQueue::performNoCancelNoResultOnBackground([&] { journal.note(std::string("work ") + where()); },
                                                               [&] { journal.note(std::string("finished ") + where()); });
  LegacyZTBackgroundQueue::performNoCancelOnBackground(
      []() -> std::any { return std::string("result "); },
      [&](std::any r) { journal.note(std::any_cast<std::string>(r) + where()); });
  LegacyZTBackgroundQueue::performNoCancelOnBackground([&] { journal.note(std::string("plain ") + where()); });
  // Without a finished block there is nothing to post.
  LegacyZTBackgroundQueue::performNoCancelNoResultOnBackground([&] { journal.note("no finished"); }, nullptr);
  LegacyZTBackgroundQueue::performNoCancelOnBackground([&]() -> std::any { journal.note("dropped"); return 0; }, nullptr);
  env.settle();
  auto entries = journal.entries();
  std::sort(entries.begin(), entries.end());
  EXPECT_EQ(entries, (Entries{"dropped", "finished main", "no finished", "plain pool", "result main", "work pool"}));
}

}  // namespace
}  // namespace iam
