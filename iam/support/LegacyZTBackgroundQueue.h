#pragma once

#include <any>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "iam/support/OperationQueue.h"

namespace iam {

// Runs blocks off the main thread and hands their results back on the main run loop.
//
// The class operations are fire-and-forget on the shared background pool (`ZTDispatchTools`);
// they cannot be cancelled. An instance owns a named serial queue over the same pool. Its
// operations can be cancelled all at once or, for searches, as a group. Cancellation is
// cooperative: a running block finishes, but its finished block is not called. Destroying the
// instance cancels what is still waiting and waits for the running operation. Finished blocks
// always run on the main run loop. Thread-safe.
class LegacyZTBackgroundQueue {
 public:
  using Block = std::function<void()>;
  using ResultBlock = std::function<std::any()>;
  using ResultFinishedBlock = std::function<void(std::any)>;

  static std::shared_ptr<LegacyZTBackgroundQueue> backgroundQueueWithUniqueId(const std::string& uniqueId);

  // `finishedBlock` may be empty.
  static void performNoCancelNoResultOnBackground(Block block, Block finishedBlock);
  // `finishedBlock` is required; without it the result is dropped.
  static void performNoCancelOnBackground(ResultBlock block, ResultFinishedBlock finishedBlock);
  static void performNoCancelOnBackground(Block block);

  // Serial (at most one operation at a time) and showing intermediate results.
  explicit LegacyZTBackgroundQueue(const std::string& uniqueId);
  ~LegacyZTBackgroundQueue();
  LegacyZTBackgroundQueue(const LegacyZTBackgroundQueue&) = delete;
  LegacyZTBackgroundQueue& operator=(const LegacyZTBackgroundQueue&) = delete;

  void performOnBackground(ResultBlock block, ResultFinishedBlock finishedBlock);
  // Without intermediate results, a new search first cancels the searches still waiting or running.
  void performSearchOnBackground(ResultBlock block, ResultFinishedBlock finishedBlock);
  void performOnBackground(ResultBlock block, ResultFinishedBlock finishedBlock, bool isSearchBlock);
  // `finishedBlock` may be empty.
  void performNoResultOnBackground(Block block, Block finishedBlock);

  void cancelAll();
  // Cancels only search operations; the others stay.
  void cancelSearchOperations();

  std::int64_t maxConcurrentCount() const { return operationQueue_.maxConcurrentOperationCount(); }
  void setMaxConcurrentCount(std::int64_t count) { operationQueue_.setMaxConcurrentOperationCount(count); }
  bool showIntermediateResults() const { return showIntermediateResults_.load(std::memory_order_acquire); }
  void setShowIntermediateResults(bool value) { showIntermediateResults_.store(value, std::memory_order_release); }

  // The unique id the queue was made with.
  std::string uniqueId() const { return operationQueue_.name(); }
  // Blocks until every operation added so far has finished. Not from one of its own operations.
  void waitUntilAllOperationsAreFinished() { operationQueue_.waitUntilAllOperationsAreFinished(); }

 private:
  OperationQueue operationQueue_;
  std::atomic<bool> showIntermediateResults_{true};
};

}  // namespace iam
