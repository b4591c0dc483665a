#include "iam/support/LegacyZTCancelableResultOperation.h"

#include <utility>

#include "iam/platform/ZTDispatchTools.h"

namespace iam {

LegacyZTCancelableResultOperation::LegacyZTCancelableResultOperation(ExecutionBlock executionBlock,
                                                                     FinishedBlock finishedBlock)
    : executionBlock_(std::move(executionBlock)), finishedBlock_(std::move(finishedBlock)) {}

void LegacyZTCancelableResultOperation::main() {
  if (isCancelled()) return;
  std::any result = executionBlock_ ? executionBlock_() : std::any();
  if (isCancelled() || !finishedBlock_) return;
  ZTDispatchTools::onMainWithBlock(
      [finished = finishedBlock_, result = std::move(result)]() mutable { finished(std::move(result)); });
}

}  // namespace iam
