#include "iam/support/OperationQueue.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

#if defined(__linux__)
#include <sys/resource.h>
#include <unistd.h>
#endif

namespace iam {
namespace {

// Lowers the calling thread's priority for background work. Linux sets the nice value per thread;
// elsewhere the threads keep the default priority.
void applyQualityOfService(OperationQueue::QualityOfService quality) {
#if defined(__linux__)
  if (quality == OperationQueue::QualityOfService::Background) {
    constexpr int kBackgroundNice = 10;
    (void)setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), kBackgroundNice);
  }
#else
  (void)quality;
#endif
}

}  // namespace

struct OperationQueue::Shared {
  mutable std::mutex mutex;
  std::condition_variable workAvailable;
  std::condition_variable drained;
  std::string name;                                      // guarded by mutex
  std::deque<std::shared_ptr<Operation>> waiting;        // guarded by mutex
  std::vector<std::shared_ptr<Operation>> running;       // guarded by mutex
  std::int64_t maxConcurrent = 1;                        // guarded by mutex
  QualityOfService quality = QualityOfService::Default;  // guarded by mutex
  std::vector<std::thread> threads;                      // guarded by mutex
  std::size_t idleThreads = 0;                           // guarded by mutex
  std::size_t finishing = 0;                             // guarded by mutex; releasing what they captured
  bool stopping = false;                                 // guarded by mutex

  bool isDrained() const { return waiting.empty() && running.empty() && finishing == 0; }
  bool canStartOne() const { return !waiting.empty() && static_cast<std::int64_t>(running.size()) < maxConcurrent; }

  // Starts a thread when waiting work could run but no idle thread would take it. Called locked.
  void ensureThreads(const std::shared_ptr<Shared>& self) {
    const auto wanted =
        std::min<std::int64_t>(maxConcurrent, static_cast<std::int64_t>(running.size() + waiting.size()));
    if (idleThreads == 0 && static_cast<std::int64_t>(threads.size()) < wanted) {
      threads.emplace_back([self] { self->work(); });
    } else if (idleThreads > 0) {
      // A wake-up costs a system call; the common case (a busy thread that takes the next
      // operation by itself) needs none.
      workAvailable.notify_one();
    }
  }

  void work() {
    std::unique_lock lock(mutex);
    applyQualityOfService(quality);
    for (;;) {
      ++idleThreads;
      workAvailable.wait(lock, [this] { return canStartOne() || (stopping && waiting.empty()); });
      --idleThreads;
      if (!canStartOne()) return;  // stopping, and nothing left
      std::shared_ptr<Operation> operation = std::move(waiting.front());
      waiting.pop_front();
      running.push_back(operation);
      // Threads waiting for a free slot must see that nothing is left for them.
      if (stopping && waiting.empty()) workAvailable.notify_all();
      lock.unlock();
      operation->start();
      lock.lock();
      auto it = std::find(running.begin(), running.end(), operation);
      std::shared_ptr<Operation> listed = std::move(*it);
      running.erase(it);
      ++finishing;
      lock.unlock();
      // What the operation captured goes before the queue reports itself drained.
      listed.reset();
      operation.reset();
      lock.lock();
      --finishing;
      if (isDrained()) drained.notify_all();
      // With more than one slot, a finished operation may let a waiting thread start.
      if (maxConcurrent > 1 && idleThreads > 0 && canStartOne()) workAvailable.notify_one();
    }
  }
};

OperationQueue::OperationQueue(std::string name) : shared_(std::make_shared<Shared>()) {
  shared_->name = std::move(name);
}

OperationQueue::~OperationQueue() {
  std::vector<std::thread> threads;
  {
    std::lock_guard lock(shared_->mutex);
    shared_->stopping = true;
    threads.swap(shared_->threads);
  }
  shared_->workAvailable.notify_all();
  for (auto& t : threads) {
    if (t.get_id() == std::this_thread::get_id()) {
      t.detach();  // it holds the shared state and ends after the running operation
    } else {
      t.join();
    }
  }
}

std::string OperationQueue::name() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->name;
}

void OperationQueue::setName(std::string name) {
  std::lock_guard lock(shared_->mutex);
  shared_->name = std::move(name);
}

OperationQueue::QualityOfService OperationQueue::qualityOfService() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->quality;
}

void OperationQueue::setQualityOfService(QualityOfService quality) {
  std::lock_guard lock(shared_->mutex);
  shared_->quality = quality;
}

void OperationQueue::addOperation(std::shared_ptr<Operation> operation) {
  if (!operation) return;
  std::lock_guard lock(shared_->mutex);
  shared_->waiting.push_back(std::move(operation));
  shared_->ensureThreads(shared_);
}

std::vector<std::shared_ptr<Operation>> OperationQueue::operations() const {
  std::lock_guard lock(shared_->mutex);
  std::vector<std::shared_ptr<Operation>> all(shared_->running.begin(), shared_->running.end());
  all.insert(all.end(), shared_->waiting.begin(), shared_->waiting.end());
  return all;
}

void OperationQueue::cancelAllOperations() {
  for (const auto& operation : operations()) operation->cancel();
}

std::int64_t OperationQueue::maxConcurrentOperationCount() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->maxConcurrent;
}

void OperationQueue::setMaxConcurrentOperationCount(std::int64_t count) {
  std::lock_guard lock(shared_->mutex);
  auto& s = *shared_;
  s.maxConcurrent = std::max<std::int64_t>(count, 1);
  const auto wanted =
      std::min<std::int64_t>(s.maxConcurrent, static_cast<std::int64_t>(s.running.size() + s.waiting.size()));
  while (static_cast<std::int64_t>(s.threads.size()) < wanted)
    s.threads.emplace_back([self = shared_] { self->work(); });
  s.workAvailable.notify_all();
}

void OperationQueue::waitUntilAllOperationsAreFinished() {
  std::unique_lock lock(shared_->mutex);
  shared_->drained.wait(lock, [this] { return shared_->isDrained(); });
}

}  // namespace iam
