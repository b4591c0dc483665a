#include "iam/support/OperationQueue.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

#include "iam/platform/WorkerPool.h"

namespace iam {

struct OperationQueue::Shared : std::enable_shared_from_this<Shared> {
  mutable std::mutex mutex;
  std::condition_variable drained;
  std::string name;                                // guarded by mutex
  std::deque<std::shared_ptr<Operation>> waiting;  // guarded by mutex
  std::vector<std::shared_ptr<Operation>> running;  // guarded by mutex
  std::int64_t maxConcurrent = 1;                  // guarded by mutex
  // Pool tasks submitted and not yet done; each takes one operation (or none, if others took
  // them first) and releases it before it counts itself out.
  std::int64_t tasks = 0;  // guarded by mutex

  bool isDrained() const { return waiting.empty() && tasks == 0; }

  // Counts in as many tasks as free slots and unclaimed operations allow. Called locked; the
  // caller submits them after unlocking (the pool may run a task inline).
  std::int64_t claimTasks() {
    std::int64_t claimed = 0;
    while (tasks < maxConcurrent &&
           tasks - static_cast<std::int64_t>(running.size()) < static_cast<std::int64_t>(waiting.size())) {
      ++tasks;
      ++claimed;
    }
    return claimed;
  }

  void submitTasks(std::int64_t count) {
    for (; count > 0; --count) WorkerPool::shared().submitAhead([self = shared_from_this()] { self->runOne(); });
  }

  void runOne();
};

namespace {
// The queue whose operation the calling thread is running, so that its destructor does not wait
// for itself.
thread_local const void* runningQueue = nullptr;
}  // namespace

void OperationQueue::Shared::runOne() {
  std::unique_lock lock(mutex);
  if (!waiting.empty()) {
    std::shared_ptr<Operation> operation = std::move(waiting.front());
    waiting.pop_front();
    running.push_back(operation);
    lock.unlock();
    runningQueue = this;
    operation->start();
    runningQueue = nullptr;
    lock.lock();
    running.erase(std::find(running.begin(), running.end(), operation));
    lock.unlock();
    // What the operation captured goes before the queue reports itself drained.
    operation.reset();
    lock.lock();
  }
  --tasks;
  const auto more = claimTasks();
  if (isDrained()) drained.notify_all();
  lock.unlock();
  submitTasks(more);
}

OperationQueue::OperationQueue(std::string name) : shared_(std::make_shared<Shared>()) {
  shared_->name = std::move(name);
}

OperationQueue::~OperationQueue() {
  if (runningQueue == shared_.get()) return;
  waitUntilAllOperationsAreFinished();
}

std::string OperationQueue::name() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->name;
}

void OperationQueue::setName(std::string name) {
  std::lock_guard lock(shared_->mutex);
  shared_->name = std::move(name);
}

void OperationQueue::addOperation(std::shared_ptr<Operation> operation) {
  if (!operation) return;
  std::int64_t tasks = 0;
  {
    std::lock_guard lock(shared_->mutex);
    shared_->waiting.push_back(std::move(operation));
    tasks = shared_->claimTasks();
  }
  shared_->submitTasks(tasks);
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
  std::int64_t tasks = 0;
  {
    std::lock_guard lock(shared_->mutex);
    shared_->maxConcurrent = std::max<std::int64_t>(count, 1);
    tasks = shared_->claimTasks();
  }
  shared_->submitTasks(tasks);
}

void OperationQueue::waitUntilAllOperationsAreFinished() {
  std::unique_lock lock(shared_->mutex);
  shared_->drained.wait(lock, [this] { return shared_->isDrained(); });
}

}  // namespace iam
