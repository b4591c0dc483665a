#pragma once

#include <any>
#include <atomic>
#include <functional>

#include "iam/support/Operation.h"

namespace iam {

// Runs a block that produces an object, then hands that object to its finished block on the main
// run loop unless it was cancelled by then. Search operations can be cancelled as a group by
// their queue.
class LegacyZTCancelableResultOperation : public Operation {
 public:
  using ExecutionBlock = std::function<std::any()>;
  using FinishedBlock = std::function<void(std::any)>;

  // `finishedBlock` is required; without it the result is dropped.
  LegacyZTCancelableResultOperation(ExecutionBlock executionBlock, FinishedBlock finishedBlock);

  bool isSearchOperation() const { return searchOperation_.load(std::memory_order_acquire); }
  void setSearchOperation(bool value) { searchOperation_.store(value, std::memory_order_release); }

 protected:
  void main() override;

 private:
  const ExecutionBlock executionBlock_;
  const FinishedBlock finishedBlock_;
  std::atomic<bool> searchOperation_{false};
};

}  // namespace iam
