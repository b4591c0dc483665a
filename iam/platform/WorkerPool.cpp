#include "iam/platform/WorkerPool.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <string>
#include <system_error>

#include "iam/platform/LogBridge.h"

namespace iam {
namespace {

constexpr std::string_view kLogFile = "iam/platform/WorkerPool";

std::chrono::steady_clock::duration realDuration(TimeInterval seconds) {
  if (!(seconds > 0)) return std::chrono::steady_clock::duration::zero();
  seconds = std::min(seconds, 1e9);
  return std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(seconds));
}

void runGuarded(const WorkerPool::Block& block) {
  try {
    block();
  } catch (const std::exception& e) {
    LogBridge::error(std::string("IAM: A background block threw: ") + e.what(), kLogFile, __LINE__, "submit");
  } catch (...) {
    LogBridge::error("IAM: A background block threw an unknown exception", kLogFile, __LINE__, "submit");
  }
}

}  // namespace

WorkerPool& WorkerPool::shared() {
  static WorkerPool* const pool = new WorkerPool();  // never destroyed
  return *pool;
}

void WorkerPool::startThreadsLocked() {
  const unsigned count = std::clamp(std::thread::hardware_concurrency(), 2u, 4u);
  auto service = ThreadService::current();
  static const bool registered = (std::atexit([] { WorkerPool::shared().stopAtExit(); }), true);
  (void)registered;
  while (threads_.size() < count) {
    try {
      threads_.push_back(service->start("iam.worker", ThreadPriority::Background, [this] { work(); }));
    } catch (const std::exception& e) {
      LogBridge::error(std::string("IAM: A background thread could not be started: ") + e.what(), kLogFile, __LINE__,
                       "submit");
      break;
    }
  }
}

void WorkerPool::submit(Block block) { enqueue(std::move(block), false); }

void WorkerPool::submitAhead(Block block) { enqueue(std::move(block), true); }

void WorkerPool::enqueue(Block block, bool ahead) {
  if (!block) return;
  bool wake = false;
  {
    std::lock_guard lock(mutex_);
    if (threads_.empty() && !stopping_) startThreadsLocked();
    if (!threads_.empty() && !stopping_) {
      if (ahead) {
        // Behind earlier blocks submitted ahead, so that those keep their order.
        queue_.insert(queue_.begin() + static_cast<std::ptrdiff_t>(aheadCount_), std::move(block));
        ++aheadCount_;
      } else {
        queue_.push_back(std::move(block));
      }
      block = nullptr;
      if (waiting_ > wakesPending_) {
        ++wakesPending_;
        wake = true;
      }
    }
  }
  if (!block) {
    if (wake) workAvailable_.notify_one();
    return;
  }
  // Without any thread the work would never run; late beats never.
  runGuarded(block);
}

void WorkerPool::work() {
  std::unique_lock lock(mutex_);
  for (;;) {
    while (!stopping_ && queue_.empty()) {
      ++waiting_;
      workAvailable_.wait(lock);
      --waiting_;
      // Spurious wake-ups count too: at worst the next submit wakes one worker more than needed.
      if (wakesPending_ > 0) --wakesPending_;
    }
    if (queue_.empty()) return;  // stopping, and drained
    Block block = std::move(queue_.front());
    queue_.pop_front();
    if (aheadCount_ > 0) --aheadCount_;
    ++running_;
    lock.unlock();
    runGuarded(block);
    block = nullptr;  // what it captured goes before the pool reports idle
    lock.lock();
    --running_;
    ++finished_;
    if (queue_.empty() && running_ == 0) idle_.notify_all();
  }
}

void WorkerPool::stopAtExit() {
  std::vector<Thread> threads;
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    threads.swap(threads_);
  }
  workAvailable_.notify_all();
  for (auto& thread : threads) thread.join();  // a block that ends the process is not waited for
}

bool WorkerPool::waitForIdle(TimeInterval timeoutSeconds) {
  std::unique_lock lock(mutex_);
  return idle_.wait_for(lock, realDuration(timeoutSeconds), [this] { return queue_.empty() && running_ == 0; });
}

std::size_t WorkerPool::workerCount() {
  std::lock_guard lock(mutex_);
  return threads_.size();
}

std::uint64_t WorkerPool::finishedCount() {
  std::lock_guard lock(mutex_);
  return finished_;
}

}  // namespace iam
