#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <vector>

#include "iam/platform/Date.h"
#include "iam/platform/Thread.h"

namespace iam {

// The library's one pool of background threads: `ZTDispatchTools::onBackgroundWithBlock` and
// every `OperationQueue` run their work here. Blocks run in no particular order across threads,
// at background priority. Threads come from `ThreadService` on the first submit. Never destroyed;
// at exit, a handler registered when the threads start lets the queued work run and joins the
// threads, before the statics made earlier are destroyed; work submitted after that runs on the
// submitting thread. Thread-safe.
class WorkerPool {
 public:
  using Block = std::function<void()>;

  static WorkerPool& shared();

  void submit(Block block);
  // Queued before every block submitted with `submit`: the operation queues' work (statistics
  // saves among it) must not wait behind a burst of app event walks.
  void submitAhead(Block block);

  // Blocks until nothing is queued or running (false when the timeout passes first).
  bool waitForIdle(TimeInterval timeoutSeconds);
  // Threads running work (none before the first submit).
  std::size_t workerCount();
  // Blocks finished so far; tells a settling test whether anything happened between two looks.
  std::uint64_t finishedCount();

 private:
  WorkerPool() = default;
  void enqueue(Block block, bool ahead);
  void startThreadsLocked();
  void work();
  void stopAtExit();

  std::mutex mutex_;
  std::condition_variable workAvailable_;
  std::condition_variable idle_;
  std::vector<Thread> threads_;  // guarded by mutex_; never joined
  std::deque<Block> queue_;      // guarded by mutex_; blocks submitted ahead, then the others
  std::size_t aheadCount_ = 0;   // guarded by mutex_; blocks submitted ahead at the queue's front
  std::size_t running_ = 0;      // guarded by mutex_
  // Workers blocked on workAvailable_, and wake-ups sent to them that no worker has taken yet: a
  // submit wakes a worker only when more are waiting than are already being woken, so a burst
  // of submits costs the submitter one system call, not one each.
  std::size_t waiting_ = 0;       // guarded by mutex_
  std::size_t wakesPending_ = 0;  // guarded by mutex_
  std::uint64_t finished_ = 0;   // guarded by mutex_
  bool stopping_ = false;        // guarded by mutex_
};

}  // namespace iam
