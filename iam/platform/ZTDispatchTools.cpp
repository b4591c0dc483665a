#include "iam/platform/ZTDispatchTools.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "iam/platform/Clock.h"
#include "iam/platform/LogBridge.h"
#include "iam/platform/RunLoop.h"

namespace iam {
namespace {

constexpr std::string_view kLogFile = "iam/platform/ZTDispatchTools";

std::chrono::steady_clock::duration realDuration(TimeInterval seconds) {
  if (!(seconds > 0)) return std::chrono::steady_clock::duration::zero();
  seconds = std::min(seconds, 1e9);
  return std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(seconds));
}

// The shared background pool. Blocks run in no particular order across threads. Made on first
// use; at exit its destructor runs what is still queued and joins the threads.
class BackgroundPool {
 public:
  BackgroundPool() {
    // Statics that blocks commonly use are made first, so that they are destroyed after the pool.
    Clock::currentShared();
    RunLoop::main();
    const unsigned cores = std::thread::hardware_concurrency();
    const unsigned count = std::clamp(cores, 2u, 4u);
    threads_.reserve(count);
    for (unsigned i = 0; i < count; ++i) threads_.emplace_back([this] { work(); });
  }

  ~BackgroundPool() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    workAvailable_.notify_all();
    for (auto& t : threads_) {
      // A block that ends the process runs this on a pool thread, which cannot join itself.
      if (t.get_id() == std::this_thread::get_id()) {
        t.detach();
      } else {
        t.join();
      }
    }
  }

  BackgroundPool(const BackgroundPool&) = delete;
  BackgroundPool& operator=(const BackgroundPool&) = delete;

  void submit(ZTDispatchTools::Block block) {
    {
      std::lock_guard lock(mutex_);
      queue_.push_back(std::move(block));
    }
    workAvailable_.notify_one();
  }

  bool waitForIdle(std::chrono::steady_clock::duration timeout) {
    std::unique_lock lock(mutex_);
    return idle_.wait_for(lock, timeout, [this] { return queue_.empty() && running_ == 0; });
  }

  // Blocks finished so far; tells a settling test whether anything happened between two looks.
  std::uint64_t finishedCount() {
    std::lock_guard lock(mutex_);
    return finished_;
  }

 private:
  void work() {
    std::unique_lock lock(mutex_);
    for (;;) {
      workAvailable_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
      if (queue_.empty()) return;  // stopping, and drained
      ZTDispatchTools::Block block = std::move(queue_.front());
      queue_.pop_front();
      ++running_;
      lock.unlock();
      try {
        block();
      } catch (const std::exception& e) {
        LogBridge::error(std::string("IAM: A background block threw: ") + e.what(), kLogFile, __LINE__,
                         "onBackgroundWithBlock");
      } catch (...) {
        LogBridge::error("IAM: A background block threw an unknown exception", kLogFile, __LINE__,
                         "onBackgroundWithBlock");
      }
      block = nullptr;  // what it captured goes before the pool reports idle
      lock.lock();
      --running_;
      ++finished_;
      if (queue_.empty() && running_ == 0) idle_.notify_all();
    }
  }

  std::vector<std::thread> threads_;  // constant after construction

  std::mutex mutex_;
  std::condition_variable workAvailable_;
  std::condition_variable idle_;
  std::deque<ZTDispatchTools::Block> queue_;  // guarded by mutex_
  std::size_t running_ = 0;                   // guarded by mutex_
  std::uint64_t finished_ = 0;                // guarded by mutex_
  bool stopping_ = false;                     // guarded by mutex_
};

BackgroundPool& pool() {
  static BackgroundPool instance;
  return instance;
}

}  // namespace

void ZTDispatchTools::onMainWithBlock(Block block) {
  if (!block) return;
  RunLoop::main().post(std::move(block));
}

void ZTDispatchTools::onBackgroundWithBlock(Block block) {
  if (!block) return;
  pool().submit(std::move(block));
}

bool ZTDispatchTools::waitForBackgroundIdleForTesting(TimeInterval timeoutSeconds) {
  return pool().waitForIdle(realDuration(timeoutSeconds));
}

bool ZTDispatchTools::settleForTesting(TimeInterval timeoutSeconds) {
  const auto deadline = std::chrono::steady_clock::now() + realDuration(timeoutSeconds);
  auto& background = pool();
  // Work on one side can start work on the other; quiet means neither side did anything for two
  // rounds in a row.
  int quietRounds = 0;
  std::uint64_t finished = background.finishedCount();
  while (quietRounds < 2) {
    const auto now = std::chrono::steady_clock::now();
    if (now >= deadline) return false;
    if (!background.waitForIdle(deadline - now)) return false;
    const std::size_t ran = RunLoop::main().runUntilIdle();
    const std::uint64_t finishedNow = background.finishedCount();
    if (ran == 0 && finishedNow == finished) {
      ++quietRounds;
    } else {
      quietRounds = 0;
    }
    finished = finishedNow;
  }
  return true;
}

}  // namespace iam
